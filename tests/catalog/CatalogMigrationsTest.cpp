#include "catalog/CatalogMigrations.h"

#include <gtest/gtest.h>

#include "catalog/CatalogError.h"
#include "catalog/VersionCatalog.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

// Every schema object with its SQL, in a stable order: two databases with the same dump have the same schema.
std::string schemaDump(Database& database) {
    std::string dump;
    database.query("SELECT type, name, COALESCE(sql, '') FROM sqlite_master ORDER BY type, name", {},
                   [&](const DatabaseRow& row) { dump += row.text(0) + " " + row.text(1) + ": " + row.text(2) + "\n"; });
    return dump;
}

std::vector<std::string> firstMigrations(std::size_t count) {
    const auto& all = CatalogMigrations::standard();
    return {all.begin(), all.begin() + long(count)};
}

TEST(CatalogMigrationsTest, FreshFileReachesVersionEightInEightSteps) {
    TempDirectory directory;
    Database database(directory / "index.sqlite");
    std::vector<std::int32_t> steps;
    CatalogMigrations::migrate(database, CatalogMigrations::standard(), [&](std::int32_t v) { steps.push_back(v); });
    EXPECT_EQ(steps, (std::vector<std::int32_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(database.userVersion(), 8);
    const std::string schema = schemaDump(database);
    for (const char* name : {"table files", "table versions", "table watch_state", "table meta", "table file_events",
                             "table moment_marks", "table content_texts", "table content_fts",
                             "index files_by_inode", "index files_by_folder", "index versions_by_file",
                             "index versions_by_time", "index versions_by_folder_time", "index versions_by_digest",
                             "index file_events_by_file", "trigger versions_drop_text"}) {
        EXPECT_NE(schema.find(std::string(name) + ":"), std::string::npos) << name << " missing from\n" << schema;
    }
    // A second run has nothing to do.
    steps.clear();
    CatalogMigrations::migrate(database, CatalogMigrations::standard(), [&](std::int32_t v) { steps.push_back(v); });
    EXPECT_TRUE(steps.empty());
}

TEST(CatalogMigrationsTest, VersionFourStoreGetsFiveToEightAndLosesRetiredRewindMarks) {
    TempDirectory directory;
    const std::string path = directory / "index.sqlite";
    {
        Database database(path);
        CatalogMigrations::migrate(database, firstMigrations(4));
        ASSERT_EQ(database.userVersion(), 4);
        database.run("INSERT INTO moment_marks (folder_id, at, name, kind) VALUES ('F', 1, NULL, 'rewind')");
        database.run("INSERT INTO moment_marks (folder_id, at, name, kind) VALUES ('F', 2, 'Draft', 'named')");
        database.run("INSERT INTO moment_marks (folder_id, at, name, kind) VALUES ('F', 3, NULL, 'beforeRewind')");
        database.run("INSERT INTO files (folder_id, rel_path) VALUES ('F', 'a.txt')");
        database.run(
            "INSERT INTO versions (file_id, captured_at, digest, logical_bytes, slot, payload_name, method, source, "
            "folder_id, rel_path) VALUES (1, 5, 'd', 1, 's', 'a.txt', 'copied', 'crawl', 'F', 'a.txt')");
    }
    Database database(path);
    std::vector<std::int32_t> steps;
    CatalogMigrations::migrate(database, CatalogMigrations::standard(), [&](std::int32_t v) { steps.push_back(v); });
    EXPECT_EQ(steps, (std::vector<std::int32_t>{5, 6, 7, 8}));
    std::vector<std::string> kinds;
    database.query("SELECT kind, target_at IS NULL FROM moment_marks ORDER BY at", {}, [&](const DatabaseRow& row) {
        kinds.push_back(row.text(0));
        EXPECT_EQ(row.int64(1), 1) << "surviving marks keep a null target";
    });
    EXPECT_EQ(kinds, (std::vector<std::string>{"named", "beforeRewind"}));
    EXPECT_EQ(database.scalar("SELECT replaced FROM versions"), 0) << "the new column defaults for old rows";
}

// A version outside 0...8 is never migrated: a newer one is named as such, an
// impossible one (negative, which no build writes) is a damaged catalog.
struct ForeignVersionCase {
    std::int32_t version;
    CatalogError::Kind expected;
};
void PrintTo(const ForeignVersionCase& c, std::ostream* out) { *out << "user_version " << c.version; }

class ForeignSchemaVersionTest : public ::testing::TestWithParam<ForeignVersionCase> {};

TEST_P(ForeignSchemaVersionTest, IsRefusedAndLeftUntouched) {
    const auto [version, expected] = GetParam();
    TempDirectory directory;
    const std::string path = directory / "index.sqlite";
    std::string before;
    {
        Database database(path);
        database.execute("CREATE TABLE future (x); INSERT INTO future VALUES ('kept'); PRAGMA user_version = " +
                         std::to_string(version));
        before = schemaDump(database);
    }
    auto error = test::thrown<CatalogError>([&] { VersionCatalog catalog(path); });
    ASSERT_TRUE(error) << "version " << version << " must be refused";
    EXPECT_EQ(error->kind(), expected);
    if (expected == CatalogError::Kind::storeIsNewerThanTheApp) {
        EXPECT_EQ(error->storeVersion(), version);
        EXPECT_EQ(error->appVersion(), 8);
    } else {
        EXPECT_NE(std::string(error->what()).find("vosklin check --rebuild"), std::string::npos) << error->what();
    }
    Database database(path);
    EXPECT_EQ(database.userVersion(), version);
    EXPECT_EQ(schemaDump(database), before);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM future WHERE x = 'kept'"), 1);
}

INSTANTIATE_TEST_SUITE_P(Versions, ForeignSchemaVersionTest,
                         ::testing::Values(ForeignVersionCase{9, CatalogError::Kind::storeIsNewerThanTheApp},
                                           ForeignVersionCase{INT32_MAX, CatalogError::Kind::storeIsNewerThanTheApp},
                                           ForeignVersionCase{-1, CatalogError::Kind::damaged},
                                           ForeignVersionCase{INT32_MIN, CatalogError::Kind::damaged}));

TEST(CatalogMigrationsTest, FailingMigrationLeavesSchemaAndVersionAsAfterThePreviousOne) {
    TempDirectory directory;
    Database reference(directory / "reference.sqlite");
    CatalogMigrations::migrate(reference, firstMigrations(2));

    Database database(directory / "index.sqlite");
    auto migrations = firstMigrations(2);
    // Creates something, then fails: the creation must be rolled back with it.
    migrations.push_back("CREATE TABLE half_done (x); ALTER TABLE no_such_table ADD COLUMN y TEXT;");
    migrations.push_back("CREATE TABLE never_reached (x);");
    std::vector<std::int32_t> steps;
    EXPECT_THROW(CatalogMigrations::migrate(database, migrations, [&](std::int32_t v) { steps.push_back(v); }),
                 DatabaseError);
    EXPECT_EQ(steps, (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(database.userVersion(), 2);
    EXPECT_EQ(schemaDump(database), schemaDump(reference));
}

TEST(CatalogMigrationsTest, ForeignKeysCascadeAndTheTextTriggerFollowsTheLastVersionOfADigest) {
    TempDirectory directory;
    Database database(directory / "index.sqlite");
    CatalogMigrations::migrate(database);
    database.execute(
        "INSERT INTO files (folder_id, rel_path) VALUES ('F', 'a'), ('F', 'b');"
        "INSERT INTO versions (file_id, captured_at, digest, logical_bytes, slot, payload_name, method, source) VALUES"
        " (1, 1, 'shared', 1, 's1', 'a', 'copied', 'crawl'), (2, 2, 'shared', 1, 's2', 'b', 'copied', 'crawl'),"
        " (2, 3, 'alone', 1, 's3', 'b', 'copied', 'crawl');"
        "INSERT INTO file_events (file_id, folder_id, at, kind) VALUES (1, 'F', 1, 'appeared');"
        "INSERT INTO content_texts (digest, state) VALUES ('shared', 1), ('alone', 1);"
        "INSERT INTO content_fts (rowid, body) VALUES (1, 'shared text'), (2, 'alone text');");
    auto texts = [&] { return database.scalar("SELECT COUNT(*) FROM content_texts"); };
    auto bodies = [&] { return database.scalar("SELECT COUNT(*) FROM content_fts"); };

    database.run("DELETE FROM versions WHERE id = 1");  // 'shared' is still used by version 2
    EXPECT_EQ(texts(), 2);
    EXPECT_EQ(bodies(), 2);
    database.run("DELETE FROM versions WHERE id = 3");  // the last 'alone'
    EXPECT_EQ(texts(), 1);
    EXPECT_EQ(bodies(), 1);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM content_fts WHERE content_fts MATCH 'alone'"), 0);

    database.run("INSERT INTO versions (file_id, captured_at, digest, logical_bytes, slot, payload_name, method, source) "
                 "VALUES (1, 4, 'x', 1, 's4', 'a', 'copied', 'crawl')");
    database.run("DELETE FROM files WHERE id = 1");
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM versions WHERE file_id = 1"), 0);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM file_events WHERE file_id = 1"), 0);
    database.run("DELETE FROM files WHERE id = 2");  // cascades to the last 'shared' version, which fires the trigger
    EXPECT_EQ(texts(), 0);
    EXPECT_EQ(bodies(), 0);
}

}  // namespace
}  // namespace vosklin

#include "catalog/Database.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

class DatabaseTest : public ::testing::Test {
protected:
    TempDirectory directory;
    Database database{directory / "test.sqlite"};
};

TEST_F(DatabaseTest, OpensWithWalNormalSyncForeignKeysAndBusyTimeout) {
    std::string mode;
    database.query("PRAGMA journal_mode", {}, [&](const DatabaseRow& row) { mode = row.text(0); });
    EXPECT_EQ(mode, "wal");
    EXPECT_EQ(database.scalar("PRAGMA synchronous"), 1);  // NORMAL
    EXPECT_EQ(database.scalar("PRAGMA foreign_keys"), 1);
    EXPECT_EQ(database.scalar("PRAGMA busy_timeout"), 5000);
}

TEST_F(DatabaseTest, EveryValueKindBindsAndReadsBackUnchanged) {
    database.execute("CREATE TABLE t (a, b, c, d, e)");
    const std::string quoted = "it's a \"quote\"; DROP TABLE t; -- ünïcödé şirket 日本";
    const std::string latin1 = "caf\xe9.txt";  // not UTF-8: a file name from another era
    const std::vector<std::uint8_t> blob = {0, 1, 2, 255, 0};
    database.run("INSERT INTO t VALUES (?, ?, ?, ?, ?)",
                 {quoted, std::numeric_limits<std::int64_t>::min(), 1.0 / 3.0, blob, nullptr});
    database.run("INSERT INTO t (a, b) VALUES (?, ?)", {latin1, std::numeric_limits<std::int64_t>::max()});
    std::vector<std::string> texts;
    std::vector<std::int64_t> integers;
    database.query("SELECT a, b, c, length(d), e FROM t ORDER BY rowid", {}, [&](const DatabaseRow& row) {
        texts.push_back(row.text(0));
        integers.push_back(row.int64(1));
        if (texts.size() == 1) {
            EXPECT_EQ(row.real(2), 1.0 / 3.0);
            EXPECT_EQ(row.int64(3), 5);
            EXPECT_TRUE(row.isNull(4));
            EXPECT_FALSE(row.optionalText(4).has_value());
        }
    });
    EXPECT_EQ(texts, (std::vector<std::string>{quoted, latin1}));
    EXPECT_EQ(integers, (std::vector<std::int64_t>{std::numeric_limits<std::int64_t>::min(),
                                                   std::numeric_limits<std::int64_t>::max()}));
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM t"), 2) << "the injected text must not have run as SQL";
}

TEST_F(DatabaseTest, FailuresCarrySqliteCodeAndMessage) {
    database.execute("CREATE TABLE u (x UNIQUE)");
    database.run("INSERT INTO u VALUES (?)", {std::int64_t(1)});
    struct Case {
        std::function<void()> action;
        int code;  // a constraint's extended code is compared by its primary part
        const char* message;
    };
    const std::vector<Case> cases = {
        {[&] { database.run("SELEKT 1"); }, SQLITE_ERROR, "syntax error"},
        {[&] { database.run("INSERT INTO u VALUES (?)", {std::int64_t(1)}); }, SQLITE_CONSTRAINT, "UNIQUE"},
        {[&] { database.execute("INSERT INTO nowhere VALUES (1)"); }, SQLITE_ERROR, "no such table: nowhere"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        auto error = test::thrown<DatabaseError>(c.action);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind(), DatabaseError::Kind::statement);
        EXPECT_EQ(c.code == SQLITE_CONSTRAINT ? error->code() & 0xFF : error->code(), c.code);
        EXPECT_NE(error->message().find(c.message), std::string::npos) << error->message();
    }
    // The connection is still usable after every failure: nothing was left unfinalized.
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM u"), 1);
}

TEST_F(DatabaseTest, TransactionRollsBackAndRethrowsTheFirstError) {
    database.execute("CREATE TABLE t (x)");
    EXPECT_THROW(database.transaction([&] {
        database.run("INSERT INTO t VALUES (1)");
        database.run("INSERT INTO missing VALUES (1)");
    }),
                 DatabaseError);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM t"), 0);
    struct Stop {};
    EXPECT_THROW(database.transaction([&] {
        database.run("INSERT INTO t VALUES (2)");
        throw Stop{};
    }),
                 Stop);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM t"), 0);
    EXPECT_EQ(database.transaction([&] {
        database.run("INSERT INTO t VALUES (3)");
        return database.lastInsertRowID();
    }),
              1);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM t"), 1);
}

TEST_F(DatabaseTest, ChangesAndLastInsertRowIdAreReadThroughSql) {
    database.execute("CREATE TABLE t (x)");
    database.run("INSERT INTO t VALUES (1), (2), (3)");
    EXPECT_EQ(database.changes(), 3);
    EXPECT_EQ(database.lastInsertRowID(), 3);
    database.run("UPDATE t SET x = 0 WHERE x > ?", {std::int64_t(1)});
    EXPECT_EQ(database.changes(), 2);
}

TEST_F(DatabaseTest, ClosedConnectionRefusesEveryOperation) {
    database.close();
    EXPECT_FALSE(database.isOpen());
    auto error = test::thrown<DatabaseError>([&] { database.scalar("SELECT 1"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), DatabaseError::Kind::closed);
    EXPECT_THROW(database.execute("SELECT 1"), DatabaseError);
}

TEST(DatabaseOpenTest, UnopenablePathGivesOpenErrorWithCode) {
    auto error = test::thrown<DatabaseError>([] { Database("/nonexistent-directory/for/sure/test.sqlite"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), DatabaseError::Kind::open);
    EXPECT_EQ(error->code(), SQLITE_CANTOPEN);
}

}  // namespace
}  // namespace vosklin

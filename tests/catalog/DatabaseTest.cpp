#include "catalog/Database.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/TempDirectory.h"

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
    try {
        database.run("SELEKT 1");
        FAIL() << "bad SQL must throw";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.kind(), DatabaseError::Kind::statement);
        EXPECT_EQ(error.code(), SQLITE_ERROR);
        EXPECT_NE(error.message().find("syntax error"), std::string::npos) << error.message();
    }
    database.execute("CREATE TABLE u (x UNIQUE)");
    database.run("INSERT INTO u VALUES (?)", {std::int64_t(1)});
    try {
        database.run("INSERT INTO u VALUES (?)", {std::int64_t(1)});
        FAIL() << "a constraint violation must throw";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.code() & 0xFF, SQLITE_CONSTRAINT);
        EXPECT_NE(error.message().find("UNIQUE"), std::string::npos) << error.message();
    }
    try {
        database.execute("INSERT INTO nowhere VALUES (1)");
        FAIL() << "execute of bad SQL must throw";
    } catch (const DatabaseError& error) {
        EXPECT_NE(error.message().find("no such table: nowhere"), std::string::npos) << error.message();
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
    try {
        database.scalar("SELECT 1");
        FAIL();
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.kind(), DatabaseError::Kind::closed);
    }
    EXPECT_THROW(database.execute("SELECT 1"), DatabaseError);
}

TEST(DatabaseOpenTest, UnopenablePathGivesOpenErrorWithCode) {
    try {
        Database database("/nonexistent-directory/for/sure/test.sqlite");
        FAIL() << "opening must fail";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.kind(), DatabaseError::Kind::open);
        EXPECT_EQ(error.code(), SQLITE_CANTOPEN);
    }
}

}  // namespace
}  // namespace vosklin

#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "catalog/DatabaseError.h"

namespace vosklin {

// One row of a query result, valid only inside the row callback.
class DatabaseRow {
public:
    explicit DatabaseRow(sqlite3_stmt* statement) : statement_(statement) {}

    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    std::int64_t int64(int column) const { return sqlite3_column_int64(statement_, column); }
    std::int32_t int32(int column) const { return sqlite3_column_int(statement_, column); }
    double real(int column) const { return sqlite3_column_double(statement_, column); }
    // The column's bytes exactly as stored (UTF-8 for text written by us; file
    // names that are not UTF-8 come back byte for byte).
    std::string text(int column) const;

    std::optional<std::int64_t> optionalInt64(int column) const;
    std::optional<double> optionalReal(int column) const;
    std::optional<std::string> optionalText(int column) const;

private:
    sqlite3_stmt* statement_;
};

// The thin wrapper through which every SQL statement passes.
//
// Contract: one connection, opened read-write (created if absent) in SQLite's
// full-mutex mode with WAL journaling, NORMAL sync, foreign keys on and a five
// second busy timeout; or opened read-only, which writes nothing to the disk
// that it can do without, so it reads a disk that is full (see Access). Every failure is thrown as DatabaseError; the wrapper
// never retries. Statements are finalized on every path. Values are always
// bound as parameters, in order, to ?1, ?2, ... There are no nested
// transactions. Not copyable; destroying it closes the connection.
class Database {
public:
    // The five kinds of value a parameter can take, in this order.
    using Value = std::variant<std::string, std::int64_t, double, std::vector<std::uint8_t>, std::nullptr_t>;
    using RowHandler = std::function<void(const DatabaseRow&)>;

    enum class Access {
        readWrite,
        // An existing database, for reading only. Where the WAL index cannot be
        // set up in its -shm file (the disk is full), SQLite is asked to keep it
        // in memory instead; the -shm, made empty when it is missing (a name,
        // no data), is then only read. Opening reads the schema version once, so
        // a catalog that cannot be read fails here, as DatabaseError.
        readOnly,
    };

    explicit Database(const std::string& path, Access access = Access::readWrite);
    ~Database();

    // What a database file looks like from its size and 100-byte header, read
    // before SQLite opens it (SQLite takes an empty file for a new database).
    // `truncated` is only said when no write-ahead log could supply the pages.
    enum class FileState { absent, empty, notADatabase, truncated, plausible };
    static FileState inspectFile(const std::string& path);
    // "the file is empty", ...: why a state other than plausible cannot be used.
    static std::string describe(FileState state);
    // Whether a result code says the file is not (or no longer) a sound database.
    static bool isDamageCode(std::int32_t code);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Runs one or more ';'-separated statements with no parameters and no results.
    void execute(const std::string& sql);
    // Prepares, binds, steps to the end and finalizes a statement, calling
    // `onRow` for every row it yields.
    void query(const std::string& sql, const std::vector<Value>& values, const RowHandler& onRow);
    // Prepares, binds, steps and finalizes a statement whose rows are not wanted.
    void run(const std::string& sql, const std::vector<Value>& values = {});
    // Column 0 of the first row as a 64-bit integer; `fallback` when there is no row or it is NULL.
    std::int64_t scalar(const std::string& sql, const std::vector<Value>& values = {}, std::int64_t fallback = 0);
    std::optional<double> scalarReal(const std::string& sql, const std::vector<Value>& values = {});

    // Makes every transaction committed so far durable: fsync of the
    // write-ahead log (and of the database, which a checkpoint may have
    // written). Commits are not synced one by one (synchronous = NORMAL), so
    // whatever must not come back after a power cut (a row whose payload is
    // about to be removed) is synced through here first. Throws DatabaseError.
    void syncToDisk();

    // "SELECT changes()" and "SELECT last_insert_rowid()".
    std::int64_t changes();
    std::int64_t lastInsertRowID();
    // "PRAGMA user_version"; no row reads as 0.
    std::int32_t userVersion();

    // Runs `body` between "BEGIN IMMEDIATE" and "COMMIT". On any exception it
    // executes "ROLLBACK" (ignoring a failure of the rollback) and rethrows the
    // first error. A failing BEGIN is thrown as it is.
    template <class Body>
    auto transaction(Body&& body) -> decltype(body()) {
        execute("BEGIN IMMEDIATE");
        try {
            if constexpr (std::is_void_v<decltype(body())>) {
                body();
                execute("COMMIT");
            } else {
                auto result = body();
                execute("COMMIT");
                return result;
            }
        } catch (...) {
            rollbackQuietly();
            throw;
        }
    }

    void rollbackQuietly() noexcept;
    void close() noexcept;
    bool isOpen() const { return handle_ != nullptr; }

private:
    void openReadOnly(const std::string& path);
    sqlite3* connection() const;
    sqlite3_stmt* prepare(const std::string& sql, const std::vector<Value>& values);
    [[noreturn]] void throwStatementError(int code) const;

    std::string path_;
    sqlite3* handle_ = nullptr;
};

// Binds an optional value: present as itself, absent as NULL.
template <class T>
Database::Value optionalValue(const std::optional<T>& value) {
    if (value) return Database::Value(*value);
    return Database::Value(nullptr);
}

}  // namespace vosklin

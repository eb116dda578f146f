#include "catalog/Database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/DiskFull.h"
#include "platform/UniqueFd.h"

namespace vosklin {

DatabaseError DatabaseError::open(std::int32_t code) {
    return DatabaseError(Kind::open, code, sqlite3_errstr(code),
                         "Could not open the catalog database (SQLite " + std::to_string(code) + ": " +
                             sqlite3_errstr(code) + ")");
}

DatabaseError DatabaseError::statement(std::int32_t code, std::string message, int systemError,
                                       const std::string& databasePath) {
    std::string description = "Catalog statement failed (SQLite " + std::to_string(code) + "): " + message;
    DatabaseError error(Kind::statement, code, message, description);
    error.systemError_ = systemError;
    if (error.isDiskFull() && !databasePath.empty())
        return DatabaseError(Kind::statement, code, message, diskFullMessage(databasePath), systemError);
    return error;
}

bool DatabaseError::isDiskFull() const {
    return (code_ & 0xff) == SQLITE_FULL ||
           ((code_ & 0xff) == SQLITE_IOERR && (systemError_ == ENOSPC || systemError_ == EDQUOT));
}

DatabaseError DatabaseError::closed() {
    return DatabaseError(Kind::closed, 0, "closed", "The catalog database is closed");
}

std::string DatabaseRow::text(int column) const {
    auto bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (!bytes) return {};
    return std::string(bytes, std::size_t(sqlite3_column_bytes(statement_, column)));
}

std::optional<std::int64_t> DatabaseRow::optionalInt64(int column) const {
    if (isNull(column)) return std::nullopt;
    return int64(column);
}

std::optional<double> DatabaseRow::optionalReal(int column) const {
    if (isNull(column)) return std::nullopt;
    return real(column);
}

std::optional<std::string> DatabaseRow::optionalText(int column) const {
    if (isNull(column)) return std::nullopt;
    return text(column);
}

namespace {

// A connection, or DatabaseError::open (with nothing left open) when SQLite refuses.
sqlite3* openHandle(const std::string& name, int flags) {
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(name.c_str(), &handle, flags, nullptr);
    if (code != SQLITE_OK) {
        if (handle) sqlite3_close_v2(handle);
        throw DatabaseError::open(code);
    }
    return handle;
}

}  // namespace

Database::Database(const std::string& path, Access access) : path_(path) {
    if (access == Access::readOnly) {
        openReadOnly(path);
        return;
    }
    handle_ = openHandle(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX);
    try {
        execute("PRAGMA journal_mode = WAL");
        execute("PRAGMA synchronous = NORMAL");
        execute("PRAGMA foreign_keys = ON");
        execute("PRAGMA busy_timeout = 5000");
    } catch (...) {
        close();
        throw;
    }
}

Database::~Database() { close(); }

namespace {

// A file name as an SQLite URI path: every byte but the plain ones percent-encoded.
std::string uriPath(const std::string& path) {
    static const char hex[] = "0123456789ABCDEF";
    std::string uri;
    for (unsigned char c : path) {
        if (std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
            uri += char(c);
        } else {
            uri += '%';
            uri += hex[c >> 4];
            uri += hex[c & 15];
        }
    }
    return uri;
}

bool isShmFailure(int code) {
    // What a read of a WAL database says when its index cannot be set up in the -shm
    // file: no space to size it, or no file to open read-only.
    return (code & 0xff) == SQLITE_IOERR || (code & 0xff) == SQLITE_FULL || (code & 0xff) == SQLITE_CANTOPEN ||
           (code & 0xff) == SQLITE_READONLY;
}

}  // namespace

void Database::openReadOnly(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) throw DatabaseError::open(SQLITE_CANTOPEN);
    // First as any reader would; on a full disk the -shm cannot be sized, and then the
    // index goes to memory and the -shm is only read (SQLite's readonly_shm).
    for (const bool memoryIndex : {false, true}) {
        if (memoryIndex) {
            // readonly_shm needs a -shm to open; an empty one is what SQLite itself starts from.
            const int made = ::open((path + "-shm").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW,
                                    info.st_mode & 0666);
            if (made >= 0) ::close(made);
        }
        const std::string uri = "file:" + uriPath(path) + (memoryIndex ? "?mode=ro&readonly_shm=1" : "?mode=ro");
        handle_ = openHandle(uri, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_FULLMUTEX);
        try {
            execute("PRAGMA busy_timeout = 5000");
            userVersion();  // the first read sets the WAL index up, or fails to
            return;
        } catch (const DatabaseError& error) {
            close();
            if (memoryIndex || !isShmFailure(error.code())) throw;
        }
    }
}

namespace {


std::uint32_t bigEndian(const unsigned char* bytes, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = (value << 8) | bytes[i];
    return value;
}

std::optional<std::int64_t> fileSize(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return std::int64_t(info.st_size);
}

}  // namespace

Database::FileState Database::inspectFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    // A file that cannot be read (permissions, say) is not judged here: SQLite's own error says why.
    if (!fd) return errno == ENOENT ? FileState::absent : FileState::plausible;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) return FileState::plausible;
    const auto size = std::int64_t(info.st_size);
    if (size == 0) return FileState::empty;
    std::array<unsigned char, 100> header{};
    if (size < std::int64_t(header.size()) || ::pread(fd.get(), header.data(), header.size(), 0) != ssize_t(header.size()))
        return FileState::notADatabase;
    if (std::memcmp(header.data(), "SQLite format 3", 16) != 0) return FileState::notADatabase;
    std::int64_t pageSize = bigEndian(&header[16], 2);
    if (pageSize == 1) pageSize = 65536;
    if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0) return FileState::notADatabase;
    // A log with frames in it may hold pages the file lacks; SQLite itself judges that case.
    if (fileSize(path + "-wal").value_or(0) > 0) return FileState::plausible;
    if (size % pageSize != 0) return FileState::truncated;
    // The page count in the header counts only when the change counter vouches for it.
    const std::uint32_t pages = bigEndian(&header[28], 4);
    const bool countValid = pages != 0 && bigEndian(&header[24], 4) == bigEndian(&header[92], 4);
    if (countValid && size < std::int64_t(pages) * pageSize) return FileState::truncated;
    return FileState::plausible;
}

std::string Database::describe(FileState state) {
    switch (state) {
        case FileState::absent: return "the file is missing";
        case FileState::empty: return "the file is empty";
        case FileState::notADatabase: return "the file is not a database";
        case FileState::truncated: return "the file is cut short";
        case FileState::plausible: return "the file looks sound";
    }
    return "unknown";
}

bool Database::isDamageCode(std::int32_t code) {
    const int primary = code & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

void Database::close() noexcept {
    if (handle_) {
        sqlite3_close_v2(handle_);
        handle_ = nullptr;
    }
}

sqlite3* Database::connection() const {
    if (!handle_) throw DatabaseError::closed();
    return handle_;
}

void Database::throwStatementError(int code) const {
    const char* message = handle_ ? sqlite3_errmsg(handle_) : nullptr;
    throw DatabaseError::statement(code, message ? message : "unknown", handle_ ? sqlite3_system_errno(handle_) : 0,
                                   path_);
}

void Database::execute(const std::string& sql) {
    sqlite3* db = connection();
    char* error = nullptr;
    int code = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
    if (code != SQLITE_OK) {
        std::string message = error ? error : (sqlite3_errmsg(db) ? sqlite3_errmsg(db) : "unknown");
        sqlite3_free(error);
        throw DatabaseError::statement(code, message, sqlite3_system_errno(db), path_);
    }
    sqlite3_free(error);
}

sqlite3_stmt* Database::prepare(const std::string& sql, const std::vector<Value>& values) {
    sqlite3* db = connection();
    sqlite3_stmt* statement = nullptr;
    int code = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
    if (code != SQLITE_OK) {
        sqlite3_finalize(statement);
        throwStatementError(code);
    }
    for (std::size_t i = 0; i < values.size(); ++i) {
        int index = int(i) + 1;
        code = std::visit(
            [&](const auto& value) -> int {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, std::string>) {
                    return sqlite3_bind_text(statement, index, value.c_str(), -1, SQLITE_TRANSIENT);
                } else if constexpr (std::is_same_v<T, std::int64_t>) {
                    return sqlite3_bind_int64(statement, index, value);
                } else if constexpr (std::is_same_v<T, double>) {
                    return sqlite3_bind_double(statement, index, value);
                } else if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
                    return sqlite3_bind_blob(statement, index, value.data(), int(value.size()), SQLITE_TRANSIENT);
                } else {
                    return sqlite3_bind_null(statement, index);
                }
            },
            values[i]);
        if (code != SQLITE_OK) {
            std::string message = sqlite3_errmsg(db) ? sqlite3_errmsg(db) : "unknown";
            sqlite3_finalize(statement);
            throw DatabaseError::statement(code, message);
        }
    }
    return statement;
}

void Database::query(const std::string& sql, const std::vector<Value>& values, const RowHandler& onRow) {
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepare(sql, values), sqlite3_finalize);
    int code;
    while ((code = sqlite3_step(statement.get())) == SQLITE_ROW) {
        if (onRow) onRow(DatabaseRow(statement.get()));
    }
    if (code != SQLITE_DONE) throwStatementError(code);
}

void Database::run(const std::string& sql, const std::vector<Value>& values) { query(sql, values, nullptr); }

std::int64_t Database::scalar(const std::string& sql, const std::vector<Value>& values, std::int64_t fallback) {
    std::optional<std::int64_t> result;
    query(sql, values, [&](const DatabaseRow& row) {
        if (!result) result = row.isNull(0) ? fallback : row.int64(0);
    });
    return result.value_or(fallback);
}

std::optional<double> Database::scalarReal(const std::string& sql, const std::vector<Value>& values) {
    std::optional<double> result;
    bool seen = false;
    query(sql, values, [&](const DatabaseRow& row) {
        if (!seen) result = row.optionalReal(0);
        seen = true;
    });
    return result;
}

void Database::syncToDisk() {
    for (const std::string& path : {path_ + "-wal", path_}) {
        // fsync works on the file, whatever descriptor asks: SQLite's own need not be reached.
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            if (errno == ENOENT) continue;  // no log yet, or already checkpointed away
            throw DatabaseError::statement(SQLITE_IOERR, "cannot open to sync", errno, path);
        }
        const int synced = ::fsync(fd);
        const int error = errno;
        ::close(fd);
        if (synced != 0) throw DatabaseError::statement(SQLITE_IOERR_FSYNC, "fsync failed", error, path);
    }
}

std::int64_t Database::changes() { return scalar("SELECT changes()"); }

std::int64_t Database::lastInsertRowID() { return scalar("SELECT last_insert_rowid()"); }

std::int32_t Database::userVersion() { return std::int32_t(scalar("PRAGMA user_version")); }

void Database::rollbackQuietly() noexcept {
    try {
        execute("ROLLBACK");
    } catch (...) {
        // A failed rollback is discarded; the caller rethrows the error that caused it.
    }
}

}  // namespace vosklin

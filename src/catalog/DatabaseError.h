#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vosklin {

// A failure of the SQLite layer, carrying SQLite's own result code and text.
class DatabaseError : public std::runtime_error {
public:
    enum class Kind {
        open,       // sqlite3_open_v2 failed
        statement,  // preparing, binding, stepping or executing failed
        closed,     // the connection was already closed
    };

    static DatabaseError open(std::int32_t code);
    // `systemError`: errno of the system call that failed under SQLite, when one did. A
    // failure for lack of space says so, naming the disk that holds `databasePath`.
    static DatabaseError statement(std::int32_t code, std::string message, int systemError = 0,
                                   const std::string& databasePath = "");
    static DatabaseError closed();

    Kind kind() const { return kind_; }
    std::int32_t code() const { return code_; }
    const std::string& message() const { return message_; }
    int systemError() const { return systemError_; }
    // SQLITE_FULL, or a failed write whose errno says the disk (or the quota) is full.
    bool isDiskFull() const;

private:
    DatabaseError(Kind kind, std::int32_t code, std::string message, const std::string& description,
                  int systemError = 0)
        : std::runtime_error(description),
          kind_(kind),
          code_(code),
          message_(std::move(message)),
          systemError_(systemError) {}

    Kind kind_;
    std::int32_t code_;
    std::string message_;
    int systemError_ = 0;
};

}  // namespace vosklin

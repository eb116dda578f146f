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
    static DatabaseError statement(std::int32_t code, std::string message);
    static DatabaseError closed();

    Kind kind() const { return kind_; }
    std::int32_t code() const { return code_; }
    const std::string& message() const { return message_; }

private:
    DatabaseError(Kind kind, std::int32_t code, std::string message, const std::string& description)
        : std::runtime_error(description), kind_(kind), code_(code), message_(std::move(message)) {}

    Kind kind_;
    std::int32_t code_;
    std::string message_;
};

}  // namespace vosklin

#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

namespace vosklin {

class CloneError : public std::runtime_error {
public:
    enum class Kind {
        failed,             // the copy failed with errno `code`
        destinationExists,  // something is already at the destination (EEXIST)
        sourceMissing,      // nothing that can be copied is at the source path
        cancelled,          // its caller asked it to stop (ECANCELED)
    };

    static CloneError failed(int code, const std::string& path) {
        return CloneError(Kind::failed, code, "Could not copy " + path + ": " + std::strerror(code));
    }
    static CloneError destinationExists(const std::string& path) {
        return CloneError(Kind::destinationExists, EEXIST, "Something is already at " + path);
    }
    static CloneError sourceMissing(const std::string& path) {
        return CloneError(Kind::sourceMissing, ENOENT, "Nothing exists at " + path);
    }

    static CloneError cancelled(const std::string& path) {
        return CloneError(Kind::cancelled, ECANCELED, "The copy of " + path + " was stopped");
    }

    Kind kind() const { return kind_; }
    int code() const { return code_; }

private:
    CloneError(Kind kind, int code, const std::string& what) : std::runtime_error(what), kind_(kind), code_(code) {}

    Kind kind_;
    int code_;
};

}  // namespace vosklin

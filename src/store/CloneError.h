#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/DiskFull.h"

namespace vosklin {

class CloneError : public std::runtime_error {
public:
    enum class Kind {
        failed,             // the copy failed with errno `code`
        destinationExists,  // something is already at the destination (EEXIST)
        sourceMissing,      // nothing that can be copied is at the source path
        cancelled,          // its caller asked it to stop (ECANCELED)
    };

    // Reading `source` failed.
    static CloneError failed(int code, const std::string& source) {
        return CloneError(Kind::failed, code, "Could not copy " + source + ": " + std::strerror(code), source);
    }
    // Making the copy at `destination` (or anything in it) failed.
    static CloneError cannotWrite(int code, const std::string& destination) {
        if (isDiskFullError(code)) return CloneError(Kind::failed, code, diskFullMessage(destination), destination);
        return CloneError(Kind::failed, code, "Could not write " + destination + ": " + std::strerror(code), destination);
    }
    static CloneError destinationExists(const std::string& path) {
        return CloneError(Kind::destinationExists, EEXIST, "Something is already at " + path, path);
    }
    static CloneError sourceMissing(const std::string& path) {
        return CloneError(Kind::sourceMissing, ENOENT, "Nothing exists at " + path, path);
    }

    static CloneError cancelled(const std::string& path) {
        return CloneError(Kind::cancelled, ECANCELED, "The copy of " + path + " was stopped", path);
    }

    Kind kind() const { return kind_; }
    int code() const { return code_; }
    const std::string& path() const { return path_; }  // the one the message names

private:
    CloneError(Kind kind, int code, const std::string& what, std::string path)
        : std::runtime_error(what), kind_(kind), code_(code), path_(std::move(path)) {}

    Kind kind_;
    int code_;
    std::string path_;
};

}  // namespace vosklin

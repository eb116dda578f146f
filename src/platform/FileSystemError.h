#pragma once

#include <cstring>
#include <string>
#include <system_error>

#include "platform/DisplayName.h"

namespace vosklin {

// A failed system call on a path: which call, which path, and the errno value.
class FileSystemError : public std::system_error {
public:
    FileSystemError(int errorNumber, std::string operation, std::string path)
        : std::system_error(errorNumber, std::generic_category(), operation + " " + DisplayName::of(path)),
          errorNumber_(errorNumber),
          operation_(std::move(operation)),
          path_(std::move(path)) {}

    int errorNumber() const { return errorNumber_; }
    const std::string& operation() const { return operation_; }
    const std::string& path() const { return path_; }

private:
    int errorNumber_;
    std::string operation_;
    std::string path_;
};

}  // namespace vosklin

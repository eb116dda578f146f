#pragma once

#include <stdexcept>
#include <string>

#include "restore/RestorePathPolicy.h"

namespace vosklin {

class RestoreError : public std::runtime_error {
public:
    enum class Kind { blockedBySafetyPolicy, failed, versionNotFound, fileNotFound, payloadMissing, noPrevious };

    RestoreError(Kind kind, const std::string& message, int code = 0,
                 RestorePathPolicy::Violation violation = RestorePathPolicy::Violation::traversal)
        : std::runtime_error(message), kind_(kind), code_(code), violation_(violation) {}

    Kind kind() const { return kind_; }
    int code() const { return code_; }  // errno, for `failed`
    RestorePathPolicy::Violation violation() const { return violation_; }
    // The key of the user-facing text for this error.
    std::string textKey() const;

private:
    Kind kind_;
    int code_;
    RestorePathPolicy::Violation violation_;
};

}  // namespace vosklin

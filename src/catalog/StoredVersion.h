#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "catalog/CaptureSource.h"
#include "store/CloneMethod.h"

namespace vosklin {

// One row of `versions`: one payload in the store.
struct StoredVersion {
    std::int64_t id = 0;
    std::int64_t fileID = 0;
    double capturedAt = 0;
    std::string digest;
    std::int64_t logicalBytes = 0;
    std::string slot;
    std::string payloadName;
    CloneMethod method = CloneMethod::unknown;
    bool isVerified = true;
    bool isStarred = false;
    CaptureSource source = CaptureSource::watcher;
    std::optional<std::string> batchID;
    bool isReplacement = false;

    bool operator==(const StoredVersion&) const = default;
};

}  // namespace vosklin

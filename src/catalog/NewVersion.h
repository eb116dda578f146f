#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "catalog/CaptureSource.h"
#include "store/CloneMethod.h"

namespace vosklin {

// What a capture hands the catalog to record. A new version is never starred.
struct NewVersion {
    std::int64_t fileID = 0;
    double capturedAt = 0;
    std::string digest;
    std::int64_t logicalBytes = 0;
    std::string slot;
    std::string payloadName;
    CloneMethod method = CloneMethod::unknown;
    bool isVerified = true;
    CaptureSource source = CaptureSource::watcher;
    std::optional<std::string> batchID;
    bool isReplacement = false;
};

}  // namespace vosklin

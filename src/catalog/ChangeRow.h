#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "catalog/CaptureSource.h"

namespace vosklin {

// One line of a folder's change list: a version, with the size of the one before it.
struct ChangeRow {
    std::int64_t fileID = 0;
    std::string relativePath;  // the path the version was taken under
    double capturedAt = 0;
    std::int64_t logicalBytes = 0;
    std::optional<std::int64_t> previousBytes;
    CaptureSource source = CaptureSource::watcher;
    std::optional<std::string> batchID;
    bool isReplacement = false;

    bool operator==(const ChangeRow&) const = default;
};

}  // namespace vosklin

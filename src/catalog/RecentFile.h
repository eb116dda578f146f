#pragma once

#include <cstdint>

#include "catalog/TrackedFile.h"

namespace vosklin {

// A file with the count and newest instant of its versions.
struct RecentFile {
    TrackedFile file;
    std::int64_t versionCount = 0;
    double lastCapturedAt = 0;
    bool wasReplaced = false;  // some version has replaced = 1
};

}  // namespace vosklin

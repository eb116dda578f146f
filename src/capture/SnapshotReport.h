#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vosklin {

// What one snapshot of a folder did.
struct SnapshotReport {
    std::string folderID;
    std::int64_t captured = 0;
    std::int64_t tombstoned = 0;
    double at = 0;
    std::string batchID;
    std::int64_t failed = 0;
    bool cancelled = false;
    std::int64_t unreadableCount = 0;
    std::vector<std::string> unreadablePaths;  // the first few, relative to the folder
};

}  // namespace vosklin

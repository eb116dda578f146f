#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// One row of `files`: a path that ever had history in a watched folder.
struct TrackedFile {
    std::int64_t id = 0;
    std::string folderID;
    std::string relativePath;  // bytes as on disk; see PathJson.h for how non-UTF-8 names travel
    std::optional<std::uint64_t> inode;
    bool isPackage = false;
    std::optional<std::string> fileExtension;
    std::optional<std::string> lastDigest;
    std::optional<double> deletedAt;

    bool operator==(const TrackedFile&) const = default;
};

}  // namespace vosklin

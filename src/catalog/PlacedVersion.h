#pragma once

#include <optional>
#include <string>

#include "catalog/StoredVersion.h"

namespace vosklin {

// A version with where it was taken: its folder and the path it had at capture
// (absent for rows written before the catalog kept them).
struct PlacedVersion {
    StoredVersion version;
    std::optional<std::string> folderID;
    std::optional<std::string> relativePath;
};

}  // namespace vosklin

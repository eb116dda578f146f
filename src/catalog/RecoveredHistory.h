#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "catalog/NewVersion.h"

namespace vosklin {

// History read back from the store alone, to be written into a new catalog.
// File ids are the ones the slots are filed under, so every slot stays where a
// row expects it.
struct RecoveredHistory {
    struct File {
        std::int64_t id = 0;
        std::string folderID;
        std::string relativePath;
        std::optional<std::uint64_t> inode;
        bool isPackage = false;
        std::optional<std::string> fileExtension;
        std::optional<double> deletedAt;  // set when the path is gone now: a "deleted" event is written with it
    };
    // A version as a capture records it (never starred, no batch, no replacement
    // flag: the sidecar does not say), and the path it was taken under.
    struct Version : NewVersion {
        std::string relativePath;
    };

    std::vector<File> files;
    std::vector<Version> versions;  // inserted in this order, so ids follow it
};

}  // namespace vosklin

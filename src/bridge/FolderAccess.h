#pragma once

#include <string>

#include "bridge/WatchedFolder.h"
#include "platform/FileSystem.h"

namespace vosklin {

// Whether a watched folder can be recorded right now: its root still exists,
// is a readable directory, and is the same directory that was added (same
// device and inode). A folder that fails is unreachable: not recorded, shown
// in status, checked again later.
class FolderAccess {
public:
    struct Result {
        bool reachable = false;
        std::string reason;  // for people, empty when reachable
    };

    explicit FolderAccess(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

    Result check(const WatchedFolder& folder);

private:
    FileSystem& fileSystem_;
};

}  // namespace vosklin

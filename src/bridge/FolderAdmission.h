#pragma once

#include <string>
#include <vector>

#include "bridge/WatchedFolder.h"
#include "platform/FileSystem.h"
#include "store/StoreLocator.h"

namespace vosklin {

// Decides whether a path may become a watched folder, before anything is written.
//
// Refused, each with its own FolderListError and a message for the user: a
// path that is not an existing readable directory; a reserved root ("/", the
// home folder itself, /proc, /sys, /dev, /run and ~/.cache, with what is
// inside the last five); Vosklin's own data folder, anything inside it or
// anything containing it; a folder inside or around one already watched; a
// folder on another file system than the store (versions are clones, which
// cannot cross file systems).
class FolderAdmission {
public:
    FolderAdmission(FileSystem& fileSystem, const StoreLocator& locator, std::string homeDirectory);

    // The new folder record (fresh id, canonical path, root identity) for `path`.
    WatchedFolder admit(const std::string& path, CaptureMode mode, const std::vector<WatchedFolder>& watched);

private:
    FileSystem& fileSystem_;
    const StoreLocator& locator_;
    std::string homeDirectory_;
};

}  // namespace vosklin

#include "bridge/FolderAccess.h"

#include <unistd.h>

#include "platform/FileSystemError.h"

namespace vosklin {

FolderAccess::Result FolderAccess::check(const WatchedFolder& folder) {
    std::optional<FileStatus> status;
    try {
        status = fileSystem_.linkStatus(folder.path);
    } catch (const FileSystemError& error) {
        return {false, std::string("cannot be examined: ") + error.what()};
    }
    if (!status) return {false, "no longer exists"};
    if (!status->isDirectory()) return {false, "is no longer a folder"};
    if (::access(folder.path.c_str(), R_OK | X_OK) != 0) return {false, "cannot be read"};
    if ((folder.device || folder.inode) && (status->device != folder.device || status->inode != folder.inode))
        return {false, "was replaced by a different folder at the same path"};
    return {true, ""};
}

}  // namespace vosklin

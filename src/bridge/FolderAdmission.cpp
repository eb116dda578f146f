#include "bridge/FolderAdmission.h"

#include <unistd.h>

#include "bridge/FolderListError.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/Uuid.h"
#include "store/StoreLocatorError.h"

namespace vosklin {
namespace {

bool isSameOrInside(const std::string& path, const std::string& root) {
    std::string relative;
    return path == root || relativeTo(root, path, relative);
}

std::string shown(const std::string& path) { return DisplayName::of(path); }

}  // namespace

FolderAdmission::FolderAdmission(FileSystem& fileSystem, const StoreLocator& locator, std::string homeDirectory)
    : fileSystem_(fileSystem), locator_(locator), homeDirectory_(std::move(homeDirectory)) {}

WatchedFolder FolderAdmission::admit(const std::string& path, CaptureMode mode,
                                     const std::vector<WatchedFolder>& watched) {
    using Kind = FolderListError::Kind;
    const std::string asked = absolutePath(path);
    std::string root;
    try {
        root = fileSystem_.resolvedPath(asked);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() == EACCES) throw FolderListError(Kind::unreadable, shown(asked) + " cannot be read");
        throw FolderListError(Kind::notAFolder, shown(asked) + " does not exist");
    }
    auto status = fileSystem_.status(root);
    if (!status || !status->isDirectory()) throw FolderListError(Kind::notAFolder, shown(asked) + " is not a folder");
    if (::access(root.c_str(), R_OK | X_OK) != 0)
        throw FolderListError(Kind::unreadable, shown(asked) + " cannot be read (permission denied)");

    // $HOME may go through a link (an automounted /home) or end in a slash: compare real paths.
    std::string home;
    if (!homeDirectory_.empty()) {
        try {
            home = fileSystem_.resolvedPath(absolutePath(homeDirectory_));
        } catch (const FileSystemError&) {
            home = absolutePath(homeDirectory_);
        }
    }
    if (root == "/" || (!home.empty() && root == home)) {
        throw FolderListError(Kind::reservedRoot, shown(root) +
                                                      " cannot be watched as a whole; choose the folders inside "
                                                      "it that hold your work");
    }
    std::vector<std::string> systemRoots = {"/proc", "/sys", "/dev", "/run"};
    if (!home.empty()) systemRoots.push_back(joinPath(home, ".cache"));
    for (const auto& reserved : systemRoots)
        if (isSameOrInside(root, reserved))
            throw FolderListError(Kind::reservedRoot, shown(root) + " is a system location and cannot be watched");

    std::string container = locator_.containerRoot();
    try {
        container = fileSystem_.resolvedPath(container);
    } catch (const FileSystemError&) {
        // Not made yet: its recorded path is what matters.
    }
    if (isSameOrInside(root, container) || isSameOrInside(container, root)) {
        throw FolderListError(Kind::overlapsStore, shown(root) + " overlaps Vosklin's own data folder " +
                                                       shown(container) + "; Vosklin cannot keep history of itself");
    }
    for (const auto& folder : watched) {
        if (root == folder.path)
            throw FolderListError(Kind::overlapsWatched, shown(root) + " is already watched");
        if (isSameOrInside(root, folder.path))
            throw FolderListError(Kind::overlapsWatched, shown(root) + " is inside " + shown(folder.path) +
                                                             ", which is already watched");
        if (isSameOrInside(folder.path, root))
            throw FolderListError(Kind::overlapsWatched, shown(root) + " contains " + shown(folder.path) +
                                                             ", which is already watched; remove that one first");
    }
    try {
        locator_.storeRootFor(root);
    } catch (const StoreLocatorError& error) {
        if (error.kind() == StoreLocatorError::Kind::unsupportedVolume)
            throw FolderListError(Kind::unsupportedVolume,
                                  shown(root) + " is on another file system (device " + error.identifier() +
                                      ") than Vosklin's store in " + shown(container) +
                                      "; use --home to keep a store on that file system");
        throw FolderListError(Kind::unsupportedVolume, error.what());
    }

    WatchedFolder folder;
    folder.id = makeUuid();
    folder.path = root;
    folder.mode = mode;
    folder.device = status->device;
    folder.inode = status->inode;
    return folder;
}

}  // namespace vosklin

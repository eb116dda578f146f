#include "capture/FolderWalker.h"

#include <algorithm>
#include <cerrno>

#include "capture/TransientNames.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

FolderWalker::FolderWalker(FileSystem& fileSystem, ExcludeRules excludes, PackageKinds packages)
    : fileSystem_(fileSystem), excludes_(std::move(excludes)), packages_(std::move(packages)) {}

namespace {

bool vanished(const FileSystemError& error) {
    return error.errorNumber() == ENOENT || error.errorNumber() == ENOTDIR;
}

}  // namespace

FolderWalk FolderWalker::walk(const std::string& root, const std::function<bool()>& shouldStop) {
    FolderWalk found;
    auto status = fileSystem_.status(root);
    if (!status || !status->isDirectory()) return found;
    walkDirectory(root, "", status->device, found, shouldStop);
    std::sort(found.units.begin(), found.units.end(),
              [](const FoundUnit& a, const FoundUnit& b) { return a.relativePath < b.relativePath; });
    std::sort(found.unreadable.begin(), found.unreadable.end());
    return found;
}

void FolderWalker::walkDirectory(const std::string& directory, const std::string& relative, dev_t device,
                                 FolderWalk& found, const std::function<bool()>& shouldStop) {
    if (shouldStop && shouldStop()) return;
    auto& units = found.units;
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem_.listDirectory(directory);
    } catch (const FileSystemError& error) {
        // Vanished: nothing of it to capture. Unreadable: said, so that nobody takes it for empty.
        if (!vanished(error)) found.unreadable.push_back(relative.empty() ? "." : relative);
        return;
    }
    for (const auto& entry : entries) {
        if (excludes_.excludesName(entry.name)) continue;
        const std::string path = joinPath(directory, entry.name);
        const std::string childRelative = relative.empty() ? entry.name : relative + "/" + entry.name;
        std::optional<FileStatus> status;
        try {
            status = fileSystem_.linkStatus(path);
        } catch (const FileSystemError& error) {
            if (!vanished(error)) found.unreadable.push_back(childRelative);
            continue;
        }
        if (!status) continue;
        if (status->isDirectory()) {
            if (status->device != device) continue;  // another file system mounted inside
            if (packages_.isPackageName(entry.name)) {
                if (TransientNames::isTransient(entry.name)) continue;
                FoundUnit unit{childRelative, path, true, status->inode, 0, status->modifiedAt()};
                if (!measurePackage(path, unit)) found.unreadable.push_back(childRelative);
                units.push_back(std::move(unit));
            } else {
                walkDirectory(path, childRelative, device, found, shouldStop);
            }
        } else if (status->isRegular()) {
            if (TransientNames::isTransient(entry.name)) continue;
            units.push_back({childRelative, path, false, status->inode, status->size, status->modifiedAt()});
        }
        // Links, sockets, pipes and devices are not units.
    }
}

bool FolderWalker::measurePackage(const std::string& directory, FoundUnit& unit) {
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem_.listDirectory(directory);
    } catch (const FileSystemError& error) {
        return vanished(error);
    }
    bool whole = true;
    for (const auto& entry : entries) {
        const std::string path = joinPath(directory, entry.name);
        std::optional<FileStatus> status;
        try {
            status = fileSystem_.linkStatus(path);
        } catch (const FileSystemError& error) {
            whole = whole && vanished(error);
            continue;
        }
        if (!status) continue;
        unit.modifiedAt = std::max(unit.modifiedAt, status->modifiedAt());
        if (status->isDirectory()) whole = measurePackage(path, unit) && whole;
        else if (status->isRegular()) unit.size += status->size;
    }
    return whole;
}

}  // namespace vosklin

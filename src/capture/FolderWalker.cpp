#include "capture/FolderWalker.h"

#include <algorithm>

#include "capture/TransientNames.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

FolderWalker::FolderWalker(FileSystem& fileSystem, ExcludeRules excludes, PackageKinds packages)
    : fileSystem_(fileSystem), excludes_(std::move(excludes)), packages_(std::move(packages)) {}

std::vector<FoundUnit> FolderWalker::walk(const std::string& root, const std::function<bool()>& shouldStop) {
    std::vector<FoundUnit> units;
    auto status = fileSystem_.status(root);
    if (!status || !status->isDirectory()) return units;
    walkDirectory(root, "", status->device, units, shouldStop);
    std::sort(units.begin(), units.end(),
              [](const FoundUnit& a, const FoundUnit& b) { return a.relativePath < b.relativePath; });
    return units;
}

void FolderWalker::walkDirectory(const std::string& directory, const std::string& relative, dev_t device,
                                 std::vector<FoundUnit>& units, const std::function<bool()>& shouldStop) {
    if (shouldStop && shouldStop()) return;
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem_.listDirectory(directory);
    } catch (const FileSystemError&) {
        return;  // vanished or unreadable: nothing of it can be captured now
    }
    for (const auto& entry : entries) {
        if (excludes_.excludesName(entry.name)) continue;
        const std::string path = joinPath(directory, entry.name);
        const std::string childRelative = relative.empty() ? entry.name : relative + "/" + entry.name;
        std::optional<FileStatus> status;
        try {
            status = fileSystem_.linkStatus(path);
        } catch (const FileSystemError&) {
            continue;
        }
        if (!status) continue;
        if (status->isDirectory()) {
            if (status->device != device) continue;  // another file system mounted inside
            if (packages_.isPackageName(entry.name)) {
                if (TransientNames::isTransient(entry.name)) continue;
                FoundUnit unit{childRelative, path, true, status->inode, 0, status->modifiedAt()};
                measurePackage(path, unit);
                units.push_back(std::move(unit));
            } else {
                walkDirectory(path, childRelative, device, units, shouldStop);
            }
        } else if (status->isRegular()) {
            if (TransientNames::isTransient(entry.name)) continue;
            units.push_back({childRelative, path, false, status->inode, status->size, status->modifiedAt()});
        }
        // Links, sockets, pipes and devices are not units.
    }
}

void FolderWalker::measurePackage(const std::string& directory, FoundUnit& unit) {
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem_.listDirectory(directory);
    } catch (const FileSystemError&) {
        return;
    }
    for (const auto& entry : entries) {
        const std::string path = joinPath(directory, entry.name);
        std::optional<FileStatus> status;
        try {
            status = fileSystem_.linkStatus(path);
        } catch (const FileSystemError&) {
            continue;
        }
        if (!status) continue;
        unit.modifiedAt = std::max(unit.modifiedAt, status->modifiedAt());
        if (status->isDirectory()) measurePackage(path, unit);
        else if (status->isRegular()) unit.size += status->size;
    }
}

}  // namespace vosklin

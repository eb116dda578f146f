#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "capture/ExcludeRules.h"
#include "capture/PackageKinds.h"
#include "platform/FileSystem.h"

namespace vosklin {

// One capture unit found on disk, with what is needed to tell whether it changed.
struct FoundUnit {
    std::string relativePath;
    std::string path;
    bool isPackage = false;
    std::uint64_t inode = 0;
    std::int64_t size = 0;    // a package: the sum of its files
    double modifiedAt = 0;    // a package: the newest of its items
};

// What one walk found: the units, and what it could not read (relative paths,
// sorted): a directory it could not list, an item it could not look at, a
// package it could not measure whole. What vanished during the walk is neither.
struct FolderWalk {
    std::vector<FoundUnit> units;
    std::vector<std::string> unreadable;
};

// Lists the capture units of a watched folder by the same rules as live
// capture: excluded names are never entered, transient names and symbolic
// links are not units, packages are units as a whole, and the walk does not
// cross into another file system (a mount inside the folder). Units come back
// sorted by relative path. Items that vanish during the walk are left out;
// items that cannot be read are named in the result, never skipped in silence.
// The depth of a tree does not matter: the file system reaches paths longer
// than PATH_MAX through directory descriptors.
class FolderWalker {
public:
    FolderWalker(FileSystem& fileSystem, ExcludeRules excludes, PackageKinds packages);

    // `shouldStop` is asked between directories; a stopped walk returns what it found so far.
    FolderWalk walk(const std::string& root, const std::function<bool()>& shouldStop = nullptr);

private:
    void walkDirectory(const std::string& directory, const std::string& relative, dev_t device, FolderWalk& found,
                       const std::function<bool()>& shouldStop);
    // False when part of the package could not be read.
    bool measurePackage(const std::string& directory, FoundUnit& unit);

    FileSystem& fileSystem_;
    ExcludeRules excludes_;
    PackageKinds packages_;
};

}  // namespace vosklin

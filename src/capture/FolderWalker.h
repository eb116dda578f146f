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

// Lists the capture units of a watched folder by the same rules as live
// capture: excluded names are never entered, transient names and symbolic
// links are not units, packages are units as a whole, and the walk does not
// cross into another file system (a mount inside the folder). Units come back
// sorted by relative path. Items that vanish during the walk are left out.
class FolderWalker {
public:
    FolderWalker(FileSystem& fileSystem, ExcludeRules excludes, PackageKinds packages);

    // `shouldStop` is asked between directories; a stopped walk returns what it found so far.
    std::vector<FoundUnit> walk(const std::string& root, const std::function<bool()>& shouldStop = nullptr);

private:
    void walkDirectory(const std::string& directory, const std::string& relative, dev_t device,
                       std::vector<FoundUnit>& units, const std::function<bool()>& shouldStop);
    void measurePackage(const std::string& directory, FoundUnit& unit);

    FileSystem& fileSystem_;
    ExcludeRules excludes_;
    PackageKinds packages_;
};

}  // namespace vosklin

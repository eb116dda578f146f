#pragma once

#include <optional>
#include <string>

#include "capture/ExcludeRules.h"
#include "capture/PackageKinds.h"
#include "platform/FileSystem.h"

namespace vosklin {

// Decides what one changed path inside a watched folder means for capture:
// nothing, the file itself, or the package (document bundle) that contains it.
//
// In order: a transient name is nothing; a path not strictly below the root
// (after resolving links in its parent folders) is nothing; an excluded path
// is nothing; a path inside a package is that package; a plain directory is
// nothing (its files are units); anything else is itself.
//
// Packages nest: the outermost package below the root is the unit, since it
// is the document the user works on. An application bundle (".app") is never
// a unit, and the walk for an enclosing package stops at it. The root itself
// is never a unit. Holds a reference to the FileSystem.
class CaptureUnitResolver {
public:
    struct Unit {
        std::string path;  // absolute, with links in the parent folders resolved
        bool isPackage = false;

        bool operator==(const Unit&) const = default;
    };

    CaptureUnitResolver(const std::string& root, ExcludeRules excludes, PackageKinds packages,
                        FileSystem& fileSystem);

    std::optional<Unit> resolve(const std::string& path) const;
    const std::string& root() const { return root_; }

private:
    std::string root_;
    ExcludeRules excludes_;
    PackageKinds packages_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

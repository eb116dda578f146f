#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Environment.h"

namespace vosklin {

// Decides where the store is, and refuses watched folders whose versions could
// not live beside it (clones work only within one file system).
//
// The container root is, in order: the --home option, $VOSKLIN_HOME,
// $XDG_DATA_HOME/vosklin, ~/.local/share/vosklin. The store root is the
// container + "/store". A value type; cheap to copy.
class StoreLocator {
public:
    // The identifier of the volume holding a path ("major:minor" of st_dev), or
    // nothing when it cannot be read. Injectable so tests can pretend two volumes.
    using VolumeIdentifier = std::function<std::optional<std::string>(const std::string& path)>;
    explicit StoreLocator(std::string containerRoot, VolumeIdentifier volumeIdentifier = deviceIdentifier);

    // The locator for this process: `homeOption` is the --home value when given.
    // Throws StoreLocatorError::containerUnavailable when no location can be derived.
    static StoreLocator fromEnvironment(const std::optional<std::string>& homeOption,
                                        const Environment& environment = processEnvironment);

    const std::string& containerRoot() const { return containerRoot_; }
    // Where a daemon of this container listens for the command line: in a private
    // folder of $XDG_RUNTIME_DIR ("vosklin/"), or, with --home, $VOSKLIN_HOME or no
    // runtime directory, in the container's "run/" folder.
    std::string daemonSocketPath() const;
    std::string storeRoot() const;
    // The store root for a watched folder on the same volume. Throws
    // StoreLocatorError: unsupportedVolume (carrying the folder's volume) when
    // it is on another one, containerUnavailable when a volume cannot be read.
    std::string storeRootFor(const std::string& watchedFolder) const;

    static std::optional<std::string> deviceIdentifier(const std::string& path);

private:
    std::string containerRoot_;
    std::string daemonSocketPath_;
    VolumeIdentifier volumeIdentifier_;
};

}  // namespace vosklin

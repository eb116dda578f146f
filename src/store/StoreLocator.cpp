#include "store/StoreLocator.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/PathNames.h"
#include "store/Sha256.h"
#include "store/StoreLocatorError.h"

namespace vosklin {

StoreLocator::StoreLocator(std::string containerRoot, VolumeIdentifier volumeIdentifier)
    : containerRoot_(std::move(containerRoot)), volumeIdentifier_(std::move(volumeIdentifier)) {}

StoreLocator StoreLocator::fromEnvironment(const std::optional<std::string>& homeOption,
                                           const Environment& environment) {
    if (homeOption && !homeOption->empty()) return StoreLocator(absolutePath(*homeOption));
    if (auto home = environment("VOSKLIN_HOME")) return StoreLocator(absolutePath(*home));
    std::optional<std::string> container;
    if (auto data = environment("XDG_DATA_HOME"); data && isAbsolutePath(*data))
        container = joinPath(*data, "vosklin");
    else if (auto home = environment("HOME"); home && isAbsolutePath(*home))
        container = joinPath(*home, ".local/share/vosklin");
    if (container) {
        StoreLocator locator(*container);
        // Several containers can share the runtime directory: each socket is named after its container.
        if (auto runtime = environment("XDG_RUNTIME_DIR"); runtime && isAbsolutePath(*runtime))
            locator.daemonSocketPath_ =
                joinPath(*runtime, "vosklin/daemon-" + Sha256::of(*container).substr(0, 16) + ".sock");
        return locator;
    }
    throw StoreLocatorError::containerUnavailable("neither --home, VOSKLIN_HOME, XDG_DATA_HOME nor HOME is set");
}

std::string StoreLocator::daemonSocketPath() const {
    return daemonSocketPath_.empty() ? joinPath(containerRoot_, "run/daemon.sock") : daemonSocketPath_;
}

std::string StoreLocator::storeRoot() const { return joinPath(containerRoot_, "store"); }

std::optional<std::string> StoreLocator::deviceIdentifier(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return std::to_string(major(st.st_dev)) + ":" + std::to_string(minor(st.st_dev));
}

std::string StoreLocator::storeRootFor(const std::string& watchedFolder) const {
    auto folderVolume = volumeIdentifier_(watchedFolder);
    // The container may not exist yet: its nearest existing ancestor tells the volume.
    std::string probe = containerRoot_;
    struct stat st {};
    while (::lstat(probe.c_str(), &st) != 0) {
        std::string parent = parentPath(probe);
        if (parent == probe) break;
        probe = parent;
    }
    auto containerVolume = volumeIdentifier_(probe);
    if (!folderVolume) throw StoreLocatorError::containerUnavailable("cannot read the volume of " + watchedFolder);
    if (!containerVolume) throw StoreLocatorError::containerUnavailable("cannot read the volume of " + probe);
    if (*folderVolume != *containerVolume) throw StoreLocatorError::unsupportedVolume(*folderVolume);
    return storeRoot();
}

}  // namespace vosklin

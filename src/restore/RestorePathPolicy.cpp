#include "restore/RestorePathPolicy.h"

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

bool hasTraversal(std::string_view path) {
    return path.find("/../") != std::string_view::npos || path.ends_with("/..") || path.starts_with("../");
}

}  // namespace

std::string_view toString(RestorePathPolicy::Violation violation) {
    switch (violation) {
        case RestorePathPolicy::Violation::payloadOutsideStore: return "payloadOutsideStore";
        case RestorePathPolicy::Violation::destinationOutsideGrantedFolders: return "destinationOutsideGrantedFolders";
        case RestorePathPolicy::Violation::traversal: return "traversal";
        case RestorePathPolicy::Violation::sameEndpoint: return "sameEndpoint";
    }
    return "";
}

std::optional<RestorePathPolicy::Violation> RestorePathPolicy::check(const std::string& payload,
                                                                     const std::string& destination,
                                                                     const std::string& storeRoot,
                                                                     const std::vector<std::string>& grantedRoots) {
    // Looked for before anything is resolved: a ".." must never get as far as the file system.
    if (hasTraversal(payload) || hasTraversal(destination)) return Violation::traversal;
    auto resolve = [&](const std::string& path) {
        try {
            return fileSystem_.resolvedPath(absolutePath(path));
        } catch (const FileSystemError&) {
            return resolveParentLinks(fileSystem_, path);
        }
    };
    const std::string resolvedPayload = resolve(payload);
    const std::string resolvedDestination = resolveParentLinks(fileSystem_, destination);
    std::string relative;
    if (!relativeTo(resolve(storeRoot), resolvedPayload, relative)) return Violation::payloadOutsideStore;
    bool granted = false;
    for (const auto& root : grantedRoots)
        if (relativeTo(resolve(root), resolvedDestination, relative)) granted = true;
    if (!granted) return Violation::destinationOutsideGrantedFolders;
    if (resolvedPayload == resolvedDestination) return Violation::sameEndpoint;
    return std::nullopt;
}

}  // namespace vosklin

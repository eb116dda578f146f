#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"

namespace vosklin {

// The one path-safety check for every write into a watched folder (restore
// and rewind). Paths are made absolute and their links resolved first; the
// destination, which may not exist yet, as its resolved parent plus its own
// name. The check runs before anything is written.
class RestorePathPolicy {
public:
    enum class Violation { payloadOutsideStore, destinationOutsideGrantedFolders, traversal, sameEndpoint };

    explicit RestorePathPolicy(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

    // In order: "/../" in either path (traversal), a payload not strictly inside
    // the store, a destination not strictly inside a granted folder, the same path twice.
    std::optional<Violation> check(const std::string& payload, const std::string& destination,
                                   const std::string& storeRoot, const std::vector<std::string>& grantedRoots);

private:
    FileSystem& fileSystem_;
};

std::string_view toString(RestorePathPolicy::Violation violation);

}  // namespace vosklin

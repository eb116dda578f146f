#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "catalog/StoredVersion.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Takes versions' payloads off the disk once their rows are gone. A slot that
// cannot be removed is left for the orphan sweep, which finds it unreferenced;
// nothing is thrown for it. The layout is borrowed.
class VersionRemoval {
public:
    explicit VersionRemoval(VersionStoreLayout& layout) : layout_(layout) {}
    // What removing these payloads gives back: the bytes of each slot on disk
    // that no other file shares (a reflinked payload whose blocks the live
    // file still uses gives back little).
    std::int64_t reclaimableBytes(const std::vector<StoredVersion>& versions) const;
    // Returns how many slots could not be removed. `pause`, when given, is called
    // every few slots (a long removal makes room for other work there).
    std::int64_t remove(const std::vector<StoredVersion>& versions, const std::function<void()>& pause = {});

private:
    VersionStoreLayout& layout_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "store/VersionStoreLayout.h"

namespace vosklin {

// The slots that exist on disk under "versions", whatever the catalog says:
// every directory three levels down (two hex digits, the file id, the stamp).
//
// Read-only; listing failures are thrown as FileSystemError. A missing
// "versions" directory holds no slots. Stray files at any level are not slots
// and are passed over.
class StoreSlots {
public:
    StoreSlots(const VersionStoreLayout& layout, FileSystem& fileSystem);

    // Every slot as the catalog would name it ("versions/2a/42/20250301-143205"), sorted.
    std::vector<std::string> all();
    // Whether at least one slot exists; stops at the first.
    bool any();

    // The file id a slot path names ("versions/2a/42/..." -> 42), if it is a number.
    static std::optional<std::int64_t> fileID(const std::string& slotRelativePath);

private:
    // Calls `visit` for each slot until it returns false.
    void walk(const std::function<bool(const std::string&)>& visit);

    const VersionStoreLayout& layout_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

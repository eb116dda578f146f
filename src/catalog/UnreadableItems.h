#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vosklin {

// What the last whole walk of a folder could not read: how many items, and the
// first few of them (paths relative to the folder, as bytes).
struct UnreadableItems {
    std::int64_t count = 0;
    std::vector<std::string> paths;

    bool operator==(const UnreadableItems&) const = default;
};

}  // namespace vosklin

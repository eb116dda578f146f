#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// The settling rule's shared vocabulary.
struct SettleGate {
    // What a unit looks like right now, taken with lstat (links not followed).
    struct Probe {
        std::int64_t size = 0;
        double modifiedAt = 0;  // seconds since 1970 with nanoseconds as a fraction
        std::uint64_t inode = 0;
        bool isQuarantined = false;  // carries a download-origin mark (user.xdg.origin.url)

        bool operator==(const Probe&) const = default;
    };

    // Nothing when lstat fails.
    static std::optional<Probe> probe(FileSystem& fileSystem, const std::string& path);
};

}  // namespace vosklin

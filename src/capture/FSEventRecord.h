#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// What happened to a path, as bits: one record may carry several.
namespace FSEventFlag {
constexpr std::uint32_t created = 1 << 0;
constexpr std::uint32_t modified = 1 << 1;     // content written and closed, or written
constexpr std::uint32_t attributes = 1 << 2;   // mode, owner, times, extended attributes
constexpr std::uint32_t removed = 1 << 3;
constexpr std::uint32_t renamed = 1 << 4;      // moved here from `previousPath`, inside the same watched folder
constexpr std::uint32_t isDirectory = 1 << 5;
constexpr std::uint32_t scanned = 1 << 6;      // found by scanning a directory that appeared, not by an event
constexpr std::uint32_t mustScanSubDirs = 1 << 7;  // a directory whose contents must be rescanned (moved in)
}  // namespace FSEventFlag

// One change reported by the watcher.
struct FSEventRecord {
    std::string path;
    std::optional<std::uint64_t> inode;
    std::uint32_t flags = 0;
    std::uint64_t eventID = 0;  // grows with every record, across runs too
    std::string previousPath;   // for a rename

    bool has(std::uint32_t flag) const { return (flags & flag) != 0; }
};

// Why the watcher asks for a full crawl instead of reporting changes one by one.
enum class RescanReason { mustScanSubDirs, userDropped, kernelDropped, idsWrapped };

inline const char* toString(RescanReason reason) {
    switch (reason) {
        case RescanReason::mustScanSubDirs: return "mustScanSubDirs";
        case RescanReason::userDropped: return "userDropped";
        case RescanReason::kernelDropped: return "kernelDropped";
        case RescanReason::idsWrapped: return "idsWrapped";
    }
    return "";
}

// One watched folder as the watcher sees it.
struct WatchTarget {
    std::string folderID;
    std::string root;

    bool operator==(const WatchTarget&) const = default;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <string>

#include "capture/CaptureMode.h"

namespace vosklin {

// How much store a folder's history may take.
struct FolderBudget {
    enum class Kind { automatic, unlimited, bytes };
    Kind kind = Kind::automatic;
    std::int64_t bytes = 0;  // for Kind::bytes

    // Anything smaller keeps next to no history and is almost surely a slip ("20" for "20GB").
    static constexpr std::int64_t smallestBytes = 1'000'000;

    bool operator==(const FolderBudget&) const = default;
};

// One folder the user chose to watch, as folders.json keeps it.
struct WatchedFolder {
    std::string id;    // UUID string, the catalog's folder_id
    std::string path;  // absolute, links resolved when it was added
    CaptureMode mode = CaptureMode::automatic;
    bool isPaused = false;
    FolderBudget budget;
    // The root's identity when it was added: a folder replaced by another at the same path is not the same folder.
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    // Recording at all (live or by crawl): not paused.
    bool isRecording() const { return !isPaused; }

    bool operator==(const WatchedFolder&) const = default;
};

}  // namespace vosklin

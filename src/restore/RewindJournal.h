#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"

namespace vosklin {

// On disk from before a rewind's first write until its manifest is written:
// "rewind-<id>.json" in the store's journal directory.
struct RewindJournal {
    static constexpr int formatVersion = 1;

    struct Entry {
        std::string action;  // "revert", "restoreDeleted", "removeAdded"
        std::string relativePath;
        std::string destinationPath;
        std::optional<std::string> scratchPath;  // for writes
        // For writes: the digest of what the write puts there, by which recovery tells a
        // path swapped in from one still as it was (absent in journals of older builds).
        std::optional<std::string> digest;
    };
    struct Interrupted;

    int version = formatVersion;
    std::string id;
    double startedAt = 0;
    std::string folderID;
    std::string folderRoot;
    double target = 0;
    double beforeRewindAt = 0;
    std::vector<Entry> entries;

    std::string fileName() const { return "rewind-" + id + ".json"; }
    void write(FileSystem& fileSystem, const std::string& journalDirectory) const;
    // Reads what write wrote. Throws JournalError on any other bytes, and
    // FileSystemError (read only) when the file cannot be read.
    static RewindJournal decode(std::string_view text);
    static RewindJournal read(FileSystem& fileSystem, const std::string& path);
};

struct RewindJournal::Interrupted {
    RewindJournal journal;
    std::int64_t completedEntries = 0;  // found as the rewind left them: written, or removed
    std::int64_t uncheckedEntries = 0;  // writes whose journal has no digest to tell them by
    std::int64_t sweptScratch = 0;
};

// "rewound-<id>.json": a rewind that finished.
struct RewindManifest {
    int version = RewindJournal::formatVersion;
    std::string id;
    double finishedAt = 0;
    std::string folderID;
    double target = 0;
    double beforeRewindAt = 0;
    std::int64_t revertedCount = 0;
    std::int64_t restoredCount = 0;
    std::int64_t removedCount = 0;

    void write(FileSystem& fileSystem, const std::string& journalDirectory) const;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"

namespace vosklin {

enum class RestoreMode { copyBeside, replaceInPlace };
std::string_view toString(RestoreMode mode);

// On disk from the first write of a restore until its end, so that a restore
// cut off by a crash is found and cleaned up at the next start.
// "restore-<id>.json" in the store's journal directory.
struct RestoreJournal {
    static constexpr int formatVersion = 1;

    int version = formatVersion;
    std::string id;
    double startedAt = 0;
    RestoreMode mode = RestoreMode::copyBeside;
    std::string payloadPath;
    std::string destinationPath;
    std::optional<std::string> scratchPath;
    std::optional<std::int64_t> preRestoreVersionID;

    struct Interrupted;

    std::string fileName() const { return "restore-" + id + ".json"; }
    void write(FileSystem& fileSystem, const std::string& journalDirectory) const;
    // Reads what write wrote. Throws JournalError on any other bytes, and
    // FileSystemError (read only) when the file cannot be read.
    static RestoreJournal decode(std::string_view text);
    static RestoreJournal read(FileSystem& fileSystem, const std::string& path);
};

// What launch-time recovery found of an interrupted restore.
struct RestoreJournal::Interrupted {
    RestoreJournal journal;
    bool destinationExists = false;
    bool sweptScratch = false;
};

// The record of a finished, or recovered, restore: "restored-<id>.json".
struct RestoreManifest {
    int version = RestoreJournal::formatVersion;
    std::string id;
    double finishedAt = 0;
    RestoreMode mode = RestoreMode::copyBeside;
    std::string payloadPath;
    std::string restoredPath;
    std::optional<std::int64_t> preRestoreVersionID;
    std::optional<double> recoveredAt;

    void write(FileSystem& fileSystem, const std::string& journalDirectory) const;
};

}  // namespace vosklin

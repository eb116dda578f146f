#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/FileSystemError.h"
#include "platform/Logger.h"
#include "platform/PathNames.h"
#include "restore/JournalError.h"

namespace vosklin {

// The journals "<prefix>*.json" of the store's journal directory, decoded by
// `Journal::read`, with their paths. A journal that cannot be decoded is set
// aside as "<name>.damaged" (and logged), kept for a person to look at and out
// of the way of the next recovery. Half-written temporaries of an interrupted
// atomic write ("*.json.tmp-*") are removed.
template <class Journal>
std::vector<std::pair<std::string, Journal>> readJournals(FileSystem& fileSystem, Logger& logger,
                                                          const std::string& directory, const std::string& prefix) {
    std::vector<std::pair<std::string, Journal>> journals;
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem.listDirectory(directory);
    } catch (const FileSystemError&) {
        return journals;
    }
    for (const auto& entry : entries) {
        const std::string path = joinPath(directory, entry.name);
        if (entry.name.find(".json.tmp-") != std::string::npos) {
            fileSystem.removeFile(path);
            continue;
        }
        if (!entry.name.starts_with(prefix) || pathExtension(entry.name) != "json") continue;
        std::string problem;
        try {
            journals.emplace_back(path, Journal::read(fileSystem, path));
            continue;
        } catch (const JournalError& error) {
            problem = error.what();
        } catch (const FileSystemError& error) {
            problem = error.what();
        }
        logger.error("A journal could not be read (" + problem + "); set aside as " + entry.name + ".damaged");
        fileSystem.rename(path, path + ".damaged");
    }
    return journals;
}

}  // namespace vosklin

#include "restore/RewindJournal.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/AtomicFile.h"
#include "platform/Instant.h"
#include "platform/JsonInteger.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "restore/JournalError.h"

namespace vosklin {
namespace {

// The id names the journal's own files, and the record written when recovery
// ends it, in the journal directory: it must be one plain name.
void requirePlainId(const std::string& id) {
    if (id.empty() || id.find('/') != std::string::npos || id.find('\0') != std::string::npos)
        throw JournalError("id is not a plain name");
}

double instantAt(const nlohmann::json& json, const char* key) {
    auto instant = parseInstant(json.at(key).get<std::string>());
    if (!instant) throw JournalError(std::string(key) + " is not an instant");
    return *instant;
}

}  // namespace

void RewindJournal::write(FileSystem& fileSystem, const std::string& journalDirectory) const {
    nlohmann::json json;
    json["version"] = version;
    json["id"] = id;
    json["startedAt"] = formatInstant(startedAt);
    json["folderID"] = folderID;
    putPath(json, "folderRoot", folderRoot);
    json["target"] = formatInstant(target);
    json["beforeRewindAt"] = formatInstant(beforeRewindAt);
    json["entries"] = nlohmann::json::array();
    for (const auto& entry : entries) {
        nlohmann::json item = {{"action", entry.action}};
        putPath(item, "relativePath", entry.relativePath);
        putPath(item, "destinationPath", entry.destinationPath);
        if (entry.scratchPath) putPath(item, "scratchPath", *entry.scratchPath);
        if (entry.digest) item["digest"] = *entry.digest;
        json["entries"].push_back(item);
    }
    writeFileAtomically(fileSystem, joinPath(journalDirectory, fileName()), json.dump(2) + "\n", 0600);
}

RewindJournal RewindJournal::decode(std::string_view text) {
    try {
        auto json = nlohmann::json::parse(text);
        RewindJournal journal;
        auto version = jsonInteger<int>(json.at("version"));
        if (!version) throw JournalError("version is not an integer in range");
        journal.version = *version;
        journal.id = json.at("id").get<std::string>();
        requirePlainId(journal.id);
        journal.startedAt = instantAt(json, "startedAt");
        journal.folderID = json.at("folderID").get<std::string>();
        journal.folderRoot = getPath(json, "folderRoot");
        journal.target = instantAt(json, "target");
        journal.beforeRewindAt = instantAt(json, "beforeRewindAt");
        for (const auto& item : json.at("entries")) {
            Entry entry;
            entry.action = item.at("action").get<std::string>();
            entry.relativePath = getPath(item, "relativePath");
            entry.destinationPath = getPath(item, "destinationPath");
            if (item.contains("scratchPath")) entry.scratchPath = getPath(item, "scratchPath");
            if (item.contains("digest")) entry.digest = item.at("digest").get<std::string>();
            journal.entries.push_back(std::move(entry));
        }
        return journal;
    } catch (const nlohmann::json::exception& error) {
        throw JournalError(std::string("Not a rewind journal: ") + error.what());
    } catch (const std::invalid_argument& error) {
        throw JournalError(std::string("Not a rewind journal: ") + error.what());
    }
}

RewindJournal RewindJournal::read(FileSystem& fileSystem, const std::string& path) {
    return decode(readWholeFile(fileSystem, path));
}

void RewindManifest::write(FileSystem& fileSystem, const std::string& journalDirectory) const {
    nlohmann::json json = {{"version", version},
                           {"id", id},
                           {"finishedAt", formatInstant(finishedAt)},
                           {"folderID", folderID},
                           {"target", formatInstant(target)},
                           {"beforeRewindAt", formatInstant(beforeRewindAt)},
                           {"revertedCount", revertedCount},
                           {"restoredCount", restoredCount},
                           {"removedCount", removedCount}};
    writeFileAtomically(fileSystem, joinPath(journalDirectory, "rewound-" + id + ".json"), json.dump(2) + "\n", 0600);
}

}  // namespace vosklin

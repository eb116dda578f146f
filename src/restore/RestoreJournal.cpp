#include "restore/RestoreJournal.h"

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

template <class T>
T integerAt(const nlohmann::json& json, const char* key) {
    if (auto number = jsonInteger<T>(json.at(key))) return *number;
    throw JournalError(std::string(key) + " is not an integer in range");
}

}  // namespace

std::string_view toString(RestoreMode mode) { return mode == RestoreMode::copyBeside ? "copyBeside" : "replaceInPlace"; }

void RestoreJournal::write(FileSystem& fileSystem, const std::string& journalDirectory) const {
    nlohmann::json json;
    json["version"] = version;
    json["id"] = id;
    json["startedAt"] = formatInstant(startedAt);
    json["mode"] = std::string(toString(mode));
    putPath(json, "payloadPath", payloadPath);
    putPath(json, "destinationPath", destinationPath);
    if (scratchPath) putPath(json, "scratchPath", *scratchPath);
    if (preRestoreVersionID) json["preRestoreVersionID"] = *preRestoreVersionID;
    writeFileAtomically(fileSystem, joinPath(journalDirectory, fileName()), json.dump(2) + "\n", 0600);
}

RestoreJournal RestoreJournal::decode(std::string_view text) {
    try {
        auto json = nlohmann::json::parse(text);
        RestoreJournal journal;
        journal.version = integerAt<int>(json, "version");
        journal.id = json.at("id").get<std::string>();
        requirePlainId(journal.id);
        auto started = parseInstant(json.at("startedAt").get<std::string>());
        if (!started) throw JournalError("startedAt is not an instant");
        journal.startedAt = *started;
        // Recovery acts on the mode, so a mode it does not know is damage, not a guess.
        const std::string mode = json.at("mode").get<std::string>();
        if (mode != "replaceInPlace" && mode != "copyBeside") throw JournalError("mode '" + mode + "' is unknown");
        journal.mode = mode == "replaceInPlace" ? RestoreMode::replaceInPlace : RestoreMode::copyBeside;
        journal.payloadPath = getPath(json, "payloadPath");
        journal.destinationPath = getPath(json, "destinationPath");
        if (json.contains("scratchPath")) journal.scratchPath = getPath(json, "scratchPath");
        if (json.contains("preRestoreVersionID"))
            journal.preRestoreVersionID = integerAt<std::int64_t>(json, "preRestoreVersionID");
        return journal;
    } catch (const nlohmann::json::exception& error) {
        throw JournalError(std::string("Not a restore journal: ") + error.what());
    } catch (const std::invalid_argument& error) {
        throw JournalError(std::string("Not a restore journal: ") + error.what());
    }
}

RestoreJournal RestoreJournal::read(FileSystem& fileSystem, const std::string& path) {
    return decode(readWholeFile(fileSystem, path));
}

void RestoreManifest::write(FileSystem& fileSystem, const std::string& journalDirectory) const {
    nlohmann::json json;
    json["version"] = version;
    json["id"] = id;
    json["finishedAt"] = formatInstant(finishedAt);
    json["mode"] = std::string(toString(mode));
    putPath(json, "payloadPath", payloadPath);
    putPath(json, "restoredPath", restoredPath);
    if (preRestoreVersionID) json["preRestoreVersionID"] = *preRestoreVersionID;
    if (recoveredAt) json["recoveredAt"] = formatInstant(*recoveredAt);
    writeFileAtomically(fileSystem, joinPath(journalDirectory, "restored-" + id + ".json"), json.dump(2) + "\n", 0600);
}

}  // namespace vosklin

#include "app/HistoryRequests.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "app/ApiHandlers.h"
#include "app/ApiRequest.h"
#include "app/JsonRecords.h"
#include "app/UserInstant.h"
#include "bridge/FolderListError.h"
#include "history/FolderHistory.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

// The instant under `key`, as a person or the window writes it (ISO 8601, or a local date-time).
std::optional<double> instantField(const ApiRequest& request, const std::string& key, bool required) {
    const auto text = request.text(key);
    if (!text) {
        if (required) throw ApiError(400, "The request names no instant ('" + key + "')");
        return std::nullopt;
    }
    const auto reading = readUserInstant(*text);
    if (!reading.instant) throw ApiError(400, userInstantRefusal(*text, reading));
    return reading.instant;
}

// One line of a comparison of two moments; a side the file is missing from is null.
nlohmann::json comparedFile(const FileStateAt* before, const FileStateAt* after) {
    const FileStateAt& present = after ? *after : *before;
    nlohmann::json entry = {{"fileID", present.file.id}};
    putPath(entry, "relativePath", present.file.relativePath);
    if (before && after && before->file.relativePath != after->file.relativePath)
        putPath(entry, "previousPath", before->file.relativePath);
    else
        entry["previousPath"] = nullptr;
    entry["oldVersionID"] = before ? nlohmann::json(before->version.id) : nlohmann::json();
    entry["newVersionID"] = after ? nlohmann::json(after->version.id) : nlohmann::json();
    entry["oldBytes"] = before ? nlohmann::json(before->version.logicalBytes) : nlohmann::json();
    entry["newBytes"] = after ? nlohmann::json(after->version.logicalBytes) : nlohmann::json();
    return entry;
}

}  // namespace

HistoryRequests::HistoryRequests(AppContext& context) : context_(context) {}

bool HistoryRequests::handles(const std::string& name) {
    return name == "history" || name == "calendar" || name == "files" || name == "paths" || name == "versions" ||
           name == "comparemoments";
}

nlohmann::json HistoryRequests::answer(const std::string& name, const ApiRequest& request) {
    if (name == "history") return history(request);
    if (name == "calendar") return calendar(request);
    if (name == "files") return files(request);
    if (name == "paths") return paths(request);
    if (name == "versions") return versions(request);
    if (name == "comparemoments") return compareMoments(request);
    throw ApiError(404, "Unknown request '" + name + "'");
}

WatchedFolder HistoryRequests::folderOf(const ApiRequest& request) {
    const auto path = request.path("folder");
    if (!path) throw ApiError(400, "The request names no folder");
    try {
        return context_.folders().require(*path);
    } catch (const FolderListError& error) {
        throw ApiError(404, error.what());
    }
}

nlohmann::json HistoryRequests::history(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request);
    const auto before = instantField(request, "before", false);
    const auto limit = request.integer("limit", 1, mostPageRows).value_or(defaultPageRows);
    nlohmann::json answer = {{"folderID", folder.id}, {"sessions", nlohmann::json::array()}, {"next", nullptr}};
    if (!context_.storeExists()) return answer;
    const auto page = FolderHistory::loadPage(context_.readCatalog(), folder.id, before, limit);
    answer["sessions"] = sessionsJson(page.history, changesPerMoment);
    if (page.next) answer["next"] = formatInstant(*page.next);
    return answer;
}

nlohmann::json HistoryRequests::calendar(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request);
    nlohmann::json days = nlohmann::json::array();
    if (context_.storeExists())
        for (const auto& day : context_.readCatalog().changeDays(folder.id))
            days.push_back({{"date", day.date},
                            {"changes", day.changes},
                            {"first", formatInstant(day.first)},
                            {"last", formatInstant(day.last)}});
    return {{"days", days}};
}

nlohmann::json HistoryRequests::files(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request);
    double at = *instantField(request, "at", true);
    std::vector<FileStateAt> states;
    if (context_.storeExists()) {
        auto& catalog = context_.readCatalog();
        at = FolderHistory::load(catalog, folder.id).stateInstant(at);
        states = catalog.stateAt(folder.id, at);
    }
    std::sort(states.begin(), states.end(),
              [](const FileStateAt& a, const FileStateAt& b) { return a.file.relativePath < b.file.relativePath; });
    nlohmann::json files = nlohmann::json::array();
    for (const auto& state : states) {
        auto entry = toJson(state);
        entry["isDeleted"] = state.file.deletedAt.has_value();
        files.push_back(std::move(entry));
    }
    return {{"folderID", folder.id}, {"at", formatInstant(at)}, {"files", files}};
}

nlohmann::json HistoryRequests::paths(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request);
    nlohmann::json paths = nlohmann::json::array();
    if (context_.storeExists())
        for (const auto& held : context_.readCatalog().heldPaths(folder.id)) {
            nlohmann::json entry;
            putPath(entry, "relativePath", held.relativePath);
            entry["fileID"] = held.fileID;
            entry["isDeleted"] = held.isDeleted;
            entry["versionCount"] = held.versionCount;
            paths.push_back(std::move(entry));
        }
    return {{"folderID", folder.id}, {"paths", paths}};
}

nlohmann::json HistoryRequests::versions(const ApiRequest& request) {
    const auto fileID = request.identifier("file");
    const auto path = fileID ? std::nullopt : request.path("path");
    if (!fileID && !path) throw ApiError(400, "The request names no file ('file' or 'path')");
    const auto offset = request.integer("offset", 0, std::numeric_limits<std::int64_t>::max()).value_or(0);
    const auto limit = request.integer("limit", 1, mostVersions).value_or(defaultVersions);
    std::optional<TrackedFile> file;
    WatchedFolder folder;
    if (fileID) {
        if (context_.storeExists()) file = context_.readCatalog().file(*fileID);
        if (!file) throw ApiError(404, "There is no file " + std::to_string(*fileID));
        try {
            folder = context_.folders().require(file->folderID);
        } catch (const FolderListError&) {
            throw ApiError(404, "File " + std::to_string(*fileID) + " belongs to no watched folder");
        }
    } else {
        auto found = context_.folders().folderContaining(*path);
        if (!found || found->second.empty())
            throw ApiError(404, DisplayName::of(*path) + " is not inside a watched folder");
        folder = found->first;
        if (context_.storeExists()) {
            auto& catalog = context_.readCatalog();
            file = catalog.fileAtPath(folder.id, found->second);
            // A name the file had before a rename: the newest file that had it.
            if (!file)
                for (const auto& held : catalog.heldPaths(folder.id))
                    if (held.relativePath == found->second && (!file || held.fileID > file->id))
                        file = catalog.file(held.fileID);
        }
        if (!file) throw ApiError(404, "Vosklin has no history of " + DisplayName::of(*path));
    }
    auto& catalog = context_.readCatalog();
    nlohmann::json versions = nlohmann::json::array();
    for (const auto& version : catalog.versionsOfFile(file->id, limit, offset)) versions.push_back(toJson(version));
    const std::string absolute = joinPath(folder.path, file->relativePath);
    nlohmann::json live = {{"exists", false}, {"logicalBytes", nullptr}};
    // What is at the path now, as the live file is served: never through a link.
    if (auto status = context_.fileSystem().linkStatus(absolute)) {
        if (file->isPackage ? status->isDirectory() : status->isRegular()) live["exists"] = true;
        if (!file->isPackage && status->isRegular()) live["logicalBytes"] = status->size;
    }
    nlohmann::json answer = {{"file", toJson(*file)}, {"folderID", folder.id}};
    putPath(answer, "path", absolute);
    answer["versions"] = versions;
    answer["total"] = catalog.versionCount(file->id);
    answer["live"] = live;
    return answer;
}

nlohmann::json HistoryRequests::compareMoments(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request);
    double from = *instantField(request, "from", true);
    double to = *instantField(request, "to", true);
    nlohmann::json answer = {{"folderID", folder.id},
                             {"added", nlohmann::json::array()},
                             {"changed", nlohmann::json::array()},
                             {"deleted", nlohmann::json::array()},
                             {"renamed", nlohmann::json::array()}};
    if (!context_.storeExists()) return answer;
    auto& catalog = context_.readCatalog();
    from = FolderHistory::readingInstant(from);
    to = FolderHistory::readingInstant(to);
    // Only a file with a version or an event between the two can differ: on a large
    // folder, most files are never read.
    const auto candidates = catalog.filesChangedBetween(folder.id, std::min(from, to), std::max(from, to));
    const auto before = catalog.stateAt(folder.id, from, candidates);
    const auto after = catalog.stateAt(folder.id, to, candidates);

    // A file is the same file under any name: joined by its id.
    std::unordered_map<std::int64_t, const FileStateAt*> earlier;
    earlier.reserve(before.size());
    for (const auto& state : before) earlier.emplace(state.file.id, &state);
    struct Line {
        const FileStateAt* before;
        const FileStateAt* after;
    };
    std::vector<Line> added, changed, deleted, renamed;
    for (const auto& state : after) {
        auto found = earlier.find(state.file.id);
        if (found == earlier.end()) {
            added.push_back({nullptr, &state});
            continue;
        }
        const FileStateAt& old = *found->second;
        earlier.erase(found);
        if (old.file.relativePath != state.file.relativePath) renamed.push_back({&old, &state});
        else if (old.version.digest != state.version.digest) changed.push_back({&old, &state});
    }
    for (const auto& [id, state] : earlier) deleted.push_back({state, nullptr});
    for (auto* list : {&added, &changed, &deleted, &renamed}) {
        std::sort(list->begin(), list->end(), [](const Line& a, const Line& b) {
            const auto& pathA = (a.after ? a.after : a.before)->file.relativePath;
            const auto& pathB = (b.after ? b.after : b.before)->file.relativePath;
            return pathA < pathB;
        });
    }
    auto put = [&](const char* key, const std::vector<Line>& lines) {
        auto& out = answer[key];
        for (const auto& line : lines) out.push_back(comparedFile(line.before, line.after));
    };
    put("added", added);
    put("changed", changed);
    put("deleted", deleted);
    put("renamed", renamed);
    return answer;
}

}  // namespace vosklin

#include "app/JsonRecords.h"

#include <algorithm>

#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

nlohmann::json changeJson(const MomentClustering::FileChange& change) {
    nlohmann::json json;
    json["fileID"] = change.fileID;
    putPath(json, "relativePath", change.relativePath);
    json["kind"] = std::string(MomentClustering::toString(change.kind));
    json["bytes"] = change.bytes;
    json["byteDelta"] = change.byteDelta ? nlohmann::json(*change.byteDelta) : nlohmann::json();
    if (change.previousPath) putPath(json, "previousPath", *change.previousPath);
    else json["previousPath"] = nullptr;
    return json;
}

}  // namespace

nlohmann::json toJson(const StoredVersion& version) {
    nlohmann::json json;
    json["id"] = version.id;
    json["fileID"] = version.fileID;
    json["capturedAt"] = formatInstant(version.capturedAt);
    json["digest"] = version.digest;
    json["logicalBytes"] = version.logicalBytes;
    json["slot"] = version.slot;
    putPath(json, "payloadName", version.payloadName);
    json["method"] = std::string(toString(version.method));
    json["isVerified"] = version.isVerified;
    json["isStarred"] = version.isStarred;
    json["source"] = std::string(toString(version.source));
    json["batchID"] = version.batchID ? nlohmann::json(*version.batchID) : nlohmann::json();
    json["isReplacement"] = version.isReplacement;
    return json;
}

nlohmann::json toJson(const TrackedFile& file) {
    nlohmann::json json;
    json["id"] = file.id;
    json["folderID"] = file.folderID;
    putPath(json, "relativePath", file.relativePath);
    json["isPackage"] = file.isPackage;
    json["deletedAt"] = file.deletedAt ? nlohmann::json(formatInstant(*file.deletedAt)) : nlohmann::json();
    return json;
}

nlohmann::json toJson(const ContentHitGroup& group, const std::string& folderPath) {
    nlohmann::json entry = {{"file", toJson(group.file)}, {"hits", nlohmann::json::array()}};
    putPath(entry["file"], "path", joinPath(folderPath, group.file.relativePath));
    for (const auto& hit : group.hits)
        entry["hits"].push_back({{"versionID", hit.versionID},
                                 {"capturedAt", formatInstant(hit.capturedAt)},
                                 {"snippet", displayableUtf8(hit.snippet)}});
    return entry;
}

nlohmann::json toJson(const FolderExport::Report& report, const std::string& folderID, double at) {
    nlohmann::json json = {{"folderID", folderID},
                           {"at", formatInstant(at)},
                           {"fileCount", report.fileCount},
                           {"clonedCount", report.clonedCount},
                           {"logicalBytes", report.logicalBytes}};
    putPath(json, "destination", report.destination);
    return json;
}

nlohmann::json toJson(const RecentFile& file, const std::string& folderPath) {
    nlohmann::json entry = {{"file", toJson(file.file)},
                            {"versionCount", file.versionCount},
                            {"lastCapturedAt", formatInstant(file.lastCapturedAt)}};
    putPath(entry["file"], "path", joinPath(folderPath, file.file.relativePath));
    return entry;
}

nlohmann::json toJson(const WatchedFolder& folder) {
    nlohmann::json json;
    json["id"] = folder.id;
    putPath(json, "path", folder.path);
    json["mode"] = std::string(toString(folder.mode));
    json["isPaused"] = folder.isPaused;
    switch (folder.budget.kind) {
        case FolderBudget::Kind::automatic: json["budgetBytes"] = nullptr; break;
        case FolderBudget::Kind::unlimited: json["budgetBytes"] = "unlimited"; break;
        case FolderBudget::Kind::bytes: json["budgetBytes"] = folder.budget.bytes; break;
    }
    return json;
}

nlohmann::json toJson(const CrawlReport& report) {
    nlohmann::json json;
    json["folderID"] = report.folderID;
    json["reason"] = report.reason;
    json["source"] = std::string(toString(report.source));
    json["examined"] = report.examined;
    json["captured"] = report.captured;
    json["unchanged"] = report.unchanged;
    json["skipped"] = report.skipped;
    json["failed"] = report.failed;
    json["renamed"] = report.renamed;
    json["tombstoned"] = report.tombstoned;
    json["unreadableCount"] = report.unreadableCount;
    json["unreadablePaths"] = nlohmann::json::array();
    for (const auto& path : report.unreadablePaths) json["unreadablePaths"].push_back(displayableUtf8(path));
    json["cancelled"] = report.cancelled;
    json["startedAt"] = formatInstant(report.startedAt);
    json["finishedAt"] = formatInstant(report.finishedAt);
    return json;
}

nlohmann::json sessionsJson(const FolderHistory& history, std::optional<std::size_t> changeLimit) {
    nlohmann::json sessions = nlohmann::json::array();
    for (const auto& session : history.sessions) {
        nlohmann::json sessionJson = {{"start", formatInstant(session.start)}, {"end", formatInstant(session.end)}};
        sessionJson["moments"] = nlohmann::json::array();
        for (const auto& moment : session.moments) {
            nlohmann::json momentJson = {{"at", formatInstant(moment.at)},
                                         {"instantCount", moment.instantCount},
                                         {"headline", history.headline(moment)}};
            momentJson["batchID"] = moment.batchID ? nlohmann::json(*moment.batchID) : nlohmann::json();
            if (auto mark = history.markAt(moment.at)) {
                momentJson["mark"] = {{"kind", std::string(toString(mark->kind))}};
                if (mark->name) momentJson["mark"]["name"] = *mark->name;
                if (mark->targetAt) momentJson["mark"]["targetAt"] = formatInstant(*mark->targetAt);
            }
            momentJson["changes"] = nlohmann::json::array();
            const std::size_t listed = std::min(moment.changes.size(), changeLimit.value_or(moment.changes.size()));
            for (std::size_t i = 0; i < listed; ++i) momentJson["changes"].push_back(changeJson(moment.changes[i]));
            if (listed < moment.changes.size()) momentJson["changeCount"] = moment.changes.size();
            sessionJson["moments"].push_back(momentJson);
        }
        sessions.push_back(sessionJson);
    }
    return sessions;
}

nlohmann::json toJson(const FileStateAt& state) {
    nlohmann::json entry;
    putPath(entry, "relativePath", state.file.relativePath);
    entry["fileID"] = state.file.id;
    entry["logicalBytes"] = state.version.logicalBytes;
    entry["versionID"] = state.version.id;
    entry["capturedAt"] = formatInstant(state.version.capturedAt);
    entry["isPackage"] = state.file.isPackage;
    return entry;
}

}  // namespace vosklin

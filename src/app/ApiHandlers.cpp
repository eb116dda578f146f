#include "app/ApiHandlers.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>

#include "app/ApiRequest.h"
#include "app/CompareRequests.h"
#include "app/ServedFiles.h"
#include "app/HistoryRequests.h"
#include "app/JsonRecords.h"
#include "app/UserInstant.h"
#include "history/FolderHistory.h"
#include "bridge/FolderAccess.h"
#include "bridge/FolderListError.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"
#include "restore/FolderExport.h"
#include "retention/HistoryEraser.h"
#include "retention/StorageBudget.h"

namespace vosklin {

ApiHandlers::ApiHandlers(AppContext& context, CaptureEngine* engine)
    : context_(context), engine_(engine), folderRequests_(context, engine), compareRequests_(context) {}

WatchedFolder ApiHandlers::folderOf(const ApiRequest& request, bool mustBeReachable) {
    const auto path = request.path("folder");
    if (!path) throw ApiError(400, "The request names no folder");
    WatchedFolder folder;
    try {
        folder = context_.folders().require(*path);
    } catch (const FolderListError& error) {
        throw ApiError(404, error.what());
    }
    if (!mustBeReachable) return folder;
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw ApiError(409, DisplayName::of(folder.path) + " " + reach.reason);
    return folder;
}

nlohmann::json ApiHandlers::mark(const ApiRequest& request, bool naming) {
    WatchedFolder folder = folderOf(request, false);
    const std::string momentText = request.text("moment").value_or("");
    const auto reading = readUserInstant(momentText);
    if (!reading.instant) throw ApiError(400, userInstantRefusal(momentText, reading));
    const auto instant = reading.instant;
    FolderHistory history;
    if (context_.storeExists()) history = FolderHistory::load(context_.catalog(), folder.id);
    auto moment = history.momentAt(*instant);
    if (!moment)
        throw ApiError(404, "There is no moment at " + momentText + " in " + DisplayName::of(folder.path) +
                                " (see 'vosklin history')");
    if (naming) {
        const std::string name = request.text("name").value_or("");
        if (name.empty()) throw ApiError(400, "A moment's name cannot be empty");
        context_.catalog().recordMark({folder.id, moment->at, name, MomentMark::Kind::named, std::nullopt});
    } else if (auto existing = history.markAt(moment->at)) {
        // A plain name goes with its mark; a rewind's mark stays, without the name. Naming
        // turned a rewind's mark into a `named` one, but it still carries the rewind's target.
        const bool plainName = existing->kind == MomentMark::Kind::named && !existing->targetAt;
        if (plainName) context_.catalog().deleteMark(folder.id, moment->at);
        else context_.catalog().clearMarkName(folder.id, moment->at);
    }
    return {{"at", formatInstant(moment->at)}};
}

nlohmann::json ApiHandlers::restore(const ApiRequest& request) {
    auto& service = context_.restoreService();
    // The daemon does not take its own writes for the user's changes.
    if (engine_) service.beforeWrite = [this](const std::vector<std::string>& paths) { engine_->suppress(paths); };
    try {
        RestoreReport report;
        if (auto previous = request.path("previous")) {
            auto found = context_.folders().folderContaining(*previous);
            if (!found || found->second.empty())
                throw ApiError(404, DisplayName::of(*previous) + " is not inside a watched folder");
            report = service.restorePrevious(found->first.id, found->second);
        } else {
            const auto version = request.identifier("version");
            if (!version) throw ApiError(400, "The request names no version to restore");
            report = service.restore(*version, request.flag("inPlace").value_or(false) ? RestoreMode::replaceInPlace
                                                                                      : RestoreMode::copyBeside);
        }
        nlohmann::json answer = {{"mode", std::string(toString(report.mode))}};
        putPath(answer, "restoredPath", report.restoredPath);
        answer["preRestoreVersionID"] =
            report.preRestoreVersionID ? nlohmann::json(*report.preRestoreVersionID) : nlohmann::json();
        return answer;
    } catch (const RestoreError& error) {
        const int status = error.kind() == RestoreError::Kind::blockedBySafetyPolicy ? 403
                           : error.kind() == RestoreError::Kind::failed            ? 500
                                                                                   : 404;
        // The user's sentence for the error, then what exactly happened.
        if (error.kind() == RestoreError::Kind::noPrevious) throw ApiError(status, error.what());
        throw ApiError(status, StringTable::text(error.textKey()) + " (" + error.what() + ")");
    }
}

nlohmann::json ApiHandlers::rewind(const ApiRequest& request) {
    WatchedFolder folder = folderOf(request);
    const double target = CompareRequests::rewindTarget(context_, folder, request);
    const auto fingerprint = request.text("planFingerprint");
    auto& service = context_.rewindService();
    if (engine_) service.beforeWrite = [this](const std::vector<std::string>& paths) { engine_->suppress(paths); };
    try {
        // Planned here, at the moment of writing, so that the plan is of the folder as it is now;
        // when the caller showed a plan, this one must be that one, or nothing is written.
        const RewindPlan plan = service.plan(folder, target);
        if (fingerprint && *fingerprint != plan.fingerprint())
            throw ApiError(409, DisplayName::of(folder.path) +
                                    " changed since the plan was shown, so nothing was changed; run the command "
                                    "again to see the new plan");
        auto report = service.rewind(folder, plan);
        nlohmann::json failed = nlohmann::json::array();
        for (const auto& path : report.failedPaths) failed.push_back(displayableUtf8(path));
        return {{"target", formatInstant(report.target)},     {"beforeRewindAt", formatInstant(report.beforeRewindAt)},
                {"revertedCount", report.revertedCount},      {"restoredCount", report.restoredCount},
                {"removedCount", report.removedCount},        {"failedPaths", failed}};
    } catch (const RewindError& error) {
        throw ApiError(error.kind() == RewindError::Kind::nothingToDo ? 409 : 403,
                       StringTable::text(error.textKey()) + " (" + error.what() + ")");
    }
}

nlohmann::json ApiHandlers::star(const ApiRequest& request, bool starred) {
    const auto id = request.identifier("version");
    if (!id) throw ApiError(400, "The request names no version");
    if (!context_.storeExists() || !context_.catalog().version(*id))
        throw ApiError(404, "There is no version " + std::to_string(*id));
    context_.catalog().setStarred(*id, starred);
    return {{"id", *id}, {"isStarred", starred}};
}

nlohmann::json ApiHandlers::prune(const ApiRequest& request) {
    const bool dryRun = request.flag("dryRun").value_or(false);
    if (!context_.storeExists()) return {{"ran", false}, {"dryRun", dryRun}};
    const auto report = context_.pruneAllPass().run(context_.clock().now(), dryRun);
    nlohmann::json folders = nlohmann::json::array();
    for (const auto& entry : report.folders) {
        nlohmann::json folder = {{"folderID", entry.folder.id},
                                 {"prunedCount", entry.result.removedCount},
                                 {"freedBytes", entry.result.freedBytes},
                                 {"overBudget", entry.result.overBudget},
                                 {"logicalBytes", entry.logicalBytes},
                                 {"budget", StorageBudget::describe(entry.folder.budget)},
                                 {"budgetBytes", entry.budgetBytes ? nlohmann::json(*entry.budgetBytes) : nlohmann::json()},
                                 {"expiredMarkCount", entry.result.markCount}};
        putPath(folder, "path", entry.folder.path);
        if (entry.failure) folder["failure"] = *entry.failure;
        folders.push_back(folder);
    }
    return {{"ran", report.ran},
            {"dryRun", report.dryRun},
            {"prunedCount", report.removedCount},
            {"freedBytes", report.freedBytes},
            {"orphanSlotCount", report.sweep.slotsRemoved},
            {"orphanBytes", report.sweep.bytesRemoved},
            {"stagingItemCount", report.sweep.stagingItemsRemoved},
            {"folders", folders}};
}

nlohmann::json ApiHandlers::search(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request, false);
    const std::string scopeName = request.text("scope").value_or("contents");
    if (scopeName != "contents" && scopeName != "names")
        throw ApiError(400, "'scope' is contents or names, not '" + scopeName + "'");
    const auto scope = scopeName == "names" ? ContentSearchModel::Scope::names : ContentSearchModel::Scope::contents;
    nlohmann::json answer = {{"scope", scopeName}, {"groups", nlohmann::json::array()}, {"pending", 0}};
    if (!context_.storeExists()) return answer;
    ContentSearchModel* model;
    {
        std::lock_guard guard(searchLock_);
        // One model for the daemon's life: it recounts the pending texts at most every 30 s.
        if (!searchModel_) searchModel_ = std::make_unique<ContentSearchModel>(context_.readCatalog(), context_.clock());
        model = searchModel_.get();
    }
    const auto outcome = model->search(scope, {request.text("text").value_or(""), true, folder.id});
    for (const auto& group : outcome.groups) answer["groups"].push_back(toJson(group, folder.path));
    for (const auto& file : outcome.files) answer["groups"].push_back(toJson(file, folder.path));
    if (outcome.searched && scope == ContentSearchModel::Scope::contents) answer["pending"] = model->pending();
    if (outcome.messageKey) {
        answer["messageKey"] = *outcome.messageKey;
        answer["message"] = StringTable::text(*outcome.messageKey);
    }
    return answer;
}

nlohmann::json ApiHandlers::exportFolder(const ApiRequest& request) {
    const WatchedFolder folder = folderOf(request, false);
    const std::string momentText = request.text("moment").value_or("");
    const auto reading = readUserInstant(momentText);
    if (!reading.instant) throw ApiError(400, userInstantRefusal(momentText, reading));
    const auto destination = request.path("destination");
    if (!destination || !isAbsolutePath(*destination)) throw ApiError(400, "'destination' must be an absolute path");
    if (!context_.storeExists()) throw ApiError(404, "Vosklin has no history of " + DisplayName::of(folder.path) + " yet");
    const double at = FolderHistory::load(context_.catalog(), folder.id).stateInstant(*reading.instant);
    FolderExport exporter(context_.catalog(), context_.layout(), context_.cloner(), context_.fileSystem());
    try {
        return toJson(exporter.run(folder, at, *destination), folder.id, at);
    } catch (const ExportError& error) {
        throw ApiError(409, error.what());
    }
}

nlohmann::json ApiHandlers::index(const ApiRequest& request) {
    const std::string action = request.text("action").value_or("status");
    if (action != "status" && action != "clear" && action != "now")
        throw ApiError(400, "'action' is status, clear or now, not '" + action + "'");
    nlohmann::json answer = {{"action", action}};
    if (!context_.storeExists()) {
        answer.update({{"indexed", 0}, {"withoutText", 0}, {"failed", 0}, {"pending", 0}, {"textBytes", 0}});
        return answer;
    }
    auto& indexer = context_.contentIndexer();
    if (action == "clear") indexer.clear();
    if (action == "now") {
        const auto budget = request.integer("budget", 1, ContentIndexer::unlimited).value_or(ContentIndexer::unlimited);
        const auto report = indexer.requestAndWait(budget);
        answer["run"] = {{"versions", report.versions},
                         {"indexed", report.indexed},
                         {"withoutText", report.withoutText},
                         {"failed", report.failed},
                         {"end", ContentIndexer::describe(report.end)},
                         {"finished", report.end == ContentIndexer::End::nothingLeft}};
    }
    auto& catalog = context_.catalog();
    const auto counts = catalog.contentIndexCounts();
    answer.update({{"indexed", counts.indexed},
                   {"withoutText", counts.withoutText},
                   {"failed", counts.failed},
                   {"pending", catalog.digestsToIndexCount()},
                   {"textBytes", catalog.storedTextBytes()}});
    return answer;
}

nlohmann::json ApiHandlers::erase(const ApiRequest& request) {
    if (!context_.storeExists()) throw ApiError(404, "Vosklin has no history yet");
    auto& catalog = context_.catalog();
    std::vector<HistoryEraser::Selection> selections;
    std::string folderID;
    std::string scope = "version";
    if (auto path = request.path("path")) {
        auto found = context_.folders().folderContaining(*path);
        if (!found || found->second.empty())
            throw ApiError(404, DisplayName::of(*path) + " is not inside a watched folder");
        auto file = catalog.fileAtPath(found->first.id, found->second);
        if (!file) throw ApiError(404, "Vosklin has no history of " + DisplayName::of(*path));
        auto versions = catalog.versionsOfFile(file->id, std::numeric_limits<std::int64_t>::max());
        const auto count = std::int64_t(versions.size());
        folderID = file->folderID;
        selections.push_back({*file, std::move(versions), count});
        scope = "file";
    } else {
        const auto ids = request.identifiers("versions", 100'000);
        if (!ids || ids->empty()) throw ApiError(400, "The request names no versions to delete");
        std::map<std::int64_t, std::size_t> byFile;
        for (std::int64_t id : *ids) {
            auto version = catalog.version(id);
            if (!version) throw ApiError(404, "There is no version " + std::to_string(id));
            auto known = byFile.find(version->fileID);
            if (known == byFile.end()) {
                auto file = catalog.requireFile(version->fileID);
                if (!folderID.empty() && file.folderID != folderID)
                    throw ApiError(400, "Those versions belong to different folders; delete them one folder at a time");
                folderID = file.folderID;
                known = byFile.emplace(version->fileID, selections.size()).first;
                selections.push_back({file, {}, catalog.versionCount(file.id)});
            }
            auto& chosen = selections[known->second].versions;
            if (std::none_of(chosen.begin(), chosen.end(), [&](const auto& v) { return v.id == id; }))
                chosen.push_back(*version);
        }
    }
    HistoryEraser eraser(catalog, context_.layout(), context_.logger());
    const auto preview = eraser.preview(folderID, selections);
    nlohmann::json answer = {{"versionCount", preview.versionCount},
                             {"reclaimableBytes", preview.reclaimableBytes},
                             {"includesStarred", preview.includesStarred},
                             {"includesUndoCopy", preview.includesUndoCopy},
                             {"erasesLastCopyOfDeletedFile", preview.erasesLastCopyOfDeletedFile},
                             {"erasesWholeLiveFile", preview.erasesWholeLiveFile},
                             {"vanishingMomentNames", preview.vanishingMomentNames},
                             {"scope", scope},
                             {"folderID", folderID}};
    nlohmann::json ids = nlohmann::json::array();
    for (const auto& selection : selections)
        for (const auto& version : selection.versions) ids.push_back(version.id);
    answer["versionIDs"] = ids;
    if (!request.flag("dryRun").value_or(false)) answer["deletedCount"] = eraser.erase(folderID, selections);
    return answer;
}

nlohmann::json ApiHandlers::run(const std::string& name, const ApiRequest& request) {
    nlohmann::json answer = dispatch(name, request);
    announce(name, request, answer);
    return answer;
}

void ApiHandlers::announce(const std::string& name, const ApiRequest& request, const nlohmann::json& answer) {
    if (!changeFeed_ || (request.has("dryRun") && request.json()["dryRun"] == true)) return;
    std::string what;
    if (name == "name" || name == "unname" || name == "star" || name == "unstar" || name == "restore" ||
        name == "rewind" || name == "delete") {
        what = "history";
    } else if (name == "prune") {
        bool removed = answer.value("prunedCount", 0) > 0;
        for (const auto& folder : answer.value("folders", nlohmann::json::array()))
            removed = removed || folder.value("expiredMarkCount", 0) > 0;
        if (removed) what = "history";
    } else if (name.starts_with("folder") && name != "folders") {
        what = "folders";
    } else if (name == "setting") {
        what = "settings";
    }
    if (what.empty()) return;
    // The folder requests answer with the folder itself, whose id is "id".
    const auto field = [&](const char* key) {
        const auto found = answer.is_object() ? answer.find(key) : answer.end();
        return found != answer.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const std::string folderID = field("folderID");
    changeFeed_->publish(what, !folderID.empty() || what != "folders" ? folderID : field("id"));
}

ApiResponse ApiHandlers::answer(const std::string& name, const std::string& body) {
    try {
        return {200, run(name, ApiRequest::parse(body))};
    } catch (const ApiError& error) {
        return {error.status(), {{"error", error.what()}}};
    } catch (const nlohmann::json::exception&) {
        // A field the handlers failed to check: still the request's fault, and the
        // library's own text would tell the caller nothing.
        return {400, {{"error", "The request's fields do not have the types this request takes"}}};
    } catch (const std::exception& error) {
        return {500, {{"error", error.what()}}};
    }
}

nlohmann::json ApiHandlers::call(const std::string& name, const nlohmann::json& request) {
    return run(name, ApiRequest(request));
}

nlohmann::json ApiHandlers::dispatch(const std::string& name, const ApiRequest& request) {
    if (name == "status") {
        nlohmann::json response;
        response["daemon"] = engine_ != nullptr;
        if (engine_) {
            auto stats = engine_->stats();
            response["pid"] = ::getpid();
            response["stats"] = {{"unitsSeen", stats.unitsSeen}, {"stored", stats.stored},
                                 {"deduped", stats.deduped},     {"skipped", stats.skipped},
                                 {"failed", stats.failed},       {"tombstoned", stats.tombstoned},
                                 {"renamed", stats.renamed},     {"pending", stats.pending},
                                 {"isCrawling", stats.isCrawling}};
            response["folders"] = nlohmann::json::array();
            for (const auto& state : engine_->folderStates()) {
                auto folder = toJson(state.folder);
                folder["reachable"] = state.reachable;
                if (!state.reachable) folder["unreachableReason"] = state.reason;
                folder["watched"] = state.watched;
                folder["degraded"] = state.degraded;
                response["folders"].push_back(folder);
            }
        }
        return response;
    }
    if (name == "snapshot") {
        WatchedFolder folder = folderOf(request);
        CrawlCancellation cancellation;
        SnapshotReport report;
        if (engine_) {
            report = engine_->snapshot(folder, cancellation);
        } else {
            auto crawler = context_.makeCrawler();
            const CrawlOptions options = CrawlOptions::snapshot();
            auto crawl = crawler.crawl(folder, "snapshot", cancellation, options);
            report = {folder.id,     crawl.captured,        crawl.tombstoned,
                      crawl.startedAt, *options.batchID,    crawl.failed,
                      crawl.cancelled, crawl.unreadableCount, crawl.unreadablePaths};
        }
        nlohmann::json unreadable = nlohmann::json::array();
        for (const auto& path : report.unreadablePaths) unreadable.push_back(displayableUtf8(path));
        return {{"folderID", report.folderID}, {"captured", report.captured}, {"tombstoned", report.tombstoned},
                {"at", formatInstant(report.at)}, {"batchID", report.batchID}, {"failed", report.failed},
                {"cancelled", report.cancelled}, {"unreadableCount", report.unreadableCount},
                {"unreadablePaths", unreadable}};
    }
    if (name == "scan") {
        WatchedFolder folder = folderOf(request);
        CrawlCancellation cancellation;
        if (engine_) return toJson(engine_->scan(folder, cancellation));
        auto crawler = context_.makeCrawler();
        return toJson(crawler.crawl(folder, "scan", cancellation));
    }
    if (name == "settle") {
        if (!engine_) throw ApiError(409, "No Vosklin daemon is running for this home");
        const double timeout = request.number("timeout", 0, 86400).value_or(60.0);
        return {{"settled", engine_->barrier(timeout)}};
    }
    if (name == "name" || name == "unname") return mark(request, name == "name");
    if (name == "star" || name == "unstar") return star(request, name == "star");
    if (HistoryRequests::handles(name)) return HistoryRequests(context_).answer(name, request);
    if (name == "index") return index(request);
    if (auto answer = folderRequests_.answer(name, request)) return *answer;
    if (auto answer = compareRequests_.answer(name, request)) return *answer;
    if (name == "pdfinfo") return ServedFiles(context_).pdfInfo(request);
    if (name == "logincode") {
        if (!loginCodes_) throw ApiError(409, "No Vosklin daemon is running for this home");
        return {{"code", loginCodes_()}};
    }
    if (name == "search") return search(request);
    if (name == "restore" || name == "rewind" || name == "prune" || name == "delete" || name == "export") {
        std::lock_guard guard(historyLock_);
        if (name == "export") return exportFolder(request);
        if (name == "restore") return restore(request);
        if (name == "rewind") return rewind(request);
        if (name == "prune") return prune(request);
        return erase(request);
    }
    throw ApiError(404, "Unknown request '" + name + "'");
}

}  // namespace vosklin

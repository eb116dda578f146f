#include "app/ApiHandlers.h"

#include <unistd.h>

#include <cstdlib>

#include "app/JsonRecords.h"
#include "app/UserInstant.h"
#include "history/FolderHistory.h"
#include "bridge/FolderAccess.h"
#include "bridge/FolderListError.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/StringTable.h"

namespace vosklin {

ApiHandlers::ApiHandlers(AppContext& context, CaptureEngine* engine) : context_(context), engine_(engine) {}

WatchedFolder ApiHandlers::folderOf(const nlohmann::json& request, bool mustBeReachable) {
    if (!request.is_object() || !request.contains("folder") || !request["folder"].is_string())
        throw ApiError(400, "The request names no folder");
    WatchedFolder folder;
    try {
        folder = context_.folders().require(getPath(request, "folder"));
    } catch (const FolderListError& error) {
        throw ApiError(404, error.what());
    }
    if (!mustBeReachable) return folder;
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw ApiError(409, displayableUtf8(folder.path) + " " + reach.reason);
    return folder;
}

nlohmann::json ApiHandlers::mark(const nlohmann::json& request, bool naming) {
    WatchedFolder folder = folderOf(request, false);
    const std::string momentText = request.value("moment", "");
    const auto reading = readUserInstant(momentText);
    if (!reading.instant) throw ApiError(400, userInstantRefusal(momentText, reading));
    const auto instant = reading.instant;
    FolderHistory history;
    if (context_.storeExists()) history = FolderHistory::load(context_.catalog(), folder.id);
    auto moment = history.momentAt(*instant);
    if (!moment)
        throw ApiError(404, "There is no moment at " + momentText + " in " + displayableUtf8(folder.path) +
                                " (see 'vosklin history')");
    if (naming) {
        const std::string name = request.value("name", "");
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

nlohmann::json ApiHandlers::restore(const nlohmann::json& request) {
    auto& service = context_.restoreService();
    // The daemon does not take its own writes for the user's changes.
    if (engine_) service.beforeWrite = [this](const std::vector<std::string>& paths) { engine_->suppress(paths); };
    try {
        RestoreReport report;
        if (request.contains("previous")) {
            auto found = context_.folders().folderContaining(getPath(request, "previous"));
            if (!found || found->second.empty())
                throw ApiError(404, displayableUtf8(getPath(request, "previous")) + " is not inside a watched folder");
            report = service.restorePrevious(found->first.id, found->second);
        } else {
            const std::int64_t version = request.value("version", std::int64_t(0));
            report = service.restore(version, request.value("inPlace", false) ? RestoreMode::replaceInPlace
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

nlohmann::json ApiHandlers::rewind(const nlohmann::json& request) {
    WatchedFolder folder = folderOf(request);
    // A number is the exact instant. Text is as people read it, rounded to the
    // microsecond: it is taken as the moment it names, whose exact instant the
    // state must be read at (a hair earlier would miss the moment's own versions).
    std::optional<double> target;
    if (request.contains("target") && request["target"].is_number()) {
        target = request["target"].get<double>();
    } else if (request.contains("target") && request["target"].is_string()) {
        const auto reading = readUserInstant(request["target"].get<std::string>());
        if (!reading.instant) throw ApiError(400, userInstantRefusal(request["target"].get<std::string>(), reading));
        target = reading.instant;
        if (target && context_.storeExists())
            target = FolderHistory::load(context_.catalog(), folder.id).stateInstant(*target);
    }
    if (!target) throw ApiError(400, "The request names no instant to go back to");
    auto& service = context_.rewindService();
    if (engine_) service.beforeWrite = [this](const std::vector<std::string>& paths) { engine_->suppress(paths); };
    try {
        // Planned here, at the moment of writing, so that the plan is of the folder as it is now;
        // when the caller showed a plan, this one must be that one, or nothing is written.
        const RewindPlan plan = service.plan(folder, *target);
        if (request.contains("planFingerprint") &&
            (!request["planFingerprint"].is_string() || request["planFingerprint"] != plan.fingerprint()))
            throw ApiError(409, displayableUtf8(folder.path) +
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

nlohmann::json ApiHandlers::star(const nlohmann::json& request, bool starred) {
    const std::string text = request.contains("version") && request["version"].is_number_integer()
                                 ? std::to_string(request["version"].get<std::int64_t>())
                                 : request.value("version", "");
    char* end = nullptr;
    const long long id = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || id <= 0) throw ApiError(400, "'" + text + "' is not a version number");
    if (!context_.storeExists() || !context_.catalog().version(id)) throw ApiError(404, "There is no version " + text);
    context_.catalog().setStarred(id, starred);
    return {{"id", id}, {"isStarred", starred}};
}

nlohmann::json ApiHandlers::call(const std::string& name, const nlohmann::json& request) {
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
            report = {folder.id, crawl.captured, crawl.tombstoned, crawl.startedAt, *options.batchID, crawl.failed,
                      crawl.cancelled};
        }
        return {{"folderID", report.folderID}, {"captured", report.captured}, {"tombstoned", report.tombstoned},
                {"at", formatInstant(report.at)}, {"batchID", report.batchID}, {"failed", report.failed},
                {"cancelled", report.cancelled}};
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
        const double timeout = request.is_object() ? request.value("timeout", 60.0) : 60.0;
        return {{"settled", engine_->barrier(timeout)}};
    }
    if (name == "name" || name == "unname") return mark(request, name == "name");
    if (name == "star" || name == "unstar") return star(request, name == "star");
    if (name == "restore") return restore(request);
    if (name == "rewind") return rewind(request);
    throw ApiError(404, "Unknown request '" + name + "'");
}

}  // namespace vosklin

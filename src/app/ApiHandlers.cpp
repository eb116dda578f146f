#include "app/ApiHandlers.h"

#include <unistd.h>

#include "app/JsonRecords.h"
#include "bridge/FolderAccess.h"
#include "bridge/FolderListError.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/Uuid.h"

namespace vosklin {

ApiHandlers::ApiHandlers(AppContext& context, CaptureEngine* engine) : context_(context), engine_(engine) {}

WatchedFolder ApiHandlers::folderOf(const nlohmann::json& request) {
    if (!request.is_object() || !request.contains("folder") || !request["folder"].is_string())
        throw ApiError(400, "The request names no folder");
    WatchedFolder folder;
    try {
        folder = context_.folders().require(getPath(request, "folder"));
    } catch (const FolderListError& error) {
        throw ApiError(404, error.what());
    }
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw ApiError(409, displayableUtf8(folder.path) + " " + reach.reason);
    return folder;
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
            CrawlOptions options;
            options.source = CaptureSource::manual;
            options.batchID = makeUuid();
            options.captureEverything = true;
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
    throw ApiError(404, "Unknown request '" + name + "'");
}

}  // namespace vosklin

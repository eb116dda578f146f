#include "app/ScanCommand.h"

#include <cstdio>

#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/InterruptibleRun.h"
#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "bridge/FolderAccess.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"

namespace vosklin {
namespace {

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", value);
    return text;
}

void readUnreadable(const nlohmann::json& json, CrawlReport& report) {
    report.unreadableCount = json.value("unreadableCount", std::int64_t(0));
    for (const auto& path : json.value("unreadablePaths", nlohmann::json::array()))
        if (path.is_string()) report.unreadablePaths.push_back(path.get<std::string>());
}

void printUnreadable(std::ostream& out, const CrawlReport& report) {
    if (!report.unreadableCount) return;
    out << "  " << report.unreadableCount << (report.unreadableCount == 1 ? " item" : " items")
        << " could not be read, and what they hold was not recorded:\n";
    for (const auto& path : report.unreadablePaths) out << "    " << DisplayName::of(path) << "\n";
    if (report.unreadableCount > std::int64_t(report.unreadablePaths.size())) out << "    ...\n";
}

int exitStatusOf(const CrawlReport& report) {
    if (report.failed || report.cancelled) return 1;
    return report.unreadableCount ? exitSomeUnreadable : 0;
}

CrawlReport crawlReportFrom(const nlohmann::json& json) {
    CrawlReport report;
    report.folderID = json.value("folderID", "");
    report.reason = json.value("reason", "");
    report.source = captureSourceFromString(json.value("source", "crawl")).value_or(CaptureSource::crawl);
    for (auto [field, key] : {std::pair{&report.examined, "examined"}, {&report.captured, "captured"},
                              {&report.unchanged, "unchanged"}, {&report.skipped, "skipped"},
                              {&report.failed, "failed"}, {&report.renamed, "renamed"},
                              {&report.tombstoned, "tombstoned"}})
        *field = json.value(key, std::int64_t(0));
    readUnreadable(json, report);
    report.cancelled = json.value("cancelled", false);
    report.startedAt = parseInstant(json.value("startedAt", "")).value_or(0);
    report.finishedAt = parseInstant(json.value("finishedAt", "")).value_or(report.startedAt);
    return report;
}

}  // namespace

ScanCommand::ScanCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

CrawlReport ScanCommand::run(const WatchedFolder& folder, const std::string& reason, const CrawlOptions& options,
                             bool json) {
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw CommandError(DisplayName::of(folder.path) + " " + reach.reason);
    auto crawler = context_.makeCrawler();
    CrawlCancellation cancellation;
    CrawlReport report;
    ProgressBar bar(err_, json ? -1 : 2, reason == "snapshot" ? "Snapshot" : "Scanning");
    runInterruptible([&] { report = crawler.crawl(folder, reason, cancellation, options, [&](auto done, auto total) {
                         bar.update(done, total);
                     }); },
                     [&] { cancellation.cancel(); });
    bar.finish();
    return report;
}

int ScanCommand::scan(const std::string& folderName, bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    CrawlReport report;
    if (auto daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot())) {
        // The daemon captures, so that its captures and this scan never interleave.
        nlohmann::json request;
        putPath(request, "folder", folder.path);
        auto answer = DaemonClient(*daemon).call("scan", request);
        report = crawlReportFrom(answer);
    } else {
        report = run(folder, "scan", {}, json);
    }
    if (json) {
        out_ << toJson(report).dump(2) << "\n";
    } else {
        out_ << (report.source == CaptureSource::baseline ? "First scan (baseline) of " : "Scanned ")
             << DisplayName::of(folder.path) << (report.cancelled ? " (stopped early)" : "") << "\n"
             << "  " << report.examined << " files examined, " << report.captured << " new versions, "
             << report.renamed << " renamed, " << report.tombstoned << " deleted";
        if (report.failed) out_ << ", " << report.failed << " could not be captured (see the log)";
        out_ << ", in " << seconds(report.finishedAt - report.startedAt) << "\n";
        printUnreadable(out_, report);
    }
    return exitStatusOf(report);
}

int ScanCommand::snapshot(const std::string& folderName, bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    CrawlReport report;
    std::string batchID;
    if (auto daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot())) {
        nlohmann::json request;
        putPath(request, "folder", folder.path);
        auto answer = DaemonClient(*daemon).call("snapshot", request);
        report.captured = answer.value("captured", std::int64_t(0));
        report.tombstoned = answer.value("tombstoned", std::int64_t(0));
        report.failed = answer.value("failed", std::int64_t(0));
        report.cancelled = answer.value("cancelled", false);
        report.startedAt = parseInstant(answer.value("at", "")).value_or(context_.clock().now());
        batchID = answer.value("batchID", "");
        readUnreadable(answer, report);
    } else {
        const CrawlOptions options = CrawlOptions::snapshot();
        report = run(folder, "snapshot", options, json);
        batchID = *options.batchID;
    }
    if (json) {
        nlohmann::json object;
        object["folderID"] = folder.id;
        object["captured"] = report.captured;
        object["tombstoned"] = report.tombstoned;
        object["at"] = formatInstant(report.startedAt);
        object["batchID"] = batchID;
        object["failed"] = report.failed;
        object["cancelled"] = report.cancelled;
        object["unreadableCount"] = report.unreadableCount;
        object["unreadablePaths"] = nlohmann::json::array();
        for (const auto& path : report.unreadablePaths) object["unreadablePaths"].push_back(displayableUtf8(path));
        out_ << object.dump(2) << "\n";
    } else {
        out_ << "Snapshot of " << DisplayName::of(folder.path) << " at " << formatLocalTime(report.startedAt)
             << (report.cancelled ? " (stopped early)" : "") << "\n"
             << "  " << report.captured << " new versions, "
             << report.tombstoned << " deleted files noted";
        if (report.failed) out_ << ", " << report.failed << " could not be captured (see the log)";
        out_ << "\n";
        printUnreadable(out_, report);
    }
    return exitStatusOf(report);
}

}  // namespace vosklin

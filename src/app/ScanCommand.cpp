#include "app/ScanCommand.h"

#include <cstdio>

#include "app/CommandError.h"
#include "app/InterruptibleRun.h"
#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "bridge/FolderAccess.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/Uuid.h"

namespace vosklin {
namespace {

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", value);
    return text;
}

}  // namespace

ScanCommand::ScanCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

CrawlReport ScanCommand::run(const WatchedFolder& folder, const std::string& reason, const CrawlOptions& options,
                             bool json) {
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw CommandError(displayableUtf8(folder.path) + " " + reach.reason);
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
    CrawlReport report = run(folder, "scan", {}, json);
    if (json) {
        out_ << toJson(report).dump(2) << "\n";
    } else {
        out_ << (report.source == CaptureSource::baseline ? "First scan (baseline) of " : "Scanned ")
             << displayableUtf8(folder.path) << (report.cancelled ? " (stopped early)" : "") << "\n"
             << "  " << report.examined << " files examined, " << report.captured << " new versions, "
             << report.renamed << " renamed, " << report.tombstoned << " deleted";
        if (report.failed) out_ << ", " << report.failed << " could not be captured (see the log)";
        out_ << ", in " << seconds(report.finishedAt - report.startedAt) << "\n";
    }
    return report.failed || report.cancelled ? 1 : 0;
}

int ScanCommand::snapshot(const std::string& folderName, bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    CrawlOptions options;
    options.source = CaptureSource::manual;
    options.batchID = makeUuid();
    options.captureEverything = true;
    CrawlReport report = run(folder, "snapshot", options, json);
    if (json) {
        nlohmann::json object;
        object["folderID"] = folder.id;
        object["captured"] = report.captured;
        object["tombstoned"] = report.tombstoned;
        object["at"] = formatInstant(report.startedAt);
        object["batchID"] = *options.batchID;
        object["failed"] = report.failed;
        object["cancelled"] = report.cancelled;
        out_ << object.dump(2) << "\n";
    } else {
        out_ << "Snapshot of " << displayableUtf8(folder.path) << " at " << formatLocalTime(report.startedAt)
             << (report.cancelled ? " (stopped early)" : "") << "\n"
             << "  " << report.captured << " new versions (" << report.unchanged << " files unchanged), "
             << report.tombstoned << " deleted files noted";
        if (report.failed) out_ << ", " << report.failed << " could not be captured (see the log)";
        out_ << "\n";
    }
    return report.failed || report.cancelled ? 1 : 0;
}

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bridge/WatchedFolder.h"
#include "capture/CaptureService.h"
#include "capture/CrawlCancellation.h"
#include "capture/FolderWalker.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"

namespace vosklin {

struct CrawlReport {
    std::string folderID;
    std::string reason;
    CaptureSource source = CaptureSource::crawl;
    std::int64_t examined = 0;    // units found on disk
    std::int64_t captured = 0;    // new versions stored
    std::int64_t unchanged = 0;   // looked at, nothing new to keep
    std::int64_t skipped = 0;     // capture skipped (vanished meanwhile, link, placeholder)
    std::int64_t failed = 0;      // capture failed; logged
    std::int64_t renamed = 0;
    std::int64_t tombstoned = 0;
    // Folders and items the walk could not read: how many, and the first few (relative paths).
    std::int64_t unreadableCount = 0;
    std::vector<std::string> unreadablePaths;
    bool cancelled = false;
    double startedAt = 0;
    double finishedAt = 0;
};

struct CrawlOptions {
    // Absent: "baseline" until the folder's first crawl has finished, "crawl" after.
    std::optional<CaptureSource> source;
    std::optional<std::string> batchID;
    // A snapshot: capture every unit, not only those that look changed.
    bool captureEverything = false;
    // Only this part of the folder (relative, "/"-separated; empty: all of it), as
    // when a directory moved in. Rows elsewhere are left alone and the baseline
    // state is not touched.
    std::string subtree;

    // What the user's snapshot is: every unit, source "manual", one fresh batch.
    static CrawlOptions snapshot();
};

// How many unreadable paths a report names; the count says how many there were.
inline constexpr std::size_t unreadablePathsShown = 5;

// Brings the catalog in line with a folder as it is on disk: the first pass
// (baseline), the catch-up after a restart or a dropped event queue, and
// snapshots.
//
// One walk of the folder (FolderWalker) and one read of its rows: a unit is
// captured when it has no live row, or its inode, size or modification time
// says it changed since its newest version (the capture's digest settles the
// rest). A path with no row whose inode belongs to a live row whose path is
// gone is that file renamed: its row follows it and keeps its history. Live
// rows whose path is gone are tombstoned. Captures go to the capture service in
// batches, so durability costs one sync per batch.
//
// Cancellation stops it between units; a cancelled crawl records no
// tombstones and does not mark the baseline done. Progress is reported as
// (units done, units found). Per-unit failures are logged ("Capture failed:
// ...") and counted; the crawl goes on.
class ReconciliationCrawler {
public:
    using Progress = std::function<void(std::int64_t done, std::int64_t total)>;
    static constexpr std::size_t batchSize = 200;

    ReconciliationCrawler(VersionCatalog& catalog, CaptureService& capture, FolderWalker& walker,
                          FileSystem& fileSystem, Clock& clock, Logger& logger);

    CrawlReport crawl(const WatchedFolder& folder, const std::string& reason, const CrawlCancellation& cancellation,
                      const CrawlOptions& options = {}, const Progress& progress = nullptr);

private:
    VersionCatalog& catalog_;
    CaptureService& capture_;
    FolderWalker& walker_;
    FileSystem& fileSystem_;
    Clock& clock_;
    Logger& logger_;
};

}  // namespace vosklin

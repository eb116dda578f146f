#include "capture/ReconciliationCrawler.h"

#include <unordered_map>
#include <unordered_set>

#include "platform/DisplayName.h"
#include "platform/ErrorText.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/Uuid.h"

namespace vosklin {
namespace {

std::optional<std::string> extensionOf(const std::string& path) {
    std::string extension = pathExtension(path);
    if (extension.empty()) return std::nullopt;
    return extension;
}

}  // namespace

CrawlOptions CrawlOptions::snapshot() {
    CrawlOptions options;
    options.source = CaptureSource::manual;
    options.batchID = makeUuid();
    options.captureEverything = true;
    return options;
}

ReconciliationCrawler::ReconciliationCrawler(VersionCatalog& catalog, CaptureService& capture, FolderWalker& walker,
                                             FileSystem& fileSystem, Clock& clock, Logger& logger)
    : catalog_(catalog), capture_(capture), walker_(walker), fileSystem_(fileSystem), clock_(clock), logger_(logger) {}

CrawlReport ReconciliationCrawler::crawl(const WatchedFolder& folder, const std::string& reason,
                                         const CrawlCancellation& cancellation, const CrawlOptions& options,
                                         const Progress& progress) {
    CrawlReport report;
    report.folderID = folder.id;
    report.reason = reason;
    report.startedAt = clock_.now();
    const auto watchState = catalog_.watchState(folder.id);
    report.source = options.source.value_or(watchState && watchState->baselineDone ? CaptureSource::crawl
                                                                                   : CaptureSource::baseline);

    const std::string& subtree = options.subtree;
    auto walk = walker_.walk(subtree.empty() ? folder.path : joinPath(folder.path, subtree),
                             [&] { return cancellation.isCancelled(); });
    auto& units = walk.units;
    if (!subtree.empty()) {
        for (auto& unit : units) unit.relativePath = subtree + "/" + unit.relativePath;
        for (auto& path : walk.unreadable) path = path == "." ? subtree : subtree + "/" + path;
    }
    report.examined = std::int64_t(units.size());
    report.unreadableCount = std::int64_t(walk.unreadable.size());
    for (const auto& path : walk.unreadable) {
        if (report.unreadablePaths.size() == unreadablePathsShown) break;
        report.unreadablePaths.push_back(path);
    }
    if (!walk.unreadable.empty())
        logger_.info("Could not read " + std::to_string(walk.unreadable.size()) + " items in " +
                        DisplayName::of(folder.path) + ", first " + DisplayName::of(walk.unreadable.front()));

    // The folder's rows (in the subtree), read once.
    std::unordered_map<std::string, TrackedFile> byPath;
    std::unordered_map<std::uint64_t, std::int64_t> liveByInode;
    for (auto& file : catalog_.files(folder.id, false)) {
        std::string inside;
        if (!subtree.empty() && file.relativePath != subtree && !relativeTo(subtree, file.relativePath, inside))
            continue;
        if (!file.deletedAt && file.inode) liveByInode[*file.inode] = file.id;
        byPath.emplace(file.relativePath, std::move(file));
    }
    const auto newest = catalog_.newestVersionSummaries(folder.id);
    std::unordered_set<std::string> seen;
    for (const auto& unit : units) seen.insert(unit.relativePath);
    std::unordered_set<std::int64_t> movedAway;  // rows a rename took to a new path during this crawl

    auto isGone = [&](const std::string& relativePath) {
        if (seen.count(relativePath)) return false;
        try {
            return !fileSystem_.linkStatus(joinPath(folder.path, relativePath));
        } catch (const FileSystemError&) {
            return false;
        }
    };

    // What lies in a folder that could not be read is unknown, not deleted.
    auto isBelowUnreadable = [&](const std::string& relativePath) {
        std::string inside;
        for (const auto& unreadable : walk.unreadable)
            if (unreadable == "." || unreadable == relativePath || relativeTo(unreadable, relativePath, inside))
                return true;
        return false;
    };

    std::vector<CaptureRequest> batch;
    std::int64_t done = 0;
    auto flush = [&] {
        if (batch.empty()) return;
        // A cancelled crawl also stops the copy in progress, between its chunks.
        auto results = capture_.captureBatch(batch, [&] { return clock_.now(); }, cancellation.token());
        for (const auto& result : results) {
            if (result.error) {
                ++report.failed;
                logger_.error("Capture failed: " + describe(result.error));
            } else if (result.outcome->kind == CaptureOutcome::Kind::stored) {
                ++report.captured;
            } else if (result.outcome->kind == CaptureOutcome::Kind::unchanged) {
                ++report.unchanged;
            } else {
                ++report.skipped;
            }
        }
        done += std::int64_t(batch.size());
        batch.clear();
        if (progress) progress(done, report.examined);
    };

    for (const auto& unit : units) {
        if (cancellation.isCancelled()) break;
        const TrackedFile* row = nullptr;
        if (auto found = byPath.find(unit.relativePath); found != byPath.end()) row = &found->second;
        // An inode is only a hint: a file deleted and another created in its place can get
        // the same number, size and time (cp -p, tar, unzip). A rename found by inode is
        // captured all the same, and the digest decides; an unchanged file costs a dedupe.
        bool renamedHere = false;

        if (!row && unit.inode) {
            auto candidate = liveByInode.find(unit.inode);
            if (candidate != liveByInode.end() && !movedAway.count(candidate->second)) {
                auto old = catalog_.file(candidate->second);
                if (old && old->isPackage == unit.isPackage && isGone(old->relativePath)) {
                    catalog_.recordRename(old->id, unit.relativePath, extensionOf(unit.relativePath), clock_.now());
                    ++report.renamed;
                    movedAway.insert(old->id);
                    byPath.erase(old->relativePath);
                    old->relativePath = unit.relativePath;
                    old->deletedAt.reset();
                    row = &byPath.emplace(unit.relativePath, *old).first->second;
                    renamedHere = true;
                }
            }
        }

        bool changed = options.captureEverything || renamedHere || !row || row->deletedAt.has_value();
        if (!changed) {
            auto summary = newest.find(row->id);
            changed = summary == newest.end() || !row->inode || *row->inode != unit.inode ||
                      summary->second.logicalBytes != unit.size || unit.modifiedAt > summary->second.capturedAt;
        }
        if (!changed) {
            ++report.unchanged;
            ++done;
            continue;
        }
        batch.push_back({folder.id, folder.path, unit.path, unit.isPackage, report.source, options.batchID});
        if (batch.size() >= batchSize) flush();
    }
    flush();
    if (progress) progress(done, report.examined);

    report.cancelled = cancellation.isCancelled();
    if (!report.cancelled) {
        for (const auto& [path, file] : byPath) {
            if (file.deletedAt || movedAway.count(file.id) || isBelowUnreadable(path) || !isGone(path)) continue;
            try {
                catalog_.markDeleted(file.id, clock_.now());
                ++report.tombstoned;
            } catch (const std::exception& error) {
                logger_.error("Tombstone failed: " + std::string(error.what()));
            }
        }
    }
    if (!report.cancelled && subtree.empty()) {
        WatchState state = watchState.value_or(WatchState{folder.id, std::nullopt, std::nullopt, false, std::nullopt});
        state.baselineDone = true;
        state.lastCrawlAt = clock_.now();
        catalog_.writeWatchState(state);
        catalog_.recordUnreadable(folder.id, {report.unreadableCount, report.unreadablePaths});
    }
    report.finishedAt = clock_.now();
    logger_.info("Crawl (" + reason + ") examined " + std::to_string(report.examined) + ", captured " +
                 std::to_string(report.captured));
    return report;
}

}  // namespace vosklin

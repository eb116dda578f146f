#include "capture/CaptureEngine.h"

#include <algorithm>
#include <chrono>

#include "bridge/FolderAccess.h"
#include "platform/ErrorText.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"
#include "store/StoreLocator.h"

namespace vosklin {
namespace {

constexpr double tickInterval = 0.5;
constexpr double checkpointInterval = 60;
constexpr double heartbeatInterval = 21'600;
constexpr double degradedCrawlInterval = 300;
// A path that holds a file again this soon after a rename took its history away
// (a backup renamed aside, then the new content written in its place) takes it back.
constexpr double comeBackWindow = 5;

bool isReserved(const std::string& path, const std::string& home) {
    if (path == "/" || (!home.empty() && path == home)) return true;
    for (const char* root : {"/proc", "/sys", "/dev", "/run"}) {
        std::string relative;
        if (path == root || relativeTo(root, path, relative)) return true;
    }
    return false;
}

bool isCancelledCopy(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const CloneError& clone) {
        return clone.kind() == CloneError::Kind::cancelled;
    } catch (...) {
        return false;
    }
}

}  // namespace

CaptureEngine::CaptureEngine(Collaborators collaborators, TimerPolicy timers, std::string homeDirectory)
    : c_(collaborators), timers_(timers), homeDirectory_(std::move(homeDirectory)) {}

CaptureEngine::~CaptureEngine() { stop(); }

ExcludeRules CaptureEngine::excludeRules() {
    return ExcludeRules::fromSettings(c_.settings);
}

PackageKinds CaptureEngine::packageKinds() {
    return PackageKinds::fromSettings(c_.settings);
}

FolderWalker CaptureEngine::makeWalker() { return FolderWalker(c_.fileSystem, excludeRules(), packageKinds()); }

WatchCoordinator::Settings CaptureEngine::coordinatorSettings() {
    WatchCoordinator::Settings settings;
    auto merge = c_.settings.number("vosklin.mergeWindowSeconds");
    if (merge && *merge > 0) settings.mergeWindow = *merge;
    return settings;
}

void CaptureEngine::start() {
    std::lock_guard tickGuard(tickLock_);
    if (running_) return;
    c_.layout.prepareDirectories();
    {
        std::lock_guard guard(lock_);
        captureStop_ = std::stop_source();
        captureWorkerStopping_ = false;
    }
    running_ = true;
    starting_ = true;
    rebuildTargets();
    starting_ = false;
    {
        std::lock_guard guard(lock_);
        unreachable_.clear();
    }
    std::size_t withAccess = 0;
    for (auto& state : folderStates()) {
        if (!state.reachable || !state.folder.isRecording()) continue;
        ++withAccess;
        // The start-up crawl replays what changed while Vosklin was not running.
        if (state.folder.mode == CaptureMode::automatic) queueCrawl(state.folder.id, "startup");
    }
    crawlThread_ = std::thread([this] { crawlLoop(); });
    if (timers_ == TimerPolicy::runLoop) {
        captureThread_ = std::thread([this] { captureLoop(); });
        loopThread_ = std::thread([this] { loop(); });
    }
    c_.logger.info("Capture engine started over " + std::to_string(withAccess) + " folders");
}

void CaptureEngine::stop() {
    if (!running_.exchange(false)) return;
    {
        std::lock_guard guard(lock_);
        if (crawlCancellation_) crawlCancellation_->cancel();
        crawls_.clear();
        captureWorkerStopping_ = true;
    }
    // Captures in progress stop at their next chunk; the worker then works
    // through what is queued on the same terms and ends.
    captureStop_.request_stop();
    changed_.notify_all();
    if (loopThread_.joinable()) loopThread_.join();
    if (crawlThread_.joinable()) crawlThread_.join();
    if (captureThread_.joinable()) captureThread_.join();
    std::lock_guard tickGuard(tickLock_);
    if (watcher_) watcher_->stop();
    // What has settled is captured as far as a stopped capture goes; the rest is the next start-up crawl's.
    tick();
    checkpoint();
    watcher_.reset();
    c_.logger.info("Capture engine stopped");
}

void CaptureEngine::rebuildTargets() {
    std::lock_guard tickGuard(tickLock_);
    std::vector<WatchedFolder> folders;
    try {
        folders = c_.folders.folders();
    } catch (const std::exception& error) {
        c_.logger.error(std::string("Cannot read the folder list: ") + error.what());
    }
    {
        auto seen = c_.fileSystem.status(c_.folders.path());
        std::lock_guard guard(lock_);
        folderListSeen_ = seen;
    }
    FolderAccess access(c_.fileSystem);
    std::vector<WatchTarget> targets;
    std::uint64_t lastEventID = 0;
    for (const auto& folder : folders) {
        if (isReserved(folder.path, homeDirectory_)) {
            c_.logger.error("Refusing a reserved root: " + folder.path);
            continue;
        }
        auto reach = access.check(folder);
        {
            std::lock_guard guard(lock_);
            if (!reach.reachable && unreachable_.insert(folder.id).second)
                c_.logger.error("Folder " + folder.path + " " + reach.reason + "; it is not recorded until it is back");
            if (reach.reachable) unreachable_.erase(folder.id);
        }
        if (!reach.reachable || !folder.isRecording() || folder.mode != CaptureMode::automatic) continue;
        targets.push_back({folder.id, folder.path});
        if (auto state = c_.catalog.watchState(folder.id); state && state->lastEventID)
            lastEventID = std::max(lastEventID, std::uint64_t(*state->lastEventID));
    }
    if (watcher_) lastEventID = std::max(lastEventID, watcher_->latestEventID());

    auto settings = coordinatorSettings();
    if (!coordinator_) {
        coordinator_ = std::make_unique<WatchCoordinator>(c_.fileSystem, c_.clock, settings, excludeRules(),
                                                          packageKinds());
        coordinator_->onDelete = [this](const WatchTarget& target, const std::string& path) { tombstone(target, path); };
    }
    coordinator_->setTargets(targets);

    const bool added = std::any_of(targets.begin(), targets.end(), [&](const WatchTarget& target) {
        return std::find(targets_.begin(), targets_.end(), target) == targets_.end();
    });
    const auto previous = targets_;
    targets_ = targets;
    if (watcher_ && !added && previous.size() == targets.size()) return;

    if (watcher_) watcher_->stop();
    InotifyWatcher::Callbacks callbacks;
    callbacks.onRecords = [this](std::vector<FSEventRecord> records) {
        std::lock_guard guard(lock_);
        enqueued_ += records.size();
        queue_.insert(queue_.end(), std::make_move_iterator(records.begin()), std::make_move_iterator(records.end()));
    };
    callbacks.onNeedsRescan = [this](RescanReason reason, const std::string& folderID) {
        c_.logger.info(std::string("FSEvents asked for a full rescan: ") + toString(reason));
        queueCrawl(folderID, toString(reason));
    };
    callbacks.onRootChanged = [this](const std::string& folderID) {
        c_.logger.error("The root of watched folder " + folderID + " was moved or deleted");
        std::lock_guard guard(lock_);
        folderListSeen_.reset();  // rebuilt on the next tick
    };
    callbacks.onMountChanged = [this] {
        std::lock_guard guard(lock_);
        folderListSeen_.reset();
    };
    watcher_ = std::make_unique<InotifyWatcher>(c_.fileSystem, c_.logger, excludeRules(), callbacks, lastEventID);
    try {
        watcher_->start(targets);
    } catch (const std::exception& error) {
        // Without live events the crawls still find every change.
        c_.logger.error(std::string("The watcher could not start: ") + error.what());
    }
    // Folders new to recording (added, resumed, reachable again) get their crawl: a
    // baseline for a new one, a catch-up for one that was paused. start() queues its own.
    if (running_ && !starting_)
        for (const auto& target : targets)
            if (std::find(previous.begin(), previous.end(), target) == previous.end())
                queueCrawl(target.folderID, "added");
}

bool CaptureEngine::foldersChanged() {
    auto now = c_.fileSystem.status(c_.folders.path());
    std::lock_guard guard(lock_);
    if (!folderListSeen_ && !now) return false;
    if (!folderListSeen_ || !now) return true;
    return now->inode != folderListSeen_->inode || now->size != folderListSeen_->size ||
           now->modifiedAt() != folderListSeen_->modifiedAt();
}

const WatchTarget* CaptureEngine::targetFor(const std::string& path) const {
    for (const auto& target : targets_) {
        std::string relative;
        if (path == target.root || relativeTo(target.root, path, relative)) return &target;
    }
    return nullptr;
}

void CaptureEngine::tombstone(const WatchTarget& target, const std::string& path) {
    std::string relative;
    if (!relativeTo(target.root, path, relative)) return;
    try {
        std::vector<std::int64_t> ids;
        for (const auto& file : c_.catalog.liveFilesAtOrBelow(target.folderID, relative)) ids.push_back(file.id);
        c_.catalog.markDeletedMany(ids, c_.clock.now());
        std::lock_guard guard(lock_);
        stats_.tombstoned += std::int64_t(ids.size());
    } catch (const std::exception& error) {
        c_.logger.error(std::string("Tombstone failed: ") + error.what());
    }
}

std::optional<std::string> CaptureEngine::bringBack(const WatchTarget& target, const std::string& path) {
    auto found = movedAway_.find(path);
    if (found == movedAway_.end()) return std::nullopt;
    const MovedAway moved = found->second;
    movedAway_.erase(found);
    std::string relative, movedTo;
    if (!c_.fileSystem.linkStatus(path) || !relativeTo(target.root, path, relative) ||
        !relativeTo(target.root, moved.to, movedTo))
        return std::nullopt;
    try {
        auto row = c_.catalog.file(moved.fileID);
        // Only a row still where the rename took it, with nothing tracked at its old path since.
        if (!row || row->relativePath != movedTo || c_.catalog.fileAtPath(target.folderID, relative)) return std::nullopt;
        auto extension = pathExtension(relative);
        c_.catalog.recordRename(moved.fileID, relative,
                                extension.empty() ? std::nullopt : std::optional<std::string>(extension), c_.clock.now());
        return moved.to;
    } catch (const std::exception& error) {
        c_.logger.error(std::string("Rename failed: ") + error.what());
        return std::nullopt;
    }
}

void CaptureEngine::handleRecords(std::vector<FSEventRecord> records) {
    std::vector<FSEventRecord> changes;
    changes.reserve(records.size());
    auto change = [&](const std::string& path, std::uint32_t flags) {
        FSEventRecord record;
        record.path = path;
        record.flags = flags;
        changes.push_back(std::move(record));
    };
    const double now = c_.clock.now();
    std::erase_if(movedAway_, [&](const auto& entry) { return entry.second.at < now - comeBackWindow; });
    // The path has a file again: a history that just left it comes back, and what
    // the rename made of it (a kept backup) is a file of its own.
    auto reoccupied = [&](const std::string& path) {
        const WatchTarget* target = movedAway_.empty() ? nullptr : targetFor(path);
        if (!target || coordinator_->isSuppressed(path)) return;
        if (auto left = bringBack(*target, path)) change(*left, FSEventFlag::modified);
    };
    for (auto& record : records) {
        if (!record.has(FSEventFlag::removed) && !record.has(FSEventFlag::isDirectory)) reoccupied(record.path);
        if (record.has(FSEventFlag::mustScanSubDirs)) {
            if (coordinator_->isSuppressed(record.path)) continue;
            // A package that moved in is one unit; a plain folder is crawled as a whole.
            if (auto unit = coordinator_->unitFor(record.path); unit && unit->isPackage) {
                change(record.path, FSEventFlag::created);
            } else if (const WatchTarget* target = targetFor(record.path)) {
                c_.logger.info(std::string("FSEvents asked for a full rescan: ") +
                               toString(RescanReason::mustScanSubDirs));
                queueCrawl(target->folderID, toString(RescanReason::mustScanSubDirs), record.path);
            }
            continue;
        }
        if (!record.has(FSEventFlag::renamed)) {
            changes.push_back(std::move(record));
            continue;
        }
        const WatchTarget* target = targetFor(record.path);
        std::string from, to;
        if (!target || !relativeTo(target->root, record.previousPath, from) || !relativeTo(target->root, record.path, to))
            continue;
        // Vosklin's own swap (a restore or rewind putting content back) moves nothing.
        if (coordinator_->isSuppressed(record.previousPath) || coordinator_->isSuppressed(record.path)) continue;
        const bool isDirectory = record.has(FSEventFlag::isDirectory);
        // Not a move of history: a rename to a name that is never tracked (the
        // backup "name~" of an editor, an excluded folder), or away from a path
        // that holds a file again by now (a backup renamed aside, the new content
        // written in its place). The old path keeps its row: it is captured again,
        // or tombstoned if it stays empty; what the new name holds is its own file.
        const bool toUntracked = isDirectory ? coordinator_->isExcluded(record.path)
                                             : !coordinator_->unitFor(record.path).has_value();
        const bool fromOccupied = !isDirectory && c_.fileSystem.linkStatus(record.previousPath).has_value();
        if (toUntracked || fromOccupied) {
            change(record.previousPath, fromOccupied ? FSEventFlag::modified
                                                     : FSEventFlag::removed | (record.flags & FSEventFlag::isDirectory));
            if (!toUntracked) change(record.path, FSEventFlag::modified);
            continue;
        }
        try {
            if (isDirectory) {
                // History follows every file of a moved folder; contents did not change.
                auto moved = c_.catalog.renameTree(target->folderID, from, to, now);
                std::lock_guard guard(lock_);
                stats_.renamed += moved;
            } else {
                auto source = c_.catalog.fileAtPath(target->folderID, from);
                auto destination = c_.catalog.fileAtPath(target->folderID, to);
                if (source && !source->deletedAt) {
                    if (!destination) {
                        auto extension = pathExtension(to);
                        c_.catalog.recordRename(source->id, to,
                                                extension.empty() ? std::nullopt : std::optional<std::string>(extension),
                                                now);
                        movedAway_[record.previousPath] = {source->id, record.path, now};
                        std::lock_guard guard(lock_);
                        ++stats_.renamed;
                    } else {
                        // Moved over another tracked file: that file's history goes on with this content.
                        c_.catalog.markDeleted(source->id, now);
                        std::lock_guard guard(lock_);
                        ++stats_.tombstoned;
                    }
                }
                // Its content may be new (an application saving by rename): the capture's digest decides.
                change(record.path, FSEventFlag::modified);
            }
        } catch (const std::exception& error) {
            c_.logger.error(std::string("Rename failed: ") + error.what());
        }
        coordinator_->rename(record.previousPath, record.path);
    }
    coordinator_->take(changes);
}

void CaptureEngine::tick() {
    std::unique_lock tickGuard(tickLock_);
    if (!coordinator_) return;
    if (running_ && foldersChanged()) rebuildTargets();
    std::vector<FSEventRecord> records;
    std::uint64_t takenThrough;
    {
        std::lock_guard guard(lock_);
        records.swap(queue_);
        takenThrough = enqueued_;
    }
    handleRecords(std::move(records));
    // Read after merging: every unit these records made pending was first seen at or before it.
    // It is also the instant of every capture this tick releases.
    const double takenAt = c_.clock.now();

    CaptureJob job;
    job.at = takenAt;
    for (const auto& unit : coordinator_->flush())
        job.requests.push_back({unit.target.folderID, unit.target.root, unit.unit.path, unit.unit.isPackage,
                                CaptureSource::watcher, std::nullopt});
    const bool onWorker = timers_ == TimerPolicy::runLoop && running_;
    {
        std::lock_guard guard(lock_);
        taken_ = takenThrough;
        lastTakeAt_ = takenAt;
        oldestPending_ = coordinator_->oldestFirstSeen();
        settlingUnits_ = coordinator_->pendingCount();
        capturingUnits_ += job.requests.size();
        stats_.pending = std::int64_t(settlingUnits_ + capturingUnits_);
        if (onWorker && !job.requests.empty()) captures_.push_back(std::move(job));
    }
    changed_.notify_all();
    if (onWorker || job.requests.empty()) return;
    const std::stop_token stop = captureStop_.get_token();
    tickGuard.unlock();
    runCaptures(job, stop);
}

void CaptureEngine::runCaptures(const CaptureJob& job, std::stop_token stop) {
    std::vector<CaptureResult> results;
    std::exception_ptr batchError;
    try {
        results = c_.capture.captureBatch(job.requests, [at = job.at] { return at; }, stop);
    } catch (...) {
        batchError = std::current_exception();
    }
    {
        std::lock_guard guard(lock_);
        if (batchError) {
            stats_.failed += std::int64_t(job.requests.size());
            c_.logger.error("Capture failed: " + describe(batchError));
        }
        stats_.unitsSeen += std::int64_t(results.size());
        for (const auto& result : results) {
            if (result.error) {
                if (isCancelledCopy(result.error)) {
                    c_.logger.info("Capture stopped: " + result.request.unit);
                    continue;
                }
                ++stats_.failed;
                c_.logger.error("Capture failed: " + describe(result.error));
            } else if (result.outcome->kind == CaptureOutcome::Kind::stored) {
                ++stats_.stored;
            } else if (result.outcome->kind == CaptureOutcome::Kind::unchanged) {
                ++stats_.deduped;
            } else {
                ++stats_.skipped;
            }
        }
        capturingUnits_ -= job.requests.size();
        stats_.pending = std::int64_t(settlingUnits_ + capturingUnits_);
    }
    changed_.notify_all();
    std::vector<std::string> storedIn;
    for (const auto& result : results)
        if (!result.error && result.outcome && result.outcome->kind == CaptureOutcome::Kind::stored &&
            std::find(storedIn.begin(), storedIn.end(), result.request.folderID) == storedIn.end())
            storedIn.push_back(result.request.folderID);
    for (const auto& folderID : storedIn) announceStored(folderID);
}

void CaptureEngine::announceStored(const std::string& folderID) {
    for (const auto& listener : storedListeners_) listener(folderID);
}

void CaptureEngine::captureLoop() {
    const std::stop_token stop = [this] {
        std::lock_guard guard(lock_);
        return captureStop_.get_token();
    }();
    for (;;) {
        CaptureJob job;
        {
            std::unique_lock guard(lock_);
            changed_.wait(guard, [&] { return !captures_.empty() || captureWorkerStopping_; });
            if (captures_.empty()) return;
            job = std::move(captures_.front());
            captures_.pop_front();
        }
        runCaptures(job, stop);
    }
}

void CaptureEngine::checkpoint() {
    std::lock_guard tickGuard(tickLock_);
    if (!watcher_) return;
    const auto eventID = std::int64_t(watcher_->latestEventID());
    for (const auto& target : targets_) {
        try {
            WatchState state = c_.catalog.watchState(target.folderID)
                                   .value_or(WatchState{target.folderID, std::nullopt, std::nullopt, false, std::nullopt});
            state.lastEventID = eventID;
            state.volumeID = StoreLocator::deviceIdentifier(target.root);
            c_.catalog.writeWatchState(state);
        } catch (const std::exception& error) {
            c_.logger.error(std::string("Checkpoint failed: ") + error.what());
        }
    }
}

void CaptureEngine::loop() {
    using Steady = std::chrono::steady_clock;
    auto nextCheckpoint = Steady::now() + std::chrono::duration<double>(checkpointInterval);
    auto nextHeartbeat = Steady::now() + std::chrono::duration<double>(heartbeatInterval);
    auto nextDegradedCrawl = Steady::now() + std::chrono::duration<double>(degradedCrawlInterval);
    while (running_) {
        {
            std::unique_lock guard(lock_);
            changed_.wait_for(guard, std::chrono::duration<double>(tickInterval), [&] { return !running_.load(); });
        }
        if (!running_) break;
        tick();
        const auto now = Steady::now();
        if (now >= nextCheckpoint) {
            checkpoint();
            nextCheckpoint = now + std::chrono::duration<double>(checkpointInterval);
        }
        if (now >= nextHeartbeat) {
            rebuildTargets();  // re-checks every folder's access
            nextHeartbeat = now + std::chrono::duration<double>(heartbeatInterval);
        }
        if (now >= nextDegradedCrawl) {
            if (watcher_)
                for (const auto& folderID : watcher_->degradedFolders()) queueCrawl(folderID, "userDropped");
            nextDegradedCrawl = now + std::chrono::duration<double>(degradedCrawlInterval);
        }
    }
}

void CaptureEngine::queueCrawl(const std::string& folderID, const std::string& reason, const std::string& subtree) {
    std::lock_guard guard(lock_);
    // One queued crawl of a folder is enough: it will see everything (of its subtree).
    for (const auto& queued : crawls_)
        if (queued.folderID == folderID && (queued.subtree.empty() || queued.subtree == subtree)) return;
    crawls_.push_back({folderID, reason, subtree});
    changed_.notify_all();
}

void CaptureEngine::runCrawl(const QueuedCrawl& queued, CrawlCancellation& cancellation) {
    WatchedFolder folder;
    try {
        folder = c_.folders.require(queued.folderID);
    } catch (const std::exception&) {
        return;  // removed since it was queued
    }
    CrawlOptions options;
    if (!queued.subtree.empty() && !relativeTo(folder.path, queued.subtree, options.subtree)) return;
    try {
        FolderWalker walker = makeWalker();
        ReconciliationCrawler crawler(c_.catalog, c_.capture, walker, c_.fileSystem, c_.clock, c_.logger);
        auto report = crawler.crawl(folder, queued.reason, cancellation, options);
        {
            std::lock_guard guard(lock_);
            stats_.stored += report.captured;
            stats_.tombstoned += report.tombstoned;
            stats_.renamed += report.renamed;
            stats_.failed += report.failed;
        }
        if (report.captured > 0 || report.tombstoned > 0 || report.renamed > 0) announceStored(folder.id);
    } catch (const std::exception& error) {
        c_.logger.error(std::string("Crawl failed: ") + error.what());
    }
}

void CaptureEngine::crawlLoop() {
    while (running_) {
        QueuedCrawl next;
        std::shared_ptr<CrawlCancellation> cancellation;
        {
            std::unique_lock guard(lock_);
            changed_.wait(guard, [&] { return !running_ || (!crawls_.empty() && timers_ == TimerPolicy::runLoop); });
            if (!running_) break;
            next = crawls_.front();
            crawls_.pop_front();
            crawling_ = true;
            stats_.isCrawling = true;
            cancellation = crawlCancellation_ = std::make_shared<CrawlCancellation>();
        }
        runCrawl(next, *cancellation);
        {
            std::lock_guard guard(lock_);
            crawling_ = false;
            stats_.isCrawling = false;
        }
        changed_.notify_all();
    }
}

void CaptureEngine::runQueuedCrawls() {
    for (;;) {
        QueuedCrawl next;
        {
            std::lock_guard guard(lock_);
            if (crawls_.empty()) return;
            next = crawls_.front();
            crawls_.pop_front();
        }
        CrawlCancellation cancellation;
        runCrawl(next, cancellation);
    }
}

void CaptureEngine::drainWatcher() {
    std::lock_guard tickGuard(tickLock_);
    if (watcher_) watcher_->drain();
}

bool CaptureEngine::barrier(double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    drainWatcher();
    std::unique_lock guard(lock_);
    const std::uint64_t through = enqueued_;
    // First every record queued so far is taken by a tick...
    if (!changed_.wait_until(guard, deadline, [&] { return taken_ >= through || !running_; })) return false;
    const double takenAt = lastTakeAt_;
    // ...then every unit pending since then has settled and been captured, and no crawl is due.
    return changed_.wait_until(guard, deadline, [&] {
        return !running_ || ((!oldestPending_ || *oldestPending_ > takenAt) && capturingUnits_ == 0 &&
                             crawls_.empty() && !crawling_);
    });
}

SnapshotReport CaptureEngine::snapshot(const WatchedFolder& folder, CrawlCancellation& cancellation) {
    FolderWalker walker = makeWalker();
    ReconciliationCrawler crawler(c_.catalog, c_.capture, walker, c_.fileSystem, c_.clock, c_.logger);
    const CrawlOptions options = CrawlOptions::snapshot();
    auto report = crawler.crawl(folder, "snapshot", cancellation, options);
    if (report.captured > 0 || report.tombstoned > 0 || report.renamed > 0) announceStored(folder.id);
    return {folder.id, report.captured, report.tombstoned, report.startedAt, *options.batchID, report.failed,
            report.cancelled, report.unreadableCount, report.unreadablePaths};
}

CrawlReport CaptureEngine::scan(const WatchedFolder& folder, CrawlCancellation& cancellation) {
    FolderWalker walker = makeWalker();
    ReconciliationCrawler crawler(c_.catalog, c_.capture, walker, c_.fileSystem, c_.clock, c_.logger);
    auto report = crawler.crawl(folder, "scan", cancellation);
    if (report.captured > 0 || report.tombstoned > 0 || report.renamed > 0) announceStored(folder.id);
    return report;
}

void CaptureEngine::suppress(const std::vector<std::string>& paths) {
    std::lock_guard tickGuard(tickLock_);
    if (coordinator_) coordinator_->suppress(paths);
}

CaptureEngine::Stats CaptureEngine::stats() const {
    std::lock_guard guard(lock_);
    return stats_;
}

std::vector<CaptureEngine::FolderState> CaptureEngine::folderStates() {
    std::vector<FolderState> states;
    std::vector<WatchedFolder> folders;
    try {
        folders = c_.folders.folders();
    } catch (const std::exception&) {
        return states;
    }
    std::set<std::string> degraded;
    std::vector<WatchTarget> targets;
    {
        std::lock_guard tickGuard(tickLock_);
        if (watcher_) degraded = watcher_->degradedFolders();
        targets = targets_;
    }
    FolderAccess access(c_.fileSystem);
    for (const auto& folder : folders) {
        FolderState state;
        state.folder = folder;
        auto reach = access.check(folder);
        state.reachable = reach.reachable;
        state.reason = reach.reason;
        state.watched = std::any_of(targets.begin(), targets.end(),
                                    [&](const WatchTarget& target) { return target.folderID == folder.id; });
        state.degraded = degraded.count(folder.id) > 0;
        states.push_back(state);
    }
    return states;
}

}  // namespace vosklin

#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "bridge/FolderList.h"
#include "capture/CaptureService.h"
#include "capture/InotifyWatcher.h"
#include "capture/ReconciliationCrawler.h"
#include "capture/SnapshotReport.h"
#include "capture/WatchCoordinator.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "platform/Settings.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// The long-lived owner of live recording: the watcher, the coordinator, the
// crawls and the captures they lead to.
//
// start() prepares the store, checks every folder's access, watches the
// automatic recording folders, starts the timers (under TimerPolicy::runLoop)
// and queues a start-up crawl of every recording folder, which is what
// catches up with changes made while Vosklin was not running. While running:
// a tick every 0.5 s takes the watcher's records (renames move history,
// deletions tombstone it; see handleRecords for when a rename is no move),
// flushes the settled units and hands them, as one
// batch sharing the tick's instant, to the capture worker (source "watcher");
// a checkpoint every 60 s saves each folder's event id; the folder list is
// re-read when it changes; folder access is re-checked every 6 hours; folders
// the watcher could not fully watch are crawled every 5 minutes. stop() stops
// intake, asks captures in progress to stop between chunks (their partial
// slots are removed; a file smaller than a chunk is still captured), captures what
// has settled on the same terms and writes a last checkpoint. Whatever a stop
// left uncaptured is the next start-up crawl's.
//
// Threads: the watcher reads on its own thread and only queues records; ticks
// run on the engine's loop thread; captures run on a capture worker, so a long
// copy never holds up intake, status, settle's bookkeeping, suppression or a
// stop; crawls run one at a time on a crawl thread. Under TimerPolicy::manual
// there is no worker: tick() captures on the caller's thread before it
// returns. The catalog and the capture service serialise the work they share.
// Per-unit failures are logged ("Capture failed: ...") and never stop a tick.
class CaptureEngine {
public:
    enum class TimerPolicy { runLoop, manual };

    struct Stats {
        std::int64_t unitsSeen = 0;
        std::int64_t stored = 0;
        std::int64_t deduped = 0;
        std::int64_t skipped = 0;
        std::int64_t failed = 0;
        std::int64_t tombstoned = 0;
        std::int64_t renamed = 0;
        std::int64_t pending = 0;
        bool isCrawling = false;
    };

    struct FolderState {
        WatchedFolder folder;
        bool reachable = false;
        std::string reason;    // why not reachable
        bool watched = false;  // live events arrive for it
        bool degraded = false; // the watch limit left parts unwatched: crawled periodically
    };

    struct Collaborators {
        FolderList& folders;
        VersionCatalog& catalog;
        CaptureService& capture;
        VersionStoreLayout& layout;
        FileSystem& fileSystem;
        Clock& clock;
        Logger& logger;
        Settings& settings;
    };

    CaptureEngine(Collaborators collaborators, TimerPolicy timers, std::string homeDirectory = "");
    ~CaptureEngine();
    CaptureEngine(const CaptureEngine&) = delete;
    CaptureEngine& operator=(const CaptureEngine&) = delete;

    // Each listener is called (on a capture or crawl thread) after a batch or crawl
    // that stored new versions or recorded a deletion or a rename, once for each
    // folder concerned: so that new text is indexed soon, and windows showing the
    // folder refresh. Added before start().
    void whenStored(std::function<void(const std::string& folderID)> listener) {
        storedListeners_.push_back(std::move(listener));
    }

    void start();
    void stop();
    bool isRunning() const { return running_; }

    // What the timers do, callable directly under TimerPolicy::manual.
    void tick();
    void checkpoint();
    // Runs the queued crawls now, on the caller's thread (TimerPolicy::manual).
    void runQueuedCrawls();

    // Returns once every change made before the call has reached the engine's
    // queue (the next tick takes it).
    void drainWatcher();
    // Waits until every change made before the call has been seen, has settled
    // and has been captured (no capture batch queued or running), and no crawl
    // is running or queued. Returns false when `timeoutSeconds` passed first.
    bool barrier(double timeoutSeconds);

    SnapshotReport snapshot(const WatchedFolder& folder, CrawlCancellation& cancellation);
    CrawlReport scan(const WatchedFolder& folder, CrawlCancellation& cancellation);
    // Before Vosklin itself writes these paths (restore, rewind).
    void suppress(const std::vector<std::string>& paths);

    // `pending` counts units still settling plus units handed to the capture worker and not captured yet.
    Stats stats() const;
    std::vector<FolderState> folderStates();

private:
    // The settled units of one tick, captured together at the tick's instant.
    struct CaptureJob {
        std::vector<CaptureRequest> requests;
        double at = 0;
    };

    void loop();
    void captureLoop();
    void runCaptures(const CaptureJob& job, std::stop_token stop);
    void crawlLoop();
    void rebuildTargets();
    struct QueuedCrawl {
        std::string folderID;
        std::string reason;
        std::string subtree;  // absolute; empty: the whole folder
    };
    void queueCrawl(const std::string& folderID, const std::string& reason, const std::string& subtree = "");
    void runCrawl(const QueuedCrawl& crawl, CrawlCancellation& cancellation);
    void handleRecords(std::vector<FSEventRecord> records);
    // If a rename took the history of `path` away moments ago and `path` holds a
    // file again, the history comes back to it; returns where it had gone.
    std::optional<std::string> bringBack(const WatchTarget& target, const std::string& path);
    void tombstone(const WatchTarget& target, const std::string& path);
    const WatchTarget* targetFor(const std::string& path) const;
    WatchCoordinator::Settings coordinatorSettings();
    // The user's current exclusion and package settings (read on use).
    ExcludeRules excludeRules();
    PackageKinds packageKinds();
    FolderWalker makeWalker();
    bool foldersChanged();

    Collaborators c_;
    void announceStored(const std::string& folderID);

    std::vector<std::function<void(const std::string& folderID)>> storedListeners_;
    TimerPolicy timers_;
    std::string homeDirectory_;
    std::atomic<bool> running_{false};
    bool starting_ = false;  // start() queues the start-up crawls itself

    std::recursive_mutex tickLock_;  // one tick, checkpoint or rebuild at a time; never held across a capture
    std::unique_ptr<WatchCoordinator> coordinator_;
    std::unique_ptr<InotifyWatcher> watcher_;
    std::vector<WatchTarget> targets_;
    std::optional<FileStatus> folderListSeen_;

    mutable std::mutex lock_;  // the queues, counters and barrier bookkeeping below
    std::condition_variable changed_;
    std::vector<FSEventRecord> queue_;
    std::uint64_t enqueued_ = 0;    // records queued so far
    std::uint64_t taken_ = 0;       // records a tick has taken so far
    double lastTakeAt_ = 0;         // when the latest tick took its records
    std::optional<double> oldestPending_;
    std::deque<QueuedCrawl> crawls_;
    bool crawling_ = false;
    std::deque<CaptureJob> captures_;  // handed to the capture worker, not started
    std::size_t capturingUnits_ = 0;   // units in captures_ or being captured
    std::size_t settlingUnits_ = 0;    // the coordinator's pending count, as of the latest tick
    bool captureWorkerStopping_ = false;
    Stats stats_;
    std::set<std::string> unreachable_;

    struct MovedAway {
        std::int64_t fileID = 0;
        std::string to;  // absolute
        double at = 0;
    };
    std::map<std::string, MovedAway> movedAway_;  // by the absolute path left; tick thread only

    std::shared_ptr<CrawlCancellation> crawlCancellation_;
    std::stop_source captureStop_;  // asked by stop(); a fresh one per start()
    std::thread loopThread_;
    std::thread crawlThread_;
    std::thread captureThread_;
};

}  // namespace vosklin

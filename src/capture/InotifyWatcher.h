#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "capture/ExcludeRules.h"
#include "capture/FSEventRecord.h"
#include "platform/FileSystem.h"
#include "platform/Logger.h"
#include "platform/UniqueFd.h"

namespace vosklin {

// The stream layer: one inotify instance with a watch on every directory of
// every recording root, read on its own thread and handed on as records.
//
// New directories are watched and then scanned, so files made in them before
// the watch existed are still reported (flag `scanned`). A file or directory
// moved inside the watched folders is one `renamed` record (the kernel pairs
// the two halves by cookie); moved out, it is `removed`; a file moved in is
// `created`. A directory moved in from outside (or from another watched
// folder) is watched and reported as one record asking for a rescan of that
// subtree (flag `mustScanSubDirs`), not file by file. Excluded directories (Vosklin's own scratch
// items among them) are never watched, and their names never reported.
//
// A watch follows its directory's inode: when another directory takes a
// watched path (swapped in, or moved over it), the old watch is dropped, and
// the move-out of the old one does not unwatch the new one.
//
// A full queue (IN_Q_OVERFLOW) is not an error but a request for a rescan
// (kernelDropped). A watch that cannot be added because the per-user limit is
// reached is logged with the limit and the sysctl that raises it, the folder
// is marked degraded (the engine then crawls it periodically) and a rescan
// (userDropped) is requested. A root that is deleted or moved is reported as
// root-changed; a change of the mount table as mount-changed.
//
// Event ids grow with every record and never go backwards across runs: each
// is max(previous + 1, microseconds since 1970).
//
// Callbacks run on the watcher's thread. start/stop/drain are thread-safe.
class InotifyWatcher {
public:
    struct Callbacks {
        std::function<void(std::vector<FSEventRecord>)> onRecords;
        std::function<void(RescanReason, const std::string& folderID)> onNeedsRescan;
        std::function<void(const std::string& folderID)> onRootChanged;
        std::function<void()> onMountChanged;
    };

    InotifyWatcher(FileSystem& fileSystem, Logger& logger, ExcludeRules excludes, Callbacks callbacks,
                   std::uint64_t lastEventID = 0);
    ~InotifyWatcher();
    InotifyWatcher(const InotifyWatcher&) = delete;
    InotifyWatcher& operator=(const InotifyWatcher&) = delete;

    // Watches every directory of each target and starts the reading thread.
    // Throws FileSystemError when inotify itself cannot be had.
    void start(const std::vector<WatchTarget>& targets);
    void stop();

    // Returns once every event the kernel had queued when it was called has
    // been read and handed on, including moves out of the folders (whose
    // pairing takes a moment): whatever was changed before the call has been seen.
    void drain();

    std::uint64_t latestEventID() const { return latestEventID_; }
    std::size_t watchCount() const;
    // Folders not fully watched because the watch limit was reached.
    std::set<std::string> degradedFolders() const;

private:
    struct Watch {
        std::string path;
        std::string folderID;
        std::string root;
        std::uint64_t inode = 0;
    };
    struct PendingMove {
        std::string path;
        std::string folderID;
        bool isDirectory = false;
        double at = 0;
    };

    void run();
    void readAvailable();
    void handle(int wd, std::uint32_t mask, std::uint32_t cookie, const std::string& name,
                std::vector<FSEventRecord>& records);
    // Adds watches on `directory` and every directory below it; with `report`,
    // every file found is reported as created and scanned.
    void watchTree(const std::string& directory, const std::string& folderID, const std::string& root, bool report,
                   std::vector<FSEventRecord>& records);
    bool addWatch(const std::string& directory, const std::string& folderID, const std::string& root);
    void forgetTree(const std::string& directory);
    void moveTree(const std::string& from, const std::string& to);
    void expireMoves(double olderThan, std::vector<FSEventRecord>& records);
    // The watch registered at `path` is on the directory that is there now.
    bool watchesCurrent(const std::string& path);
    FSEventRecord record(const std::string& path, std::uint32_t flags);
    bool isExcluded(const std::string& root, const std::string& path) const;

    FileSystem& fileSystem_;
    Logger& logger_;
    ExcludeRules excludes_;
    Callbacks callbacks_;
    std::atomic<std::uint64_t> latestEventID_;

    UniqueFd inotify_;
    UniqueFd wake_;        // eventfd: stop and drain requests
    UniqueFd mountInfo_;   // /proc/self/mountinfo, polled for POLLPRI
    std::thread thread_;
    std::atomic<bool> running_{false};

    mutable std::mutex lock_;  // guards the tables below and the drain counters
    std::unordered_map<int, Watch> watches_;
    std::map<std::string, int> byPath_;
    std::map<std::string, std::string> rootWatches_;  // root -> folder id
    std::map<std::uint32_t, PendingMove> moves_;
    std::set<std::string> degraded_;
    bool limitLogged_ = false;
    std::uint64_t drainsRequested_ = 0;
    std::uint64_t drainsDone_ = 0;
    std::condition_variable drained_;
};

}  // namespace vosklin

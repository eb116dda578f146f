#include "capture/InotifyWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <chrono>
#include <cstring>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

constexpr std::uint32_t watchMask = IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO |
                                    IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
// The two halves of a move arrive together; one left alone this long moved out of sight.
constexpr double moveMatchSeconds = 0.05;

std::uint64_t microsecondsNow() {
    using namespace std::chrono;
    return std::uint64_t(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

// Pairing the halves of a move is about the kernel's timing, not the user's clock.
double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::string readSysctl(const char* path) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "unknown";
    char buffer[32] = {};
    ssize_t count = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    std::string value(buffer, count > 0 ? std::size_t(count) : 0);
    while (!value.empty() && (value.back() == '\n' || value.back() == ' ')) value.pop_back();
    return value.empty() ? "unknown" : value;
}

}  // namespace

InotifyWatcher::InotifyWatcher(FileSystem& fileSystem, Logger& logger, ExcludeRules excludes, Callbacks callbacks,
                               std::uint64_t lastEventID)
    : fileSystem_(fileSystem),
      logger_(logger),
      excludes_(std::move(excludes)),
      callbacks_(std::move(callbacks)),
      latestEventID_(lastEventID) {}

InotifyWatcher::~InotifyWatcher() { stop(); }

FSEventRecord InotifyWatcher::record(const std::string& path, std::uint32_t flags) {
    std::uint64_t previous = latestEventID_.load();
    std::uint64_t next = std::max(previous + 1, microsecondsNow());
    latestEventID_ = next;
    FSEventRecord event;
    event.path = path;
    event.flags = flags;
    event.eventID = next;
    return event;
}

bool InotifyWatcher::isExcluded(const std::string& root, const std::string& path) const {
    std::string relative;
    return relativeTo(root, path, relative) && excludes_.excludes(relative);
}

bool InotifyWatcher::addWatch(const std::string& directory, const std::string& folderID, const std::string& root) {
    int wd = -1;
    if (directory.size() < PATH_MAX) {
        wd = ::inotify_add_watch(inotify_.get(), directory.c_str(), watchMask);
    } else {
        // Deeper than a path can name: reach it through directory descriptors and watch what the
        // descriptor refers to (the kernel follows /proc/self/fd/N to the directory itself).
        try {
            UniqueFd opened = fileSystem_.openDirectoryBeneath(directory, "");
            wd = ::inotify_add_watch(inotify_.get(), descriptorPath(opened.get()).c_str(), watchMask);
        } catch (const FileSystemError& error) {
            errno = error.errorNumber();
        }
    }
    if (wd < 0) {
        if (errno == ENOSPC) {
            std::lock_guard guard(lock_);
            const bool first = degraded_.insert(folderID).second;
            if (!limitLogged_) {
                limitLogged_ = true;
                logger_.error("The inotify watch limit (fs.inotify.max_user_watches = " +
                              readSysctl("/proc/sys/fs/inotify/max_user_watches") + ") is reached; " + DisplayName::of(directory) +
                              " and other folders are not watched live and will be crawled periodically instead. "
                              "Raise it with: sudo sysctl fs.inotify.max_user_watches=1048576");
            }
            if (first && callbacks_.onNeedsRescan) callbacks_.onNeedsRescan(RescanReason::userDropped, folderID);
        }
        return false;  // gone already, or unreadable: nothing to watch there
    }
    auto status = fileSystem_.linkStatus(directory);
    std::lock_guard guard(lock_);
    if (auto taken = byPath_.find(directory); taken != byPath_.end() && taken->second != wd) {
        // Another directory had this path: it was swapped or moved away, and its watch is stale.
        ::inotify_rm_watch(inotify_.get(), taken->second);
        watches_.erase(taken->second);
    }
    watches_[wd] = {directory, folderID, root, status ? status->inode : 0};
    byPath_[directory] = wd;
    return true;
}

bool InotifyWatcher::watchesCurrent(const std::string& path) {
    auto status = fileSystem_.linkStatus(path);
    if (!status || !status->isDirectory()) return false;
    std::lock_guard guard(lock_);
    auto found = byPath_.find(path);
    if (found == byPath_.end()) return false;
    auto watch = watches_.find(found->second);
    return watch != watches_.end() && watch->second.inode == status->inode;
}

void InotifyWatcher::watchTree(const std::string& directory, const std::string& folderID, const std::string& root,
                               bool report, std::vector<FSEventRecord>& records) {
    if (!addWatch(directory, folderID, root)) return;
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem_.listDirectory(directory);
    } catch (const FileSystemError&) {
        return;
    }
    for (const auto& entry : entries) {
        const std::string path = joinPath(directory, entry.name);
        if (isExcluded(root, path)) continue;
        FileType type = entry.type;
        if (type == FileType::other) {
            auto status = fileSystem_.linkStatus(path);
            if (!status) continue;
            type = status->type;
        }
        if (type == FileType::directory) {
            watchTree(path, folderID, root, report, records);
            if (report) records.push_back(record(path, FSEventFlag::created | FSEventFlag::isDirectory |
                                                           FSEventFlag::scanned));
        } else if (report) {
            records.push_back(record(path, FSEventFlag::created | FSEventFlag::scanned));
        }
    }
}

void InotifyWatcher::start(const std::vector<WatchTarget>& targets) {
    stop();
    int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) throw FileSystemError(errno, "inotify_init1", "");
    inotify_.reset(fd);
    int wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wake < 0) throw FileSystemError(errno, "eventfd", "");
    wake_.reset(wake);
    mountInfo_.reset(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    {
        std::lock_guard guard(lock_);
        watches_.clear();
        byPath_.clear();
        rootWatches_.clear();
        moves_.clear();
        degraded_.clear();
    }
    std::vector<FSEventRecord> ignored;
    for (const auto& target : targets) {
        {
            std::lock_guard guard(lock_);
            rootWatches_[target.root] = target.folderID;
        }
        watchTree(target.root, target.folderID, target.root, false, ignored);
    }
    running_ = true;
    thread_ = std::thread([this] { run(); });
}

void InotifyWatcher::stop() {
    if (!running_.exchange(false)) return;
    std::uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(wake_.get(), &one, sizeof one);
    if (thread_.joinable()) thread_.join();
    std::lock_guard guard(lock_);
    drainsDone_ = drainsRequested_;  // nobody waits on a stopped watcher
    drained_.notify_all();
}

void InotifyWatcher::drain() {
    std::unique_lock guard(lock_);
    if (!running_) return;
    const std::uint64_t ticket = ++drainsRequested_;
    std::uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(wake_.get(), &one, sizeof one);
    drained_.wait(guard, [&] { return drainsDone_ >= ticket || !running_; });
}

std::size_t InotifyWatcher::watchCount() const {
    std::lock_guard guard(lock_);
    return watches_.size();
}

std::set<std::string> InotifyWatcher::degradedFolders() const {
    std::lock_guard guard(lock_);
    return degraded_;
}

void InotifyWatcher::run() {
    std::uint64_t heldDrain = 0;  // a drain waiting for held move halves to pair or expire
    while (running_) {
        pollfd fds[3] = {{inotify_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}, {mountInfo_.get(), POLLPRI, 0}};
        const nfds_t count = mountInfo_ ? 3 : 2;
        bool movesHeld;
        {
            std::lock_guard guard(lock_);
            movesHeld = !moves_.empty();
        }
        // Wake on a timer only while half of a move waits for its pair; idle, sleep until something happens.
        int ready = ::poll(fds, count, movesHeld ? 25 : -1);
        if (ready < 0 && errno != EINTR) break;
        std::uint64_t drainTicket = 0;
        if (fds[1].revents & POLLIN) {
            std::uint64_t value;
            [[maybe_unused]] auto got = ::read(wake_.get(), &value, sizeof value);
            std::lock_guard guard(lock_);
            drainTicket = drainsRequested_;
        }
        if (!running_) break;
        readAvailable();
        if (count == 3 && (fds[2].revents & (POLLPRI | POLLERR)) && callbacks_.onMountChanged)
            callbacks_.onMountChanged();
        drainTicket = std::max(drainTicket, heldDrain);
        if (drainTicket) {
            std::lock_guard guard(lock_);
            // A move whose other half has not come yet is not reported yet: the drain
            // waits for it (at most the pairing time), so a move out is seen too.
            if (moves_.empty()) {
                drainsDone_ = std::max(drainsDone_, drainTicket);
                drained_.notify_all();
                heldDrain = 0;
            } else {
                heldDrain = drainTicket;
            }
        }
    }
}

void InotifyWatcher::readAvailable() {
    std::vector<FSEventRecord> records;
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        ssize_t length = ::read(inotify_.get(), buffer, sizeof buffer);
        if (length <= 0) break;  // EAGAIN: nothing more queued
        for (char* at = buffer; at < buffer + length;) {
            auto* event = reinterpret_cast<inotify_event*>(at);
            std::string name = event->len ? std::string(event->name) : std::string();
            handle(event->wd, event->mask, event->cookie, name, records);
            at += sizeof(inotify_event) + event->len;
        }
    }
    expireMoves(monotonicSeconds() - moveMatchSeconds, records);
    if (!records.empty() && callbacks_.onRecords) callbacks_.onRecords(std::move(records));
}

void InotifyWatcher::expireMoves(double olderThan, std::vector<FSEventRecord>& records) {
    std::vector<PendingMove> gone;
    {
        std::lock_guard guard(lock_);
        for (auto it = moves_.begin(); it != moves_.end();) {
            if (it->second.at <= olderThan) {
                gone.push_back(it->second);
                it = moves_.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const auto& move : gone) {
        // Moved out of every watched folder: for Vosklin it is deleted. A directory
        // swapped in at its path since (the watcher reported it) keeps its watches.
        if (move.isDirectory && !watchesCurrent(move.path)) forgetTree(move.path);
        records.push_back(record(move.path, FSEventFlag::removed | (move.isDirectory ? FSEventFlag::isDirectory : 0)));
    }
}

void InotifyWatcher::forgetTree(const std::string& directory) {
    std::lock_guard guard(lock_);
    for (auto it = byPath_.lower_bound(directory); it != byPath_.end();) {
        std::string relative;
        if (it->first != directory && !relativeTo(directory, it->first, relative)) break;
        ::inotify_rm_watch(inotify_.get(), it->second);
        watches_.erase(it->second);
        it = byPath_.erase(it);
    }
}

void InotifyWatcher::moveTree(const std::string& from, const std::string& to) {
    std::lock_guard guard(lock_);
    std::vector<std::pair<std::string, int>> moved;
    for (auto it = byPath_.lower_bound(from); it != byPath_.end();) {
        std::string relative;
        const bool inside = it->first == from || relativeTo(from, it->first, relative);
        if (!inside) break;
        moved.emplace_back(it->first == from ? to : joinPath(to, relative), it->second);
        it = byPath_.erase(it);
    }
    for (auto& [path, wd] : moved) {
        watches_[wd].path = path;
        byPath_[path] = wd;
    }
}

void InotifyWatcher::handle(int wd, std::uint32_t mask, std::uint32_t cookie, const std::string& name,
                            std::vector<FSEventRecord>& records) {
    if (mask & IN_Q_OVERFLOW) {
        std::set<std::string> folders;
        {
            std::lock_guard guard(lock_);
            for (const auto& [root, folderID] : rootWatches_) folders.insert(folderID);
        }
        for (const auto& folderID : folders)
            if (callbacks_.onNeedsRescan) callbacks_.onNeedsRescan(RescanReason::kernelDropped, folderID);
        return;
    }
    Watch watch;
    bool isRoot = false;
    {
        std::lock_guard guard(lock_);
        auto found = watches_.find(wd);
        if (found == watches_.end()) return;  // a watch already forgotten
        watch = found->second;
        isRoot = watch.path == watch.root;
        if (mask & IN_IGNORED) {
            if (auto at = byPath_.find(watch.path); at != byPath_.end() && at->second == wd) byPath_.erase(at);
            watches_.erase(found);
        }
    }
    if (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
        if (isRoot && callbacks_.onRootChanged) callbacks_.onRootChanged(watch.folderID);
        return;  // a subdirectory's own end is reported by its parent
    }
    if (name.empty()) return;
    const std::string path = joinPath(watch.path, name);
    if (isExcluded(watch.root, path)) return;
    const bool isDirectory = (mask & IN_ISDIR) != 0;
    const std::uint32_t directoryFlag = isDirectory ? FSEventFlag::isDirectory : 0;

    if (mask & IN_MOVED_FROM) {
        std::lock_guard guard(lock_);
        moves_[cookie] = {path, watch.folderID, isDirectory, monotonicSeconds()};
        return;
    }
    if (mask & IN_MOVED_TO) {
        std::optional<PendingMove> from;
        {
            std::lock_guard guard(lock_);
            auto found = moves_.find(cookie);
            if (found != moves_.end()) {
                from = found->second;
                moves_.erase(found);
            }
        }
        if (from && from->folderID == watch.folderID) {
            if (isDirectory) moveTree(from->path, path);
            FSEventRecord renamed = record(path, FSEventFlag::renamed | directoryFlag);
            renamed.previousPath = from->path;
            records.push_back(std::move(renamed));
            return;
        }
        if (from) {
            // Between two watched folders: gone from one, new in the other.
            if (from->isDirectory) forgetTree(from->path);
            records.push_back(record(from->path, FSEventFlag::removed | directoryFlag));
        }
        if (isDirectory) {
            // Moved in from outside: watched from now on, and rescanned as a whole.
            std::vector<FSEventRecord> unreported;
            watchTree(path, watch.folderID, watch.root, false, unreported);
            records.push_back(record(path, FSEventFlag::created | directoryFlag | FSEventFlag::mustScanSubDirs));
        } else {
            records.push_back(record(path, FSEventFlag::created));
        }
        return;
    }
    if (mask & IN_CREATE) {
        records.push_back(record(path, FSEventFlag::created | directoryFlag));
        if (isDirectory) watchTree(path, watch.folderID, watch.root, true, records);
        return;
    }
    if (mask & IN_DELETE) {
        if (isDirectory) forgetTree(path);
        records.push_back(record(path, FSEventFlag::removed | directoryFlag));
        return;
    }
    if (isDirectory) return;  // a directory's own attributes are no content
    if (mask & (IN_CLOSE_WRITE | IN_MODIFY)) records.push_back(record(path, FSEventFlag::modified));
    else if (mask & IN_ATTRIB) records.push_back(record(path, FSEventFlag::attributes));
}

}  // namespace vosklin

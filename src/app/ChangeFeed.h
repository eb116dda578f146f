#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vosklin {

// News that history changed, from whoever changed it to whoever shows it (the
// window's event streams), so that a view refreshes without polling.
//
// `what` is "captured" (the engine stored versions or recorded deletions),
// "history" (names, stars, restores, rewinds, deletions, pruning), "folders"
// or "settings"; `folderID` is the folder concerned, or empty for any or several.
//
// Each subscriber has a queue of its own, bounded: a change already waiting is
// not queued twice, and a subscriber too slow to keep up gets the changes
// folded into one per kind for every folder instead of an ever-growing list,
// so a stalled reader costs the publishers nothing. Publishing never blocks.
// Thread-safe.
class ChangeFeed {
public:
    struct Change {
        std::string folderID;
        std::string what;
        bool operator==(const Change&) const = default;
    };

    class Subscription {
    public:
        // The changes waiting, oldest first; waits up to `timeout` for one. Empty after
        // the timeout, or at once when the subscription was cancelled.
        std::vector<Change> next(std::chrono::milliseconds timeout);
        // Wakes a waiting next() for good: the reader is going away.
        void cancel();
        bool cancelled() const;

    private:
        friend class ChangeFeed;
        void push(const Change& change);

        mutable std::mutex lock_;
        std::condition_variable arrived_;
        std::deque<Change> waiting_;
        bool cancelled_ = false;
    };

    static constexpr std::size_t queueBound = 64;

    void publish(const std::string& what, const std::string& folderID = "");
    std::shared_ptr<Subscription> subscribe();
    // Cancels every subscription (when the daemon stops).
    void cancelAll();

private:
    std::mutex lock_;
    std::list<std::weak_ptr<Subscription>> subscribers_;
};

}  // namespace vosklin

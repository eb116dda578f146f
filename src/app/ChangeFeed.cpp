#include "app/ChangeFeed.h"

#include <algorithm>

namespace vosklin {

std::vector<ChangeFeed::Change> ChangeFeed::Subscription::next(std::chrono::milliseconds timeout) {
    std::unique_lock guard(lock_);
    arrived_.wait_for(guard, timeout, [&] { return cancelled_ || !waiting_.empty(); });
    if (cancelled_) return {};
    std::vector<Change> changes(waiting_.begin(), waiting_.end());
    waiting_.clear();
    return changes;
}

void ChangeFeed::Subscription::cancel() {
    {
        std::lock_guard guard(lock_);
        cancelled_ = true;
    }
    arrived_.notify_all();
}

bool ChangeFeed::Subscription::cancelled() const {
    std::lock_guard guard(lock_);
    return cancelled_;
}

void ChangeFeed::Subscription::push(const Change& change) {
    {
        std::lock_guard guard(lock_);
        if (cancelled_ || std::find(waiting_.begin(), waiting_.end(), change) != waiting_.end()) return;
        if (waiting_.size() >= queueBound) {
            // Too far behind to tell folders apart: one change of each kind waiting, for every folder.
            std::vector<std::string> kinds;
            for (const auto& queued : waiting_)
                if (std::find(kinds.begin(), kinds.end(), queued.what) == kinds.end()) kinds.push_back(queued.what);
            if (std::find(kinds.begin(), kinds.end(), change.what) == kinds.end()) kinds.push_back(change.what);
            waiting_.clear();
            for (const auto& what : kinds) waiting_.push_back({"", what});
        } else {
            waiting_.push_back(change);
        }
    }
    arrived_.notify_all();
}

void ChangeFeed::publish(const std::string& what, const std::string& folderID) {
    std::vector<std::shared_ptr<Subscription>> live;
    {
        std::lock_guard guard(lock_);
        for (auto it = subscribers_.begin(); it != subscribers_.end();) {
            if (auto subscription = it->lock()) {
                live.push_back(std::move(subscription));
                ++it;
            } else {
                it = subscribers_.erase(it);
            }
        }
    }
    for (const auto& subscription : live) subscription->push({folderID, what});
}

std::shared_ptr<ChangeFeed::Subscription> ChangeFeed::subscribe() {
    auto subscription = std::make_shared<Subscription>();
    std::lock_guard guard(lock_);
    subscribers_.push_back(subscription);
    return subscription;
}

void ChangeFeed::cancelAll() {
    std::vector<std::shared_ptr<Subscription>> live;
    {
        std::lock_guard guard(lock_);
        for (const auto& weak : subscribers_)
            if (auto subscription = weak.lock()) live.push_back(std::move(subscription));
    }
    for (const auto& subscription : live) subscription->cancel();
}

}  // namespace vosklin

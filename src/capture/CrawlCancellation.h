#pragma once

#include <atomic>

namespace vosklin {

// Asks a crawl or snapshot in flight to stop between units. Thread-safe.
class CrawlCancellation {
public:
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }

private:
    std::atomic<bool> cancelled_{false};
};

}  // namespace vosklin

#pragma once

#include <stop_token>

namespace vosklin {

// Asks a crawl or snapshot in flight to stop between units, and the capture
// in progress to stop between the chunks of its copy. Thread-safe.
class CrawlCancellation {
public:
    void cancel() { source_.request_stop(); }
    bool isCancelled() const { return source_.stop_requested(); }
    std::stop_token token() const { return source_.get_token(); }

private:
    std::stop_source source_;
};

}  // namespace vosklin

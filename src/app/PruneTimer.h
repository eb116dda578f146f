#pragma once

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>

#include "app/ApiHandlers.h"
#include "capture/CaptureEngine.h"
#include "platform/Logger.h"

namespace vosklin {

// The daemon's retention schedule: one prune-all pass once the start-up crawl
// has caught up (so the pass sees today's history, not last week's), then one
// every `interval` seconds. The pass goes through the handlers, so it never
// overlaps a rewind, restore or deletion the user asked for.
//
// Owns one thread; stop() (or the destructor) ends it between passes or cuts
// a wait short, and waits for a running pass to end.
class PruneTimer {
public:
    static constexpr double standardInterval = 21'600;  // six hours

    PruneTimer(ApiHandlers& handlers, CaptureEngine& engine, Logger& logger, double interval = standardInterval);
    ~PruneTimer();
    void start();
    void stop();

private:
    void loop(std::stop_token stop);
    // Waits `seconds` or until stopped; false when stopped.
    bool wait(std::stop_token stop, double seconds);

    ApiHandlers& handlers_;
    CaptureEngine& engine_;
    Logger& logger_;
    double interval_;
    std::mutex lock_;
    std::condition_variable_any wake_;
    std::jthread thread_;
};

}  // namespace vosklin

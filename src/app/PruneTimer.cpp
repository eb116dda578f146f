#include "app/PruneTimer.h"

#include <chrono>

namespace vosklin {

PruneTimer::PruneTimer(ApiHandlers& handlers, CaptureEngine& engine, Logger& logger, double interval)
    : handlers_(handlers), engine_(engine), logger_(logger), interval_(interval) {}

PruneTimer::~PruneTimer() { stop(); }

void PruneTimer::start() {
    thread_ = std::jthread([this](std::stop_token stop) { loop(stop); });
}

void PruneTimer::stop() {
    if (!thread_.joinable()) return;
    thread_.request_stop();
    wake_.notify_all();
    thread_.join();
}

bool PruneTimer::wait(std::stop_token stop, double seconds) {
    std::unique_lock guard(lock_);
    wake_.wait_for(guard, stop, std::chrono::duration<double>(seconds), [] { return false; });
    return !stop.stop_requested();
}

void PruneTimer::loop(std::stop_token stop) {
    // The start-up crawl first: until it has caught up the catalog does not know today's files.
    while (!stop.stop_requested() && !engine_.barrier(1))
        if (!wait(stop, 1)) return;
    while (!stop.stop_requested()) {
        const auto answer = handlers_.answer("prune", "{}");
        if (answer.status != 200) logger_.error("The retention pass failed: " + answer.body.value("error", std::string()));
        if (!wait(stop, interval_)) return;
    }
}

}  // namespace vosklin

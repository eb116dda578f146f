#include "app/BackgroundWork.h"

#include <algorithm>
#include <exception>

#include "platform/IoPriority.h"

namespace vosklin {

BackgroundWork::Decision BackgroundWork::decide(bool lowPower, ThermalState thermal,
                                                std::optional<double> idleSeconds) {
    if (lowPower) return {false, "the machine saves power"};
    if (thermal == ThermalState::serious) return {false, "the machine runs hot"};
    if (thermal == ThermalState::critical) return {false, "the machine is critically hot"};
    if (idleSeconds && *idleSeconds < quietSeconds) return {false, "the user is active"};
    return {true, {}};
}

BackgroundWork::BackgroundWork(MachineConditions& conditions, Logger& logger, Job job, Timing timing,
                               std::function<bool()> ready)
    : conditions_(conditions), logger_(logger), job_(std::move(job)), timing_(timing), ready_(std::move(ready)) {}

BackgroundWork::~BackgroundWork() { stop(); }

void BackgroundWork::start() {
    if (thread_.joinable()) return;
    thread_ = std::jthread([this](std::stop_token stop) { loop(stop); });
}

void BackgroundWork::stop() {
    if (!thread_.joinable()) return;
    thread_.request_stop();  // wakes a wait at once and tells the job
    wake_.notify_all();
    thread_.join();
}

BackgroundWork::Instant::duration BackgroundWork::seconds(double value) {
    return std::chrono::duration_cast<Instant::duration>(std::chrono::duration<double>(std::max(value, 0.0)));
}

bool BackgroundWork::waitUntil(std::stop_token stop, Instant until) {
    std::unique_lock guard(lock_);
    wake_.wait_until(guard, stop, until, [] { return false; });
    return !stop.stop_requested();
}

void BackgroundWork::loop(std::stop_token stop) {
    IoPriority::makeThisThreadIdle();
    const auto isReady = [this] {
        try {
            return !ready_ || ready_();
        } catch (...) {
            return false;  // asked again at the next poll
        }
    };
    while (!isReady())
        if (!waitUntil(stop, std::chrono::steady_clock::now() + seconds(timing_.readyPoll))) return;
    // A zero interval would fire without end; a millisecond is the least that means anything.
    const auto interval = std::max(seconds(timing_.interval), Instant::duration(std::chrono::milliseconds(1)));
    Instant scheduled = std::chrono::steady_clock::now() + seconds(timing_.firstDelay);
    for (;;) {
        if (!waitUntil(stop, scheduled) || !fire(stop, scheduled)) return;
        scheduled += interval;
        // Firings whose tolerance ran out while the job ran are not made up for.
        while (scheduled + seconds(timing_.tolerance) < std::chrono::steady_clock::now()) {
            scheduled += interval;
            ++dropped_;
        }
    }
}

bool BackgroundWork::fire(std::stop_token stop, Instant scheduled) {
    const Instant deadline = scheduled + seconds(timing_.tolerance);
    for (;;) {
        const auto decision =
            decide(conditions_.isLowPower(), conditions_.thermalState(), conditions_.secondsSinceLastInput());
        if (decision.run) break;
        const Instant now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            logger_.debug("Maintenance deferred (" + decision.reason + ") past its window; next at the next interval");
            ++deferrals_;
            ++dropped_;
            return true;
        }
        logger_.debug("Maintenance deferred (" + decision.reason + ")");
        ++deferrals_;
        if (!waitUntil(stop, std::min(now + seconds(timing_.retry), deadline))) return false;
    }
    try {
        job_(stop);
        logger_.debug("Maintenance finished");
    } catch (const std::exception& error) {
        logger_.error(std::string("Maintenance failed: ") + error.what());
    } catch (...) {
        logger_.error("Maintenance failed");
    }
    ++runs_;
    return !stop.stop_requested();
}

}  // namespace vosklin

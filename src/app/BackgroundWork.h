#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "platform/Logger.h"
#include "platform/MachineConditions.h"

namespace vosklin {

// When BackgroundWork fires, in seconds.
struct BackgroundWorkTiming {
    double interval = 21'600;   // six hours between firings
    double tolerance = 10'800;  // how late a firing may still run
    // A deferred firing asks again this often: any quiet stretch of seven minutes
    // (the two it needs plus one wait) is caught, and asking (a few sysfs reads,
    // two bus calls) this rarely costs nothing noticeable.
    double retry = 300;
    double firstDelay = 0;  // after `ready` first holds
    double readyPoll = 1;
};

// The daemon's maintenance: one job run about every six hours, only while the
// machine can spare it.
//
// Schedule: the first firing is `firstDelay` seconds after `ready` first says
// yes (asked every `readyPoll` seconds until then), each next one `interval`
// after the previous one's instant. A firing asks the machine first (see
// decide()); when it is not a good time it asks again every `retry` seconds
// until `tolerance` seconds past its instant, then gives that interval up. A
// firing whose instant passed by more than `tolerance` while the job ran is
// not made up for either.
//
// The job runs on this object's own thread, at idle I/O priority and the
// lowest CPU priority. It gets a stop token that stop() triggers; a job that
// throws is logged and the schedule goes on. Deferrals and completions are
// logged at debug level.
//
// Owns one thread, started by start(). stop() (or the destructor) cuts any
// wait short, signals the job's token and waits for the job to return. The
// conditions and the logger must outlive this object.
class BackgroundWork {
public:
    using Job = std::function<void(std::stop_token)>;

    using Timing = BackgroundWorkTiming;

    // Whether a firing runs now, and if not, why (for the log).
    struct Decision {
        bool run = false;
        std::string reason;  // empty when it runs
    };
    // Seconds of quiet since the user's last input before work may start.
    static constexpr double quietSeconds = 120;
    // Pure: low power or a machine running warm defers; a critically hot one or a
    // user active in the last two minutes defers; an unknown idle time counts as idle.
    static Decision decide(bool lowPower, ThermalState thermal, std::optional<double> idleSeconds);

    // `ready` holds the first firing back until it answers true; empty means ready at once.
    BackgroundWork(MachineConditions& conditions, Logger& logger, Job job, Timing timing = {},
                   std::function<bool()> ready = {});
    ~BackgroundWork();
    BackgroundWork(const BackgroundWork&) = delete;
    BackgroundWork& operator=(const BackgroundWork&) = delete;

    void start();
    void stop();

    // What the schedule has done so far, for tests and diagnostics.
    std::size_t runs() const { return runs_; }
    std::size_t deferrals() const { return deferrals_; }
    std::size_t dropped() const { return dropped_; }

private:
    using Instant = std::chrono::steady_clock::time_point;

    void loop(std::stop_token stop);
    // Runs the job or defers it until it can run or its tolerance is spent; false when stopped.
    bool fire(std::stop_token stop, Instant scheduled);
    // Waits until `until` or until stopped; false when stopped.
    bool waitUntil(std::stop_token stop, Instant until);
    static Instant::duration seconds(double value);

    MachineConditions& conditions_;
    Logger& logger_;
    Job job_;
    Timing timing_;
    std::function<bool()> ready_;
    std::atomic<std::size_t> runs_{0};
    std::atomic<std::size_t> deferrals_{0};
    std::atomic<std::size_t> dropped_{0};
    std::mutex lock_;
    std::condition_variable_any wake_;
    std::jthread thread_;
};

}  // namespace vosklin

// Maintenance asks the machine before each firing: what defers it, how a
// deferred firing runs once the machine is free or gives its interval up, and
// how start-up readiness and stop() bound the schedule.
#include "app/BackgroundWork.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/FakeMachineConditions.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
constexpr double hour = 3600;

// Polls `condition` until it holds; false when it still does not after 20 s.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = Clock::now() + 20s;
    while (!condition()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(BackgroundWorkDecision, DefersForPowerHeatAndARecentInputOnly) {
    struct Case {
        const char* what;
        bool lowPower;
        ThermalState thermal;
        std::optional<double> idle;
        bool runs;
    } const cases[] = {
        {"low power", true, ThermalState::nominal, 3 * hour, false},
        {"running hot", false, ThermalState::serious, 3 * hour, false},
        {"critically hot though idle for hours", false, ThermalState::critical, 5 * hour, false},
        {"typing 30 s ago", false, ThermalState::nominal, 30, false},
        {"119.9 s quiet", false, ThermalState::nominal, 119.9, false},
        {"exactly 120 s quiet", false, ThermalState::nominal, 120, true},
        {"idle time unknown", false, ThermalState::nominal, std::nullopt, true},
        {"nominal, 3 h idle", false, ThermalState::nominal, 3 * hour, true},
        {"fair, 3 h idle", false, ThermalState::fair, 3 * hour, true},
    };
    for (const auto& c : cases) {
        const auto decision = BackgroundWork::decide(c.lowPower, c.thermal, c.idle);
        EXPECT_EQ(decision.run, c.runs) << c.what;
        EXPECT_EQ(decision.reason.empty(), c.runs) << c.what << ": a deferral says why";
    }
}

class BackgroundWorkTest : public ::testing::Test {
protected:
    BackgroundWork::Job countingJob() {
        return [this](std::stop_token) {
            ranAt = Clock::now();
            ++jobRuns;
        };
    }

    test::FakeMachineConditions machine;
    test::RecordingLogger logger;
    std::atomic<int> jobRuns{0};
    std::atomic<Clock::time_point> ranAt{};
};

TEST_F(BackgroundWorkTest, AFiringDeferredWhileTheMachineIsBusyRunsAtARetryOnceItIsFree) {
    machine.lowPower = true;
    BackgroundWork work(machine, logger, countingJob(), {.interval = hour, .tolerance = hour, .retry = 0.01});
    work.start();
    // Each condition in turn holds the firing back, and the log says which.
    ASSERT_TRUE(eventually([&] { return logger.contains("Maintenance deferred (the machine saves power)"); }));
    machine.lowPower = false;
    machine.thermal = ThermalState::serious;
    ASSERT_TRUE(eventually([&] { return logger.contains("Maintenance deferred (the machine runs hot)"); }));
    machine.thermal = ThermalState::fair;
    machine.setIdleSeconds(5);
    ASSERT_TRUE(eventually([&] { return logger.contains("Maintenance deferred (the user is active)"); }));
    EXPECT_EQ(jobRuns, 0);
    machine.setIdleSeconds(600);
    ASSERT_TRUE(eventually([&] { return work.runs() == 1; }));
    EXPECT_EQ(jobRuns, 1);
    EXPECT_GE(work.deferrals(), 3u);
    EXPECT_EQ(work.dropped(), 0u);
    EXPECT_TRUE(logger.contains("Maintenance finished"));
}

TEST_F(BackgroundWorkTest, AFiringStillBusyWhenItsToleranceRunsOutIsDroppedAndTheNextIntervalFires) {
    machine.setIdleSeconds(5);
    BackgroundWork work(machine, logger, countingJob(), {.interval = 1, .tolerance = 0.2, .retry = 0.02});
    const auto started = Clock::now();
    work.start();
    ASSERT_TRUE(eventually([&] { return work.dropped() >= 1; }));
    EXPECT_EQ(jobRuns, 0);
    EXPECT_GE(work.deferrals(), 2u) << "asked at its instant and again before giving up";
    machine.setIdleSeconds(std::nullopt);  // unknowable counts as idle
    ASSERT_TRUE(eventually([&] { return work.runs() == 1; }));
    EXPECT_GE(ranAt.load() - started, 1s) << "the dropped firing did not run late; the next interval's did";
}

TEST_F(BackgroundWorkTest, StopReachesARunningJobThroughItsTokenAndWaitsForIt) {
    std::atomic<bool> entered{false}, sawStop{false};
    BackgroundWork work(machine, logger, [&](std::stop_token stop) {
        entered = true;
        std::mutex lock;
        std::condition_variable_any wake;
        std::unique_lock guard(lock);
        wake.wait_for(guard, stop, 60s, [] { return false; });
        sawStop = stop.stop_requested();
    });
    work.start();
    ASSERT_TRUE(eventually([&] { return entered.load(); }));
    work.stop();
    EXPECT_TRUE(sawStop) << "the job returned by its token, not by its 60 s timeout";
    EXPECT_EQ(work.runs(), 1u);
}

TEST_F(BackgroundWorkTest, NothingFiresBeforeReadyAndStopCutsTheIntervalWaitShort) {
    std::atomic<bool> ready{false};
    std::atomic<int> asked{0};
    BackgroundWork work(machine, logger, countingJob(), {.interval = 10 * hour, .readyPoll = 0.01}, [&] {
        ++asked;
        return ready.load();
    });
    work.start();
    ASSERT_TRUE(eventually([&] { return asked >= 5; }));
    EXPECT_EQ(jobRuns, 0);
    ready = true;
    ASSERT_TRUE(eventually([&] { return work.runs() == 1; }));
    work.stop();  // returns although the next firing is ten hours away
    EXPECT_EQ(jobRuns, 1);
}

}  // namespace
}  // namespace vosklin

#pragma once

#include <atomic>

#include "platform/Clock.h"

namespace vosklin::test {

// A clock that moves only when told to; sleeping advances it instantly.
class ManualClock final : public Clock {
public:
    explicit ManualClock(double start = 1'700'000'000.0) : now_(start) {}
    double now() const override { return now_.load(); }
    void sleepFor(double seconds) override { advance(seconds); }
    void set(double instant) { now_ = instant; }
    void advance(double seconds) { now_ = now_.load() + seconds; }

private:
    std::atomic<double> now_;
};

}  // namespace vosklin::test

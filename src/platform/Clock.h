#pragma once

namespace vosklin {

// Time as the program sees it: seconds since 1970 (UTC) with fractions.
// Injected everywhere so that tests can set and advance it.
class Clock {
public:
    virtual ~Clock() = default;
    virtual double now() const = 0;
    // Waits for `seconds` of this clock's time.
    virtual void sleepFor(double seconds) = 0;
};

// The wall clock.
class SystemClock final : public Clock {
public:
    double now() const override;
    void sleepFor(double seconds) override;
};

}  // namespace vosklin

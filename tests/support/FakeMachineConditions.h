#pragma once

#include <atomic>
#include <mutex>

#include "platform/MachineConditions.h"

namespace vosklin::test {

// Machine conditions a test sets by hand.
class FakeMachineConditions : public MachineConditions {
public:
    std::atomic<bool> lowPower{false};
    std::atomic<ThermalState> thermal{ThermalState::nominal};

    void setIdleSeconds(std::optional<double> seconds) {
        std::lock_guard guard(lock_);
        idle_ = seconds;
    }
    bool isLowPower() override { return lowPower; }
    ThermalState thermalState() override { return thermal; }
    std::optional<double> secondsSinceLastInput() override {
        std::lock_guard guard(lock_);
        return idle_;
    }

private:
    std::mutex lock_;
    std::optional<double> idle_;
};

}  // namespace vosklin::test

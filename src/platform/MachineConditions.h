#pragma once

#include <optional>

namespace vosklin {

// How hot the machine runs, in the order of concern.
enum class ThermalState { nominal, fair, serious, critical };

// What background work asks the machine before it starts a step: whether it
// runs in a power-saving mode, how hot it is, and how long the user has been
// away. Behind an interface so that tests can set each answer.
//
// Each call reads the current state (nothing is cached), never throws, and
// answers with the harmless value when it cannot tell: not low power,
// nominal heat, and no idle time known (which callers treat as idle).
// Implementations are safe to call from any thread.
class MachineConditions {
public:
    virtual ~MachineConditions() = default;
    virtual bool isLowPower() = 0;
    virtual ThermalState thermalState() = 0;
    // Seconds since the user's last keyboard or pointer input; nothing when unknowable.
    virtual std::optional<double> secondsSinceLastInput() = 0;
};

}  // namespace vosklin

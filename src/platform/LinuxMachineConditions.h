#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/MachineConditions.h"

namespace vosklin {

// The machine's conditions as Linux tells them.
//
// Power: the firmware's platform profile (`<sysfs>/firmware/acpi/platform_profile`
// reading "low-power") or the power-profiles daemon's active profile being
// "power-saver" (system bus; both of its bus names are asked).
//
// Heat: the worst of the thermal zones under `<sysfs>/class/thermal`. A zone at
// or above a "critical" or "hot" trip point is critical, at or above a "passive"
// trip (where the kernel starts throttling) serious, within 5 °C below a passive
// trip fair, else nominal. Zones or trips that cannot be read, and trips at or
// below 0 °C (how some firmware marks an unused trip), are left out.
//
// Last input: the user's graphical login session's idle hint from logind. A
// session that says it is not idle answers 0 seconds; one that is idle answers
// the time since it became so. No graphical session, no bus, or a desktop that
// has never set the hint (not idle, idle-since 0) answer nothing.
//
// Each call reads afresh: sysfs files, and for the bus a connection of its own
// (so calls from several threads never share one), bounded to one second in
// all. Nothing throws; whatever fails gives the harmless answer. Safe to call
// from any thread.
class LinuxMachineConditions final : public MachineConditions {
public:
    // Names the login session whose idle hint counts; nothing when there is none.
    using SessionFinder = std::function<std::optional<std::string>()>;

    // `sysfsRoot` is where sysfs is mounted (tests pass a fake tree). Without
    // `askSystemBus` only sysfs is read: no power profile daemon, no idle time.
    // `findSession` defaults to the calling user's graphical session as logind lists it.
    explicit LinuxMachineConditions(std::string sysfsRoot = "/sys", bool askSystemBus = true,
                                    SessionFinder findSession = {});

    bool isLowPower() override;
    ThermalState thermalState() override;
    std::optional<double> secondsSinceLastInput() override;

    // How close below a passive trip point a zone counts as fair, in millidegrees.
    static constexpr long fairMarginMillidegrees = 5'000;

private:
    std::string sysfsRoot_;
    bool askSystemBus_;
    SessionFinder findSession_;
};

}  // namespace vosklin

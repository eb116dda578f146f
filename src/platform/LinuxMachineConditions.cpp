#include "platform/LinuxMachineConditions.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/Environment.h"
#include "platform/UniqueFd.h"

namespace vosklin {

namespace {

using SteadyInstant = std::chrono::steady_clock::time_point;

// Everything one probe asks the bus, connection included, fits in this.
constexpr std::chrono::seconds busBudget{1};
// Bounds on what a sysfs tree can make us read.
constexpr int maxThermalZones = 256;
constexpr int maxTripPoints = 64;

// A small sysfs attribute, whitespace trimmed; nothing when it cannot be read.
std::optional<std::string> readAttribute(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    char buffer[128];
    ssize_t got;
    do {
        got = ::read(fd.get(), buffer, sizeof buffer);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return std::nullopt;
    std::string text(buffer, std::size_t(got));
    const auto end = text.find_last_not_of(" \t\r\n");
    text.erase(end == std::string::npos ? 0 : end + 1);
    text.erase(0, text.find_first_not_of(" \t\r\n"));
    return text;
}

std::optional<long> readMillidegrees(const std::string& path) {
    const auto text = readAttribute(path);
    if (!text || text->empty()) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text->c_str(), &end, 10);
    if (errno != 0 || *end != '\0') return std::nullopt;
    return value;
}

ThermalState zoneState(const std::string& zone) {
    const auto temperature = readMillidegrees(zone + "/temp");
    if (!temperature) return ThermalState::nominal;
    ThermalState state = ThermalState::nominal;
    for (int n = 0; n < maxTripPoints; ++n) {
        const std::string trip = zone + "/trip_point_" + std::to_string(n);
        const auto type = readAttribute(trip + "_type");
        if (!type) break;  // trip points are numbered from 0 without gaps
        const auto limit = readMillidegrees(trip + "_temp");
        if (!limit || *limit <= 0) continue;
        if (*type == "critical" || *type == "hot") {
            if (*temperature >= *limit) state = std::max(state, ThermalState::critical);
        } else if (*type == "passive") {
            if (*temperature >= *limit) state = std::max(state, ThermalState::serious);
            else if (*temperature >= *limit - LinuxMachineConditions::fairMarginMillidegrees)
                state = std::max(state, ThermalState::fair);
        }
    }
    return state;
}

struct BusCloser {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

// The system bus with every call bounded, or nothing when there is none.
Bus openSystemBus() {
    sd_bus* raw = nullptr;
    if (sd_bus_new(&raw) < 0) return nullptr;
    Bus bus(raw);
    const auto address = processEnvironment("DBUS_SYSTEM_BUS_ADDRESS");
    if (sd_bus_set_address(bus.get(), address ? address->c_str() : "unix:path=/run/dbus/system_bus_socket") < 0 ||
        sd_bus_set_bus_client(bus.get(), 1) < 0 ||
        sd_bus_set_method_call_timeout(bus.get(), std::chrono::microseconds(busBudget).count()) < 0 ||
        sd_bus_start(bus.get()) < 0)
        return nullptr;
    return bus;
}

// One property asked for; its answer arrives while the bus is processed.
class PropertyReply {
public:
    PropertyReply() = default;
    PropertyReply(const PropertyReply&) = delete;
    PropertyReply& operator=(const PropertyReply&) = delete;
    ~PropertyReply() {
        sd_bus_slot_unref(slot_);
        sd_bus_message_unref(message_);
    }

    bool ask(sd_bus* bus, const char* service, const char* path, const char* interface, const char* property) {
        sd_bus_message* call = nullptr;
        bool sent = sd_bus_message_new_method_call(bus, &call, service, path, "org.freedesktop.DBus.Properties",
                                                   "Get") >= 0 &&
                    sd_bus_message_append(call, "ss", interface, property) >= 0 &&
                    // Looking must not start a service that is not running.
                    sd_bus_message_set_auto_start(call, 0) >= 0 &&
                    sd_bus_call_async(bus, &slot_, call, &PropertyReply::arrived, this, 0) >= 0;
        sd_bus_message_unref(call);
        done_ = !sent;
        return sent;
    }
    bool done() const { return done_; }

    // The answer's value, when it came and has this type.
    std::optional<std::string> text() {
        const char* value = nullptr;
        if (!enter("s") || sd_bus_message_read(message_, "s", &value) < 0 || !value) return std::nullopt;
        return std::string(value);
    }
    std::optional<bool> flag() {
        int value = 0;
        if (!enter("b") || sd_bus_message_read(message_, "b", &value) < 0) return std::nullopt;
        return value != 0;
    }
    std::optional<std::uint64_t> unsigned64() {
        std::uint64_t value = 0;
        if (!enter("t") || sd_bus_message_read(message_, "t", &value) < 0) return std::nullopt;
        return value;
    }

private:
    static int arrived(sd_bus_message* message, void* self, sd_bus_error*) {
        auto& reply = *static_cast<PropertyReply*>(self);
        reply.done_ = true;
        if (!sd_bus_message_is_method_error(message, nullptr)) reply.message_ = sd_bus_message_ref(message);
        return 0;
    }
    bool enter(const char* type) {
        return message_ && sd_bus_message_enter_container(message_, SD_BUS_TYPE_VARIANT, type) > 0;
    }

    sd_bus_slot* slot_ = nullptr;
    sd_bus_message* message_ = nullptr;
    bool done_ = false;
};

// Processes the bus until every reply has come or the deadline passes.
void awaitReplies(sd_bus* bus, const std::vector<PropertyReply*>& replies, SteadyInstant deadline) {
    const auto allDone = [&] { return std::all_of(replies.begin(), replies.end(), [](auto* r) { return r->done(); }); };
    while (!allDone()) {
        int processed;
        do {
            processed = sd_bus_process(bus, nullptr);
        } while (processed > 0 && !allDone() && std::chrono::steady_clock::now() < deadline);
        if (processed < 0 || allDone()) return;
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return;
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - now).count();
        if (sd_bus_wait(bus, std::uint64_t(left)) < 0) return;
    }
}

// The calling user's graphical login session: the one logind names as the
// user's display, else any of theirs running X11 or Wayland, active first.
std::optional<std::string> graphicalSession() {
    char* display = nullptr;
    if (sd_uid_get_display(::getuid(), &display) >= 0 && display) {
        std::string session(display);
        std::free(display);
        return session;
    }
    std::free(display);
    char** sessions = nullptr;
    const int count = sd_uid_get_sessions(::getuid(), 0, &sessions);
    std::optional<std::string> found;
    bool foundActive = false;
    for (int i = 0; i < count && sessions; ++i) {
        char* type = nullptr;
        if (sd_session_get_type(sessions[i], &type) >= 0 && type &&
            (std::string_view(type) == "x11" || std::string_view(type) == "wayland")) {
            const bool active = sd_session_is_active(sessions[i]) > 0;
            if (!found || (active && !foundActive)) {
                found = sessions[i];
                foundActive = active;
            }
        }
        std::free(type);
    }
    for (int i = 0; i < count && sessions; ++i) std::free(sessions[i]);
    std::free(sessions);
    return found;
}

}  // namespace

LinuxMachineConditions::LinuxMachineConditions(std::string sysfsRoot, bool askSystemBus, SessionFinder findSession)
    : sysfsRoot_(std::move(sysfsRoot)),
      askSystemBus_(askSystemBus),
      findSession_(findSession ? std::move(findSession) : SessionFinder(graphicalSession)) {}

bool LinuxMachineConditions::isLowPower() {
    try {
        if (readAttribute(sysfsRoot_ + "/firmware/acpi/platform_profile") == "low-power") return true;
        if (!askSystemBus_) return false;
        const auto deadline = std::chrono::steady_clock::now() + busBudget;
        auto bus = openSystemBus();
        if (!bus) return false;
        // The daemon answers under its current name and, on older systems, its former one.
        PropertyReply current, former;
        current.ask(bus.get(), "org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles",
                    "org.freedesktop.UPower.PowerProfiles", "ActiveProfile");
        former.ask(bus.get(), "net.hadess.PowerProfiles", "/net/hadess/PowerProfiles", "net.hadess.PowerProfiles",
                   "ActiveProfile");
        awaitReplies(bus.get(), {&current, &former}, deadline);
        return current.text() == "power-saver" || former.text() == "power-saver";
    } catch (...) {
        return false;
    }
}

ThermalState LinuxMachineConditions::thermalState() {
    try {
        namespace fs = std::filesystem;
        ThermalState worst = ThermalState::nominal;
        std::error_code error;
        fs::directory_iterator entries(sysfsRoot_ + "/class/thermal", error);
        int zones = 0;
        for (; !error && entries != fs::directory_iterator() && zones < maxThermalZones; entries.increment(error)) {
            const std::string name = entries->path().filename().string();
            if (name.rfind("thermal_zone", 0) != 0) continue;
            ++zones;
            worst = std::max(worst, zoneState(entries->path().string()));
        }
        return worst;
    } catch (...) {
        return ThermalState::nominal;
    }
}

std::optional<double> LinuxMachineConditions::secondsSinceLastInput() {
    if (!askSystemBus_) return std::nullopt;
    try {
        const auto deadline = std::chrono::steady_clock::now() + busBudget;
        const auto session = findSession_();
        if (!session) return std::nullopt;
        char* path = nullptr;
        if (sd_bus_path_encode("/org/freedesktop/login1/session", session->c_str(), &path) < 0) return std::nullopt;
        const std::string objectPath(path);
        std::free(path);
        auto bus = openSystemBus();
        if (!bus) return std::nullopt;
        PropertyReply idle, since;
        idle.ask(bus.get(), "org.freedesktop.login1", objectPath.c_str(), "org.freedesktop.login1.Session", "IdleHint");
        since.ask(bus.get(), "org.freedesktop.login1", objectPath.c_str(), "org.freedesktop.login1.Session",
                  "IdleSinceHint");
        awaitReplies(bus.get(), {&idle, &since}, deadline);
        const auto isIdle = idle.flag();
        const auto sinceMicroseconds = since.unsigned64();
        if (!isIdle || !sinceMicroseconds) return std::nullopt;
        // A desktop that never reports idleness leaves the hint unset: that says nothing about the user.
        if (*sinceMicroseconds == 0) return std::nullopt;
        if (!*isIdle) return 0.0;
        const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
        return std::max(0.0, double(now - std::int64_t(*sinceMicroseconds)) / 1e6);
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace vosklin

// Power, heat and idleness read from a fake sysfs tree and a private message
// bus: what each answer is, and that anything unreadable, absent or silent
// gives the harmless one within the probe's bound.
#include "platform/LinuxMachineConditions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "support/TempDirectory.h"

extern char** environ;

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::TempDirectory;

struct Trip {
    const char* type;
    long temp;
};
// A thermal zone at `temp` millidegrees with these trip points.
void zone(const TempDirectory& root, int n, const std::string& temp, const std::vector<Trip>& trips) {
    const std::string dir = "class/thermal/thermal_zone" + std::to_string(n) + "/";
    root.write(dir + "temp", temp + "\n");
    for (std::size_t i = 0; i < trips.size(); ++i) {
        root.write(dir + "trip_point_" + std::to_string(i) + "_type", std::string(trips[i].type) + "\n");
        root.write(dir + "trip_point_" + std::to_string(i) + "_temp", std::to_string(trips[i].temp) + "\n");
    }
}

const std::vector<Trip> laptop = {{"active", 50'000}, {"passive", 80'000}, {"hot", 95'000}, {"critical", 105'000}};

TEST(LinuxMachineConditions, PlatformProfileLowPowerOnly) {
    for (const auto& [profile, low] : std::vector<std::pair<std::optional<std::string>, bool>>{
             {"low-power\n", true}, {"balanced\n", false}, {"performance", false}, {std::nullopt, false}}) {
        TempDirectory root;
        if (profile) root.write("firmware/acpi/platform_profile", *profile);
        EXPECT_EQ(LinuxMachineConditions(root.path(), false).isLowPower(), low) << profile.value_or("(missing)");
    }
}

TEST(LinuxMachineConditions, TheHottestZoneAgainstItsTripPoints) {
    using enum ThermalState;
    for (const auto& [temp, expected] : std::vector<std::pair<std::string, ThermalState>>{
             {"45000", nominal}, {"74999", nominal}, {"75000", fair}, {"80000", serious}, {"95000", critical},
             {"hot", nominal}}) {
        TempDirectory root;
        zone(root, 0, temp, laptop);
        EXPECT_EQ(LinuxMachineConditions(root.path(), false).thermalState(), expected) << temp;
    }
    // Reads fail on a directory, even for root.
    const auto unreadable = [](auto& r, const std::string& file) {
        fs::remove(r / file);
        fs::create_directory(r / file);
    };
    struct Case {
        const char* what;
        std::function<void(const TempDirectory&)> build;
        ThermalState expected;
    } const cases[] = {
        {"no thermal zones", [](auto&) {}, nominal},
        {"just under a critical-only trip", [](auto& r) { zone(r, 0, "99999", {{"critical", 100'000}}); }, nominal},
        {"at a critical-only trip", [](auto& r) { zone(r, 0, "100000", {{"critical", 100'000}}); }, critical},
        {"a trip at 0 °C is an unused one", [](auto& r) { zone(r, 0, "30000", {{"critical", 0}}); }, nominal},
        {"the worst zone wins",
         [](auto& r) {
             for (int n : {0, 1, 2}) zone(r, n, n == 1 ? "85000" : "40000", laptop);
         },
         serious},
        {"unreadable temperature",
         [&](auto& r) {
             zone(r, 0, "99000", laptop);
             unreadable(r, "class/thermal/thermal_zone0/temp");
         },
         nominal},
        {"an unreadable trip is skipped, the next still counts",
         [&](auto& r) {
             zone(r, 0, "97000", {{"critical", 90'000}, {"hot", 95'000}});
             unreadable(r, "class/thermal/thermal_zone0/trip_point_0_temp");
         },
         critical},
        {"not a thermal zone",
         [](auto& r) {
             r.write("class/thermal/cooling_device0/temp", "120000");
             r.write("class/thermal/cooling_device0/trip_point_0_type", "critical");
             r.write("class/thermal/cooling_device0/trip_point_0_temp", "100000");
         },
         nominal},
    };
    for (const auto& c : cases) {
        TempDirectory root;
        c.build(root);
        EXPECT_EQ(LinuxMachineConditions(root.path(), false).thermalState(), c.expected) << c.what;
    }
}

// A private bus, started for the test, standing in for the system bus.
class PrivateBus {
public:
    PrivateBus() {
        directory_.write("bus.conf", "<busconfig><type>session</type><listen>unix:path=" + directory_ / "socket" +
                                         "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                         "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
                                         "</policy></busconfig>\n");
        const std::string config = "--config-file=" + directory_ / "bus.conf";
        const char* argv[] = {"dbus-daemon", config.c_str(), "--nofork", "--nopidfile", nullptr};
        posix_spawn_file_actions_t quiet;  // its complaints about fd limits are not the test's
        posix_spawn_file_actions_init(&quiet);
        posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
        if (::posix_spawnp(&pid_, "dbus-daemon", &quiet, nullptr, const_cast<char**>(argv), environ) != 0) pid_ = 0;
        posix_spawn_file_actions_destroy(&quiet);
        for (int i = 0; pid_ && i < 2000 && !fs::exists(directory_ / "socket"); ++i) std::this_thread::sleep_for(5ms);
        address_ = "unix:path=" + directory_ / "socket";
    }
    ~PrivateBus() {
        if (!pid_) return;
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    bool running() const { return pid_ && fs::exists(directory_ / "socket"); }
    const std::string& address() const { return address_; }

private:
    TempDirectory directory_;
    pid_t pid_ = 0;
    std::string address_;
};

// A service on the bus: `name` owns `path`, whose `interface` has the properties of `vtable`,
// read from `data`. A silent one owns the name and never answers.
class BusService {
public:
    BusService(const std::string& address, const char* name, const std::string& path, const char* interface,
               const sd_bus_vtable* vtable, void* data, bool silent = false) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        sd_bus_set_method_call_timeout(bus_, 5'000'000);
        ok_ = sd_bus_start(bus_) >= 0 && sd_bus_add_object_vtable(bus_, nullptr, path.c_str(), interface, vtable, data) >= 0 &&
              sd_bus_request_name(bus_, name, 0) >= 0;
        if (ok_ && !silent)
            thread_ = std::jthread([this](std::stop_token stop) {
                while (!stop.stop_requested()) {
                    while (sd_bus_process(bus_, nullptr) > 0) {
                    }
                    sd_bus_wait(bus_, 10'000);
                }
            });
    }
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;
    ~BusService() {
        thread_ = {};
        sd_bus_flush_close_unref(bus_);
    }
    bool ok() const { return ok_; }

private:
    sd_bus* bus_ = nullptr;
    bool ok_ = false;
    std::jthread thread_;
};

// The power profile daemon, under its current name or its former one.
struct Profile {
    const char* active;
};
constexpr sd_bus_vtable profileProperties[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("ActiveProfile", "s", nullptr, offsetof(Profile, active), 0),
    SD_BUS_VTABLE_END};
BusService profileService(const std::string& address, const std::string& name, Profile& profile, bool silent = false) {
    std::string path = "/" + name;
    std::replace(path.begin(), path.end(), '.', '/');
    return BusService(address, name.c_str(), path, name.c_str(), profileProperties, &profile, silent);
}

class LinuxMachineConditionsBusTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!bus.running()) GTEST_SKIP() << "dbus-daemon is not installed here";
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
    }
    void TearDown() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

    PrivateBus bus;
    TempDirectory sysfs;  // no platform profile: only the bus can say power-saver
    LinuxMachineConditions conditions{sysfs.path()};
};

TEST_F(LinuxMachineConditionsBusTest, PowerSaverProfileUnderEitherNameIsLowPower) {
    EXPECT_FALSE(conditions.isLowPower()) << "no profile daemon";
    Profile balanced{"balanced"}, saver{"power-saver"};
    {
        auto service = profileService(bus.address(), "net.hadess.PowerProfiles", balanced);
        ASSERT_TRUE(service.ok());
        EXPECT_FALSE(conditions.isLowPower());
    }
    auto service = profileService(bus.address(), "org.freedesktop.UPower.PowerProfiles", saver);
    ASSERT_TRUE(service.ok());
    EXPECT_TRUE(conditions.isLowPower());
}

TEST_F(LinuxMachineConditionsBusTest, ASilentServiceCostsAtMostTheProbesBoundAndTheOtherNameStillCounts) {
    Profile balanced{"balanced"}, saver{"power-saver"};
    auto silent = profileService(bus.address(), "org.freedesktop.UPower.PowerProfiles", balanced, true);
    auto answering = profileService(bus.address(), "net.hadess.PowerProfiles", saver);
    ASSERT_TRUE(silent.ok() && answering.ok());
    const auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(conditions.isLowPower());
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s) << "bounded to about a second, not hung";
}

// Login session "2", as the login manager publishes it.
struct Session {
    int idle;
    std::uint64_t since;  // microseconds since the epoch
};
constexpr sd_bus_vtable sessionProperties[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("IdleHint", "b", nullptr, offsetof(Session, idle), 0),
    SD_BUS_PROPERTY("IdleSinceHint", "t", nullptr, offsetof(Session, since), 0), SD_BUS_VTABLE_END};

TEST_F(LinuxMachineConditionsBusTest, IdleTimeFromTheSessionsIdleHint) {
    Session session{};
    BusService login(bus.address(), "org.freedesktop.login1", "/org/freedesktop/login1/session/_32",
                     "org.freedesktop.login1.Session", sessionProperties, &session);
    ASSERT_TRUE(login.ok());
    const auto now = std::uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count());
    LinuxMachineConditions inSession(sysfs.path(), true, [] { return std::optional<std::string>("2"); });
    struct Case {
        const char* what;
        Session state;
        std::optional<double> seconds;
    } const cases[] = {
        {"idle for five minutes", {1, now - 300'000'000}, 300},
        {"active again since ten seconds", {0, now - 10'000'000}, 0},
        {"the desktop never set the hint", {0, 0}, std::nullopt},
        {"idle since an unknown instant", {1, 0}, std::nullopt},
        {"idle since a clock step forward", {1, now + 60'000'000}, 0},
    };
    for (const auto& c : cases) {
        session = c.state;
        const auto seconds = inSession.secondsSinceLastInput();
        ASSERT_EQ(seconds.has_value(), c.seconds.has_value()) << c.what;
        if (seconds) {
            EXPECT_NEAR(*seconds, *c.seconds, 5) << c.what;
        }
    }
    LinuxMachineConditions otherSession(sysfs.path(), true, [] { return std::optional<std::string>("3"); });
    EXPECT_FALSE(otherSession.secondsSinceLastInput().has_value()) << "no such session on the bus";
    LinuxMachineConditions noSession(sysfs.path(), true, [] { return std::optional<std::string>(); });
    EXPECT_FALSE(noSession.secondsSinceLastInput().has_value());
}

TEST(LinuxMachineConditions, WithoutABusTheAnswersAreHarmless) {
    TempDirectory sysfs;
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + sysfs / "no-bus-here").c_str(), 1);
    LinuxMachineConditions conditions(sysfs.path());
    EXPECT_FALSE(conditions.isLowPower());
    EXPECT_FALSE(conditions.secondsSinceLastInput().has_value());
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    // This machine's own bus and login manager, whatever they are: nothing throws, nothing hangs,
    // and an idle time, if there is one, is not negative.
    const auto started = std::chrono::steady_clock::now();
    conditions.isLowPower();
    const auto idle = conditions.secondsSinceLastInput();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s) << "each probe is bounded to about a second";
    if (idle) {
        EXPECT_GE(*idle, 0);
    }
}

}  // namespace
}  // namespace vosklin

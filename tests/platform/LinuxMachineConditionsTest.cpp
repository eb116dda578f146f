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

#include <atomic>
#include <chrono>
#include <filesystem>
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
    struct Case {
        const char* what;
        std::function<void(const TempDirectory&)> build;
        ThermalState expected;
    } const cases[] = {
        {"no thermal zones", [](auto&) {}, ThermalState::nominal},
        {"45 °C, above an active trip only", [](auto& r) { zone(r, 0, "45000", laptop); }, ThermalState::nominal},
        {"76 °C, within 5 °C of passive", [](auto& r) { zone(r, 0, "76000", laptop); }, ThermalState::fair},
        {"at the passive trip", [](auto& r) { zone(r, 0, "80000", laptop); }, ThermalState::serious},
        {"past the hot trip", [](auto& r) { zone(r, 0, "96000", laptop); }, ThermalState::critical},
        {"just under a critical-only trip", [](auto& r) { zone(r, 0, "99999", {{"critical", 100'000}}); },
         ThermalState::nominal},
        {"at a critical-only trip", [](auto& r) { zone(r, 0, "100000", {{"critical", 100'000}}); },
         ThermalState::critical},
        {"the worst zone wins",
         [](auto& r) {
             zone(r, 0, "40000", laptop);
             zone(r, 1, "85000", laptop);
             zone(r, 2, "30000", laptop);
         },
         ThermalState::serious},
        {"a trip at 0 °C marks an unused one", [](auto& r) { zone(r, 0, "30000", {{"critical", 0}}); },
         ThermalState::nominal},
        {"unreadable zone temperature",
         [](auto& r) {
             zone(r, 0, "0", laptop);
             fs::remove(r / "class/thermal/thermal_zone0/temp");
             fs::create_directory(r / "class/thermal/thermal_zone0/temp");  // reads fail, even for root
         },
         ThermalState::nominal},
        {"temperature not a number", [](auto& r) { zone(r, 0, "hot", laptop); }, ThermalState::nominal},
        {"an unreadable trip is skipped, the next still counts",
         [](auto& r) {
             zone(r, 0, "97000", {{"critical", 90'000}, {"hot", 95'000}});
             fs::remove(r / "class/thermal/thermal_zone0/trip_point_0_temp");
             fs::create_directory(r / "class/thermal/thermal_zone0/trip_point_0_temp");
         },
         ThermalState::critical},
        {"not a thermal zone",
         [](auto& r) {
             r.write("class/thermal/cooling_device0/temp", "120000");
             r.write("class/thermal/cooling_device0/trip_point_0_type", "critical");
             r.write("class/thermal/cooling_device0/trip_point_0_temp", "100000");
         },
         ThermalState::nominal},
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

// A power profile daemon on the bus under one of its names; a silent one owns the name and never answers.
class ProfileService {
public:
    ProfileService(const std::string& address, const char* name, std::string profile, bool silent = false)
        : profile_(std::move(profile)) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        sd_bus_set_method_call_timeout(bus_, 5'000'000);
        std::string objectPath = "/" + std::string(name);
        for (auto& c : objectPath)
            if (c == '.') c = '/';
        ok_ = sd_bus_start(bus_) >= 0 &&
              sd_bus_add_object_vtable(bus_, nullptr, objectPath.c_str(), name, vtable, this) >= 0 &&
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
    ~ProfileService() {
        thread_ = {};
        sd_bus_flush_close_unref(bus_);
    }
    bool ok() const { return ok_; }

private:
    static int get(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self, sd_bus_error*) {
        return sd_bus_message_append(reply, "s", static_cast<ProfileService*>(self)->profile_.c_str());
    }
    static constexpr sd_bus_vtable vtable[] = {SD_BUS_VTABLE_START(0),
                                               SD_BUS_PROPERTY("ActiveProfile", "s", get, 0, 0), SD_BUS_VTABLE_END};

    std::string profile_;
    sd_bus* bus_ = nullptr;
    bool ok_ = false;
    std::jthread thread_;
};

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
    {
        ProfileService service(bus.address(), "net.hadess.PowerProfiles", "balanced");
        ASSERT_TRUE(service.ok());
        EXPECT_FALSE(conditions.isLowPower());
    }
    ProfileService service(bus.address(), "org.freedesktop.UPower.PowerProfiles", "power-saver");
    ASSERT_TRUE(service.ok());
    EXPECT_TRUE(conditions.isLowPower());
}

TEST_F(LinuxMachineConditionsBusTest, ASilentServiceCostsAtMostTheProbesBoundAndTheOtherNameStillCounts) {
    ProfileService silent(bus.address(), "org.freedesktop.UPower.PowerProfiles", "balanced", true);
    ProfileService answering(bus.address(), "net.hadess.PowerProfiles", "power-saver");
    ASSERT_TRUE(silent.ok() && answering.ok());
    const auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(conditions.isLowPower());
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s) << "bounded to about a second, not hung";
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

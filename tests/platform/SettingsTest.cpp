// settings.json: values read back as written, anything odd reads as absent
// (so callers use their defaults) and is reported once, not on every read.
#include "platform/Settings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include "platform/PosixFileSystem.h"
#include "support/FaultyFileSystem.h"
#include "support/RecordingLogger.h"
#include "support/TempDirectory.h"
#include "support/WorkingDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::TempDirectory;

class SettingsTest : public ::testing::Test {
protected:
    void expectEverythingAbsent() {
        EXPECT_FALSE(settings.number("vosklin.settleSeconds").has_value());
        EXPECT_FALSE(settings.flag("vosklin.paused").has_value());
        EXPECT_FALSE(settings.strings("vosklin.excludePatterns").has_value());
    }

    TempDirectory directory;
    const std::string path = directory / "config/settings.json";  // its folder is made on the first write
    PosixFileSystem fileSystem;
    test::RecordingLogger logger;
    Settings settings{path, fileSystem, logger};
};

TEST_F(SettingsTest, MissingFileReadsAbsentQuietly) {
    expectEverythingAbsent();
    EXPECT_TRUE(logger.messages().empty()) << "no file is the normal first run";
    EXPECT_FALSE(fs::exists(directory / "config"));
}

TEST_F(SettingsTest, ValuesReadBackAsSetAndOtherKeysAreKept) {
    settings.set("vosklin.settleSeconds", 2.5);
    settings.set("vosklin.paused", true);
    settings.set("vosklin.excludePatterns", std::vector<std::string>{"*.iso", "build"});
    settings.set("vosklin.packageExtensions", std::vector<std::string>{});

    Settings reread(path, fileSystem, logger);  // another process's view
    EXPECT_EQ(reread.number("vosklin.settleSeconds"), 2.5);
    EXPECT_EQ(reread.flag("vosklin.paused"), true);
    EXPECT_EQ(reread.strings("vosklin.excludePatterns"), (std::vector<std::string>{"*.iso", "build"}));
    EXPECT_EQ(reread.strings("vosklin.packageExtensions"), std::vector<std::string>{});

    settings.set("vosklin.paused", false);
    settings.set("vosklin.settleSeconds", 3);
    EXPECT_EQ(reread.flag("vosklin.paused"), false);
    EXPECT_EQ(reread.number("vosklin.settleSeconds"), 3.0);
    EXPECT_EQ(reread.strings("vosklin.excludePatterns"), (std::vector<std::string>{"*.iso", "build"}));

    settings.set("vosklin.excludePatterns", nullptr);
    EXPECT_FALSE(reread.strings("vosklin.excludePatterns").has_value()) << "null removes the key";
    EXPECT_EQ(reread.number("vosklin.settleSeconds"), 3.0);
    EXPECT_TRUE(logger.messages().empty());
}

TEST_F(SettingsTest, KeysWrittenByHandAreReadAndKeptToo) {
    directory.write("config/settings.json",
                    R"({"vosklin.settleSeconds": 10, "editor.fontSize": 14, "vosklin.paused": null})");
    EXPECT_EQ(settings.number("vosklin.settleSeconds"), 10.0);
    EXPECT_FALSE(settings.flag("vosklin.paused").has_value()) << "null is absent, not malformed";
    settings.set("vosklin.paused", true);
    auto json = nlohmann::json::parse(test::readFile(path));
    EXPECT_EQ(json["editor.fontSize"], 14);
    EXPECT_EQ(json["vosklin.settleSeconds"], 10);
    EXPECT_EQ(json["vosklin.paused"], true);
    EXPECT_TRUE(logger.messages().empty());
}

TEST_F(SettingsTest, ValueOfTheWrongTypeReadsAbsentAndIsLoggedOncePerKey) {
    directory.write("config/settings.json",
                    R"({"vosklin.settleSeconds": "ten", "vosklin.paused": 1,
                        "vosklin.excludePatterns": ["*.iso", 3], "vosklin.packageExtensions": "rtfd"})");
    for (int read = 0; read < 2; ++read) {
        EXPECT_FALSE(settings.number("vosklin.settleSeconds").has_value());
        EXPECT_FALSE(settings.flag("vosklin.paused").has_value());
        EXPECT_FALSE(settings.strings("vosklin.excludePatterns").has_value());
        EXPECT_FALSE(settings.strings("vosklin.packageExtensions").has_value());
    }
    auto messages = logger.messages();
    ASSERT_EQ(messages.size(), 4u) << "one message per key, however often it is read";
    for (const std::string key :
         {"vosklin.settleSeconds", "vosklin.paused", "vosklin.excludePatterns", "vosklin.packageExtensions"}) {
        EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                                [&](const std::string& m) { return m.find(key) != std::string::npos; }),
                  1)
            << key;
    }
}

TEST_F(SettingsTest, FileThatIsNotAJsonObjectReadsAbsentForEverything) {
    for (const std::string text : {"{\"vosklin.paused\": tru", "[true]", "42", ""}) {
        SCOPED_TRACE(text);
        directory.write("config/settings.json", text);
        expectEverythingAbsent();
    }
    EXPECT_EQ(logger.messages().size(), 1u) << "the file's trouble is reported once";
}

TEST_F(SettingsTest, FileThatCannotBeReadReadsAbsentAndIsReported) {
    settings.set("vosklin.paused", true);
    test::FaultyFileSystem failing;
    Settings unreadable(path, failing, logger);
    failing.fail(test::FaultyFileSystem::Operation::read, EIO, 2);
    EXPECT_FALSE(unreadable.flag("vosklin.paused").has_value());
    EXPECT_FALSE(unreadable.flag("vosklin.paused").has_value());
    EXPECT_EQ(logger.messages().size(), 1u);
    EXPECT_EQ(unreadable.flag("vosklin.paused"), true) << "read again once the fault is gone";
}

class ConfigDirectoryTest : public ::testing::Test {
protected:
    std::string configDirectory(const std::optional<std::string>& option) {
        return Settings::configDirectory(option, [this](const std::string& name) -> std::optional<std::string> {
            auto found = environment.find(name);
            if (found == environment.end()) return std::nullopt;
            return found->second;
        });
    }

    std::map<std::string, std::string> environment = {
        {"VOSKLIN_HOME", "/data/vosklin"}, {"XDG_CONFIG_HOME", "/home/ann/.cfg"}, {"HOME", "/home/ann"}};
};

TEST_F(ConfigDirectoryTest, HomeOptionThenVosklinHomeThenXdgConfigThenHome) {
    EXPECT_EQ(configDirectory("/mnt/portable"), "/mnt/portable");
    EXPECT_EQ(configDirectory(std::nullopt), "/data/vosklin");
    EXPECT_EQ(configDirectory(""), "/data/vosklin") << "an empty --home is no --home";
    environment.erase("VOSKLIN_HOME");
    EXPECT_EQ(configDirectory(std::nullopt), "/home/ann/.cfg/vosklin");
    environment.erase("XDG_CONFIG_HOME");
    EXPECT_EQ(configDirectory(std::nullopt), "/home/ann/.config/vosklin");
}

TEST_F(ConfigDirectoryTest, RelativeLocationsAreTakenFromTheWorkingDirectoryOrIgnored) {
    TempDirectory place;
    const std::string here = fs::canonical(place.path()).string();
    test::WorkingDirectory inside(here);
    EXPECT_EQ(configDirectory("portable/./cfg"), here + "/portable/cfg");
    environment["VOSKLIN_HOME"] = "data";
    EXPECT_EQ(configDirectory(std::nullopt), here + "/data");
    // A relative XDG_CONFIG_HOME is invalid by the XDG rules and skipped.
    environment.erase("VOSKLIN_HOME");
    environment["XDG_CONFIG_HOME"] = "relative/cfg";
    EXPECT_EQ(configDirectory(std::nullopt), "/home/ann/.config/vosklin");
}

}  // namespace
}  // namespace vosklin

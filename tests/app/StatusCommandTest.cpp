// The `vosklin` binary end to end: what a user sees from --version, status and mistakes.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "catalog/Database.h"
#include "catalog/VersionCatalog.h"
#include "store/VersionStoreLayout.h"
#include "platform/PosixFileSystem.h"
#include "support/CommandRunner.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::runVosklin;
using test::TempDirectory;

TEST(CommandLineTest, VersionHelpAndUsageErrors) {
    auto version = runVosklin({"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.out, "vosklin 0.1.0\n");
    auto help = runVosklin({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_NE(help.out.find("status"), std::string::npos);
    EXPECT_NE(help.out.find("--home"), std::string::npos);
    auto unknown = runVosklin({"frobnicate"});
    EXPECT_EQ(unknown.exitStatus, 2);
    EXPECT_EQ(unknown.err, "vosklin: unknown command 'frobnicate'\nRun 'vosklin --help' for the list of commands.\n");
    auto badOption = runVosklin({"status", "--jsn"});
    EXPECT_EQ(badOption.exitStatus, 2);
    EXPECT_NE(badOption.err.find("--jsn"), std::string::npos);
}

TEST(StatusCommandTest, FreshHomeHasNoStoreAndStatusDoesNotCreateOne) {
    TempDirectory home;
    auto result = runVosklin({"status", "--home", home.path()});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_NE(result.out.find("not created yet"), std::string::npos) << result.out;
    EXPECT_FALSE(std::filesystem::exists(home / "store")) << "a read command must not write";
    auto json = nlohmann::json::parse(runVosklin({"status", "--json"}, {{"VOSKLIN_HOME", home.path()}}).out);
    EXPECT_EQ(json["store"], "absent");
    EXPECT_EQ(json["home"], home.path());
    EXPECT_EQ(json["storePath"], home / "store");
}

TEST(StatusCommandTest, CountsWhatTheCatalogHolds) {
    TempDirectory home;
    PosixFileSystem fileSystem;
    VersionStoreLayout layout(home / "store", fileSystem);
    layout.prepareDirectories();
    {
        VersionCatalog catalog(layout.databasePath());
        for (int i = 0; i < 3; ++i) {
            auto file = catalog.upsertFile("F", "f" + std::to_string(i), std::nullopt, false, std::nullopt);
            NewVersion version;
            version.fileID = file.id;
            version.capturedAt = 1000 + i;
            version.digest = "d" + std::to_string(i);
            version.logicalBytes = 1500;
            version.slot = "s" + std::to_string(i);
            version.payloadName = file.relativePath;
            catalog.recordVersion(version);
            if (i == 0) catalog.markDeleted(file.id, 2000);
        }
    }
    auto result = runVosklin({"--home", home.path(), "status", "--json"});
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(json["store"], "ready");
    EXPECT_EQ(json["schemaVersion"], 8);
    EXPECT_EQ(json["files"], 3);
    EXPECT_EQ(json["liveFiles"], 2);
    EXPECT_EQ(json["versions"], 3);
    EXPECT_EQ(json["logicalBytes"], 4500);
    auto text = runVosklin({"--home", home.path(), "status"});
    EXPECT_NE(text.out.find("Files:     3 (2 present, 1 deleted)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Versions:  3, 4.5 kB"), std::string::npos) << text.out;
}

TEST(StatusCommandTest, StoreFromANewerVosklinIsReportedAndLeftAlone) {
    TempDirectory home;
    std::filesystem::create_directories(home / "store");
    {
        Database database(home / "store/index.sqlite");
        database.execute("CREATE TABLE future (x); PRAGMA user_version = 9;");
    }
    auto result = runVosklin({"--home", home.path(), "status"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find("written by a newer Vosklin (schema 9; this Vosklin reads up to 8)"), std::string::npos)
        << result.err;
    auto json = nlohmann::json::parse(runVosklin({"--home", home.path(), "status", "--json"}).out);
    EXPECT_EQ(json["store"], "newer");
    EXPECT_EQ(json["schemaVersion"], 9);
    Database database(home / "store/index.sqlite");
    EXPECT_EQ(database.userVersion(), 9);
    EXPECT_EQ(database.scalar("SELECT COUNT(*) FROM sqlite_master WHERE name = 'files'"), 0) << "not migrated";
}

}  // namespace
}  // namespace vosklin

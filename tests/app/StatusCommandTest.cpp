// The `vosklin` binary end to end: what a user sees from --version, status and mistakes.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/VosklinHomeTest.h"
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

// A catalog that cannot be what Vosklin wrote, beside stored versions, is named
// as damaged by every command that opens it, with the way out, and is never
// replaced or altered: a fresh catalog over it would leave the history unused.
struct CatalogDamage {
    const char* name;
    void (*apply)(const std::string& catalog);
};
void PrintTo(const CatalogDamage& damage, std::ostream* out) { *out << damage.name; }

class DamagedCatalogTest : public test::VosklinHomeTest, public ::testing::WithParamInterface<CatalogDamage> {};

TEST_P(DamagedCatalogTest, IsReportedWithTheWayOutAndLeftAsItIs) {
    watched.write("a.txt", "kept");
    ASSERT_EQ(vosklin({"folder", "add", root}).exitStatus, 0);
    ASSERT_EQ(vosklin({"scan", root}).exitStatus, 0);
    const std::string catalog = home / "store/index.sqlite";
    GetParam().apply(catalog);
    const bool existed = std::filesystem::exists(catalog);
    const std::string before = existed ? test::readFile(catalog) : "";

    auto status = vosklin({"status"});
    EXPECT_EQ(status.exitStatus, 1);
    EXPECT_NE(status.out.find("(catalog damaged)"), std::string::npos) << status.out;
    EXPECT_TRUE(status.err.starts_with("vosklin: The catalog is damaged (")) << status.err;
    EXPECT_TRUE(status.err.ends_with(
        "; run 'vosklin check --rebuild' to rebuild it from the stored versions\n")) << status.err;
    EXPECT_EQ(nlohmann::json::parse(vosklin({"status", "--json"}).out)["store"], "damaged");
    auto versions = vosklin({"versions", root + "/a.txt"});
    EXPECT_EQ(versions.exitStatus, 1);
    EXPECT_EQ(versions.err, status.err) << "every command says the same";

    ASSERT_EQ(std::filesystem::exists(catalog), existed);
    if (existed) {
        EXPECT_EQ(test::readFile(catalog), before) << "left exactly as it was";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DamagedCatalogTest,
    ::testing::Values(
        CatalogDamage{"Emptied", [](const std::string& catalog) { std::filesystem::resize_file(catalog, 0); }},
        CatalogDamage{"Lost", [](const std::string& catalog) { std::filesystem::remove(catalog); }},
        CatalogDamage{"CutShort",
                      [](const std::string& catalog) {
                          std::filesystem::resize_file(catalog, std::filesystem::file_size(catalog) / 2);
                      }},
        CatalogDamage{"Overwritten",
                      [](const std::string& catalog) {
                          test::writeFile(catalog, std::string(4096, 'x'));
                      }},
        CatalogDamage{"NegativeSchemaVersion",
                      [](const std::string& catalog) { Database(catalog).execute("PRAGMA user_version = -1"); }}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace vosklin

// `vosklin prune` over a history captured at chosen instants: what the rules
// drop leaves the catalog and the disk, what they keep stays byte for byte,
// and the store checks out afterwards; the daemon prunes by itself once its
// start-up crawl has caught up.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include "app/RecordedFolder.h"
#include "support/DaemonProcess.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
constexpr double day = 86'400;

class PruneCommandTest : public test::RecordedFolder, public ::testing::Test {
protected:
    PruneCommandTest() : RecordedFolder("A0000000-0000-4000-8000-0000000000a1") {}

    // Versions of two files a year and more back, relative to the real clock the binary reads.
    std::vector<StoredVersion> oldHistory() {
        const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
        std::vector<StoredVersion> made;
        for (int i = 0; i < 14; ++i)
            for (const char* name : {"notes.txt", "plan.txt"})
                made.push_back(capture(name, std::string(name) + " draft " + std::to_string(i),
                                       now - (800 - i * 40) * day - i));
        return made;
    }
    std::map<std::int64_t, std::string> payloads() {
        std::map<std::int64_t, std::string> bytes;
        for (const auto& version : stack.catalog.allVersions())
            bytes[version.id] = test::readFile(stack.layout.payloadPath(version.slot, version.payloadName));
        return bytes;
    }
};

TEST_F(PruneCommandTest, RemovesWhatTheRulesDropKeepsTheRestByteForByteAndTheStoreChecksOut) {
    const auto made = oldHistory();
    const auto before = payloads();
    const auto dry = jsonOf({"prune", "--dry-run", "--json"});
    EXPECT_EQ(payloads(), before) << "a dry run removes nothing";
    const auto report = jsonOf({"prune", "--json"});
    EXPECT_EQ(report["prunedCount"], dry["prunedCount"]);
    EXPECT_EQ(report["freedBytes"], dry["freedBytes"]);
    const auto after = payloads();
    EXPECT_GT(report["prunedCount"].get<std::size_t>(), 0u);
    EXPECT_EQ(after.size() + report["prunedCount"].get<std::size_t>(), made.size());
    for (const auto& version : made) {
        auto kept = after.find(version.id);
        EXPECT_EQ(fs::exists(stack.layout.slotDirectory(version.slot)), kept != after.end()) << version.slot;
        if (kept != after.end()) {
            EXPECT_EQ(kept->second, before.at(version.id));
        }
    }
    // The ten newest of each file are never thinned.
    EXPECT_GE(after.size(), 20u);
    const auto check = vosklin({"check", "--read-data"});
    EXPECT_EQ(check.exitStatus, 0) << check.out << check.err;
    EXPECT_EQ(jsonOf({"prune", "--json"})["prunedCount"], 0) << "a second pass finds nothing more";
}

TEST_F(PruneCommandTest, TheDaemonPrunesOnceItsStartUpCrawlHasCaughtUpAndServesPruneItself) {
    const auto made = oldHistory();
    test::DaemonProcess daemon(home.path());
    ASSERT_TRUE(daemon.start());
    // Its first pass runs on its own after the start-up crawl; wait for it, not for a guess.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (stack.catalog.folderVersionCount(folder.id) == std::int64_t(made.size()) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_LT(stack.catalog.folderVersionCount(folder.id), std::int64_t(made.size()));
    const auto report = jsonOf({"prune", "--json"});  // through the daemon
    EXPECT_TRUE(report["ran"]);
    EXPECT_EQ(report["prunedCount"], 0);
    // Deleting by hand goes through it too; the live file stays as it is.
    const std::string notes = root + "/notes.txt";
    const std::string before = test::readFile(notes);
    const auto erased = jsonOf({"delete", "--all", notes, "--yes", "--json"});
    EXPECT_TRUE(erased["erasesWholeLiveFile"]);
    EXPECT_EQ(erased["deletedCount"], erased["versionCount"]);
    EXPECT_EQ(test::readFile(notes), before);
    ASSERT_TRUE(stack.catalog.fileAtPath(folder.id, "notes.txt"));
    EXPECT_EQ(stack.catalog.versionCount(stack.catalog.fileAtPath(folder.id, "notes.txt")->id), 0);
    // A scan finds the file as it was: no change, so its deleted history does not come back.
    jsonOf({"scan", root});
    EXPECT_EQ(stack.catalog.versionCount(stack.catalog.fileAtPath(folder.id, "notes.txt")->id), 0);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(vosklin({"check", "--read-data"}).exitStatus, 0);
}

}  // namespace
}  // namespace vosklin

// `vosklin check` end to end: proving a real store, and rebuilding its catalog
// when it is lost, as a user would from a terminal.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/VosklinHomeTest.h"
#include "support/DaemonProcess.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string rebuildHint = "run 'vosklin check --rebuild' to rebuild it from the stored versions";

class CheckCommandTest : public test::VosklinHomeTest {
protected:
    // A watched folder with a first scan kept: two files, one of them named in Latin-1 bytes.
    void recordFolder() {
        watched.write("notes/plan.txt", "the plan");
        watched.write("caf\xe9.txt", "latin-1 name");
        ASSERT_EQ(vosklin({"folder", "add", root}).exitStatus, 0);
        ASSERT_EQ(vosklin({"scan", root}).exitStatus, 0);
    }
    // The one entry of the newest slot that is not the sidecar (its name may not be UTF-8).
    std::string payloadOf(const std::string& relative) {
        auto version = jsonOf({"versions", root + "/" + relative})["versions"][0];
        for (const auto& entry : fs::directory_iterator(home / ("store/" + version["slot"].get<std::string>())))
            if (entry.path().filename() != "vosklin-version.json") return entry.path().string();
        ADD_FAILURE() << "no payload in " << version.dump();
        return {};
    }
    std::string catalog() { return home / "store/index.sqlite"; }
    // The catalogs set aside, without their -wal and -shm (which a read-only open leaves).
    std::vector<std::string> setAside() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(home / "store")) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("index.sqlite.damaged-") && !name.ends_with("-wal") && !name.ends_with("-shm"))
                names.push_back(name);
        }
        return names;
    }
};

TEST_F(CheckCommandTest, ProvesASoundStoreAndNamesEachProblemOnItsLine) {
    recordFolder();
    auto sound = vosklin({"check", "--read-data"});
    EXPECT_EQ(sound.exitStatus, 0) << sound.out << sound.err;
    EXPECT_NE(sound.out.find("Checked 2 versions, reading every payload: all hold."), std::string::npos) << sound.out;
    EXPECT_EQ(sound.err, "");

    // Same size, other bytes: only --read-data sees it. A slot left by a crash is only a note.
    test::writeFile(payloadOf("notes/plan.txt"), "the PLAN");
    fs::create_directories(home / "store/versions/63/99/20250301-143205");
    EXPECT_EQ(vosklin({"check"}).exitStatus, 0);
    auto damaged = vosklin({"check", "--read-data"});
    EXPECT_EQ(damaged.exitStatus, 1);
    EXPECT_NE(damaged.out.find(": the payload hashes to "), std::string::npos) << damaged.out;
    EXPECT_NE(damaged.out.find("note: versions/63/99/20250301-143205: no version refers to this slot"),
              std::string::npos)
        << damaged.out;
    EXPECT_EQ(damaged.err, "vosklin: 1 problem found in the store\n");

    ASSERT_TRUE(fs::remove(payloadOf("caf\xe9.txt")));
    auto records = vosklin({"check", "--json", "--read-data"});
    EXPECT_EQ(records.exitStatus, 1);
    auto report = json::parse(records.out);
    EXPECT_EQ(report["versionsChecked"], 2);
    std::vector<std::string> kinds;
    for (const auto& problem : report["problems"]) kinds.push_back(problem["kind"]);
    std::sort(kinds.begin(), kinds.end());
    EXPECT_EQ(kinds, (std::vector<std::string>{"payloadDigestWrong", "payloadMissing"})) << records.out;
    EXPECT_EQ(report["notes"][0]["kind"], "orphanSlot");

    // One folder: its versions only.
    auto folder = json::parse(vosklin({"check", root, "--json"}).out);
    EXPECT_EQ(folder["versionsChecked"], 2);
    EXPECT_EQ(folder["problems"].size(), 1u) << "payload missing; the digest is read only with --read-data";
    EXPECT_TRUE(folder["notes"].empty());
    EXPECT_EQ(vosklin({"check", "--force"}).exitStatus, 2);
}

TEST_F(CheckCommandTest, AnEmptiedCatalogIsRefusedEverywhereAndRebuiltFromTheSidecars) {
    recordFolder();
    const auto planSlot = jsonOf({"versions", root + "/notes/plan.txt"})["versions"][0]["slot"];
    fs::resize_file(catalog(), 0);

    // The daemon refuses too, and starts no fresh catalog over the old history.
    test::DaemonProcess daemon(home.path());
    daemon.launch();
    auto exitStatus = daemon.waitForExit(15);  // a refusal is at once; the bound only keeps a regression from hanging
    ASSERT_TRUE(exitStatus) << "the daemon started over the emptied catalog";
    EXPECT_NE(*exitStatus, 0);
    EXPECT_NE(daemon.standardError().find(rebuildHint), std::string::npos) << daemon.standardError();
    EXPECT_EQ(fs::file_size(catalog()), 0u);

    auto rebuilt = vosklin({"check", "--rebuild"});
    ASSERT_EQ(rebuilt.exitStatus, 0) << rebuilt.err;
    EXPECT_NE(rebuilt.out.find("Rebuilt the catalog from 2 slots: 2 files, 2 versions."), std::string::npos)
        << rebuilt.out;
    ASSERT_EQ(setAside().size(), 1u);
    EXPECT_EQ(fs::file_size(home / ("store/" + setAside()[0])), 0u) << "the damaged catalog is kept as it was";

    auto plan = jsonOf({"versions", root + "/notes/plan.txt"})["versions"];
    ASSERT_EQ(plan.size(), 1u);
    EXPECT_EQ(plan[0]["slot"], planSlot);
    EXPECT_EQ(plan[0]["source"], "crawl");
    EXPECT_EQ(jsonOf({"versions", root + "/caf\xe9.txt"})["versions"].size(), 1u);
    EXPECT_EQ(vosklin({"check", "--read-data"}).exitStatus, 0);
    // The rebuilt catalog knows each file's contents: a scan keeps nothing new.
    auto scan = jsonOf({"scan", root});
    EXPECT_EQ(scan["captured"], 0) << scan.dump();
    EXPECT_EQ(scan["source"], "crawl") << "the folder's baseline is not taken again";
}

TEST_F(CheckCommandTest, ASoundCatalogIsRebuiltOnlyWhenForced) {
    recordFolder();
    expectRefused(vosklin({"check", "--rebuild"}), "add --force");
    EXPECT_TRUE(setAside().empty());
    auto forced = jsonOf({"check", "--rebuild", "--force"});
    EXPECT_EQ(forced["versions"], 2);
    EXPECT_EQ(setAside().size(), 1u);
    EXPECT_EQ(jsonOf({"status"})["versions"], 2);
}

}  // namespace
}  // namespace vosklin

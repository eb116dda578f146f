// The `vosklin` binary end to end: watching folders, scanning them, and
// getting old versions back out, as a user would from a terminal.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/VosklinHomeTest.h"
#include "platform/Instant.h"
#include "platform/Uuid.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::TempDirectory;

std::string hexOf(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : bytes) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
    }
    return hex;
}

class CaptureCommandsTest : public test::VosklinHomeTest {
protected:
    std::string addFolder() {
        auto added = jsonOf({"folder", "add", root});
        return added.value("id", "");
    }

    json versionsOf(const std::string& relative) { return jsonOf({"versions", root + "/" + relative})["versions"]; }

    json folderEntry(const std::string& command) {
        auto list = command == "status" ? jsonOf({"status"})["folders"] : jsonOf({"folder", "list"});
        EXPECT_EQ(list.size(), 1u) << list.dump();
        return list.empty() ? json::object() : list[0];
    }

    std::string slotDirectory(const json& version) { return home / ("store/" + version["slot"].get<std::string>()); }
};

TEST_F(CaptureCommandsTest, AddedFolderIsListedAndCannotBeAddedTwice) {
    auto added = jsonOf({"folder", "add", root});
    EXPECT_TRUE(isUuid(added.value("id", ""))) << added.dump();
    EXPECT_EQ(added["path"], root);
    EXPECT_EQ(added["mode"], "automatic");

    auto listed = folderEntry("list");
    EXPECT_EQ(listed["id"], added["id"]);
    EXPECT_EQ(listed["path"], root);
    EXPECT_EQ(listed["reachable"], true);
    EXPECT_EQ(listed["isPaused"], false);
    EXPECT_EQ(listed["versions"], 0);

    expectRefused(vosklin({"folder", "add", root}), "already watched");
    expectRefused(vosklin({"folder", "add", root + "/."}), "already watched");
    fs::create_directory(root + "/inner");
    expectRefused(vosklin({"folder", "add", root + "/inner"}), "already watched");
    EXPECT_EQ(jsonOf({"folder", "list"}).size(), 1u);
}

TEST_F(CaptureCommandsTest, AddingWhatIsNotAFolderWritesNothing) {
    expectRefused(vosklin({"folder", "add", root + "/missing"}), "does not exist");
    watched.write("file.txt", "x");
    expectRefused(vosklin({"folder", "add", root + "/file.txt"}), "not a folder");
    expectRefused(vosklin({"folder", "add", home.path()}), "Vosklin's own data");
    EXPECT_FALSE(fs::exists(home / "folders.json"));
    EXPECT_FALSE(fs::exists(home / "store"));
}

TEST_F(CaptureCommandsTest, FirstScanIsTheBaselineAndASecondFindsNothingNew) {
    watched.write("a.txt", "alpha");
    watched.write("b.txt", "beta");
    watched.write("sub/c.txt", "gamma");
    watched.write("sub/deeper/d.txt", "");
    const std::string id = addFolder();

    auto first = jsonOf({"scan", root});
    EXPECT_EQ(first["folderID"], id);
    EXPECT_EQ(first["source"], "baseline");
    EXPECT_EQ(first["examined"], 4);
    EXPECT_EQ(first["captured"], 4);
    EXPECT_EQ(first["failed"], 0);

    auto second = jsonOf({"scan", id});  // by id this time
    EXPECT_EQ(second["source"], "crawl");
    EXPECT_EQ(second["examined"], 4);
    EXPECT_EQ(second["captured"], 0);
    EXPECT_EQ(second["unchanged"], 4);
    EXPECT_EQ(second["tombstoned"], 0);
    EXPECT_EQ(versionsOf("sub/c.txt").size(), 1u);
}

TEST_F(CaptureCommandsTest, ScanNoticesAnEditARenameAndADeletion) {
    watched.write("edited.txt", "first");
    watched.write("renamed.txt", "moves");
    watched.write("deleted.txt", "goes");
    watched.write("same.txt", "stays");
    addFolder();
    ASSERT_EQ(jsonOf({"scan", root})["captured"], 4);

    watched.write("edited.txt", "first, then more");  // another size: a change whatever the clock says
    fs::create_directory(root + "/archive");
    fs::rename(root + "/renamed.txt", root + "/archive/moved.txt");
    fs::remove(root + "/deleted.txt");
    auto scan = jsonOf({"scan", root});
    EXPECT_EQ(scan["source"], "crawl");
    EXPECT_EQ(scan["captured"], 1);
    EXPECT_EQ(scan["renamed"], 1);
    EXPECT_EQ(scan["tombstoned"], 1);
    EXPECT_EQ(scan["failed"], 0);

    EXPECT_EQ(versionsOf("edited.txt").size(), 2u);
    auto moved = jsonOf({"versions", root + "/archive/moved.txt"});
    EXPECT_EQ(moved["file"]["relativePath"], "archive/moved.txt");
    ASSERT_EQ(moved["versions"].size(), 1u) << "the history followed the file";
    EXPECT_EQ(moved["versions"][0]["source"], "baseline");
    auto deleted = jsonOf({"versions", root + "/deleted.txt"});
    EXPECT_FALSE(deleted["file"]["deletedAt"].is_null());
    EXPECT_EQ(deleted["versions"].size(), 1u) << "a deleted file keeps its history";

    auto status = folderEntry("status");
    EXPECT_EQ(status["files"], 3) << "live files";
    EXPECT_EQ(status["versions"], 5);
}

TEST_F(CaptureCommandsTest, VersionsAreNewestFirstAndCatGivesBackTheExactBytes) {
    const std::string drafts[] = {std::string("draft\0one\xff\n", 11), "draft two, longer\n",
                                  "draft three, longer still\n"};
    addFolder();
    for (const auto& draft : drafts) {
        watched.write("essay.txt", draft);
        ASSERT_EQ(jsonOf({"scan", root})["captured"], 1);
    }

    auto versions = versionsOf("essay.txt");
    ASSERT_EQ(versions.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(versions[i]["logicalBytes"], drafts[2 - i].size()) << i;
        if (i == 0) continue;
        EXPECT_LT(versions[i]["id"].get<std::int64_t>(), versions[i - 1]["id"].get<std::int64_t>());
        auto newer = parseInstant(versions[i - 1]["capturedAt"].get<std::string>());
        auto older = parseInstant(versions[i]["capturedAt"].get<std::string>());
        ASSERT_TRUE(newer && older);
        EXPECT_LE(*older, *newer);
    }

    const std::string oldest = idOf(versions[2]);
    auto cat = vosklin({"cat", oldest});
    EXPECT_EQ(cat.exitStatus, 0) << cat.err;
    EXPECT_EQ(cat.out, drafts[0]);
    EXPECT_EQ(contentOf(versions[1]), drafts[1]);

    const std::string restored = home / "restored.txt";
    EXPECT_EQ(vosklin({"cat", oldest, "-o", restored}).exitStatus, 0);
    EXPECT_EQ(test::readFile(restored), drafts[0]);

    const std::string precious = watched.write("precious.txt", "do not touch");
    expectRefused(vosklin({"cat", oldest, "--output", precious}), "already exists");
    EXPECT_EQ(test::readFile(precious), "do not touch");
}

// A slot holds the payload beside its sidecar, "vosklin-version.json": a user's file of
// that very name must keep its own bytes through capture, cat and an in-place restore.
TEST_F(CaptureCommandsTest, AFileNamedLikeTheSidecarKeepsItsBytes) {
    addFolder();
    const std::string path = watched.write("vosklin-version.json", "{\"mine\": 1}\n");
    ASSERT_EQ(jsonOf({"scan", root})["captured"], 1);
    watched.write("vosklin-version.json", "{\"mine\": 2}\n");
    ASSERT_EQ(jsonOf({"scan", root})["captured"], 1);

    auto versions = versionsOf("vosklin-version.json");
    ASSERT_EQ(versions.size(), 2u);
    const std::string older = idOf(versions[1]);
    EXPECT_EQ(contentOf(versions[1]), "{\"mine\": 1}\n");
    auto restored = vosklin({"restore", older, "--in-place"});
    ASSERT_EQ(restored.exitStatus, 0) << restored.err;
    EXPECT_EQ(test::readFile(path), "{\"mine\": 1}\n");
    auto after = versionsOf("vosklin-version.json");
    ASSERT_FALSE(after.empty());
    EXPECT_EQ(contentOf(after[0]), "{\"mine\": 2}\n")
        << "what the restore replaced is kept, byte for byte";
}

TEST_F(CaptureCommandsTest, PackageVersionIsWrittenOutOnlyAsADirectory) {
    watched.write("Report.rtfd/TXT.rtf", "{\\rtf1 hello}");
    watched.write("Report.rtfd/images/chart.png", std::string("\x89PNG\0\0", 6));
    addFolder();
    ASSERT_EQ(jsonOf({"scan", root})["captured"], 1) << "a package is one unit";

    auto history = jsonOf({"versions", root + "/Report.rtfd"});
    EXPECT_EQ(history["file"]["isPackage"], true);
    ASSERT_EQ(history["versions"].size(), 1u);
    const std::string id = idOf(history["versions"][0]);

    expectRefused(vosklin({"cat", id}), "-o");
    const std::string out = home / "Report-old.rtfd";
    auto written = vosklin({"cat", id, "-o", out});
    ASSERT_EQ(written.exitStatus, 0) << written.err;
    EXPECT_EQ(test::readFile(out + "/TXT.rtf"), "{\\rtf1 hello}");
    EXPECT_EQ(test::readFile(out + "/images/chart.png"), std::string("\x89PNG\0\0", 6));

    const std::string existing = watched.write("elsewhere/Report.rtfd", "a file in the way");
    expectRefused(vosklin({"cat", id, "-o", existing}), "already exists");
    EXPECT_EQ(test::readFile(existing), "a file in the way");
}

TEST_F(CaptureCommandsTest, SnapshotStoresWhatChangedAsOneManualBatch) {
    watched.write("kept.txt", "unchanged");
    watched.write("edited.txt", "v1");
    watched.write("deleted.txt", "bye");
    addFolder();
    jsonOf({"scan", root});
    watched.write("edited.txt", "version two");
    watched.write("new.txt", "fresh");
    fs::remove(root + "/deleted.txt");

    auto snapshot = jsonOf({"snapshot", root});
    EXPECT_EQ(snapshot["captured"], 2);
    EXPECT_EQ(snapshot["tombstoned"], 1);
    EXPECT_EQ(snapshot["failed"], 0);
    const std::string batch = snapshot.value("batchID", "");
    EXPECT_TRUE(isUuid(batch)) << snapshot.dump();
    auto at = parseInstant(snapshot.value("at", ""));
    ASSERT_TRUE(at.has_value()) << snapshot.dump();

    for (const std::string file : {"edited.txt", "new.txt"}) {
        auto newest = versionsOf(file)[0];
        EXPECT_EQ(newest["batchID"], batch) << file;
        EXPECT_EQ(newest["source"], "manual") << file;
        EXPECT_GE(*parseInstant(newest["capturedAt"].get<std::string>()), *at) << file;
    }
    auto kept = versionsOf("kept.txt");
    ASSERT_EQ(kept.size(), 1u) << "an unchanged file gets no second copy";
    EXPECT_TRUE(kept[0]["batchID"].is_null());
    EXPECT_EQ(versionsOf("edited.txt")[1]["source"], "baseline");

    auto second = jsonOf({"snapshot", root});
    EXPECT_EQ(second["captured"], 0);
    EXPECT_NE(second["batchID"], batch) << "each snapshot is its own batch";
}

TEST_F(CaptureCommandsTest, ExcludedAndTransientFilesNeverGetVersions) {
    watched.write("kept.txt", "kept");
    const std::vector<std::string> ignored = {"node_modules/left-pad/index.js", "src/node_modules/x.js", "x.tmp",
                                              "~$doc.docx", ".~lock.report.odt#", "notes.txt~"};
    for (const auto& path : ignored) watched.write(path, "noise");
    addFolder();

    auto baseline = jsonOf({"scan", root});
    EXPECT_EQ(baseline["examined"], 1);
    EXPECT_EQ(baseline["captured"], 1);
    for (const auto& path : ignored) watched.write(path, "more noise, and longer");
    EXPECT_EQ(jsonOf({"scan", root})["captured"], 0);
    EXPECT_EQ(jsonOf({"snapshot", root})["captured"], 0);

    for (const auto& path : ignored) expectRefused(vosklin({"versions", root + "/" + path}), "no history");
    auto status = folderEntry("status");
    EXPECT_EQ(status["files"], 1);
    EXPECT_EQ(status["versions"], 1);
}

TEST_F(CaptureCommandsTest, PauseModeAndBudgetShowInTheFolderList) {
    const std::string id = addFolder();
    auto changed = [&](std::vector<std::string> arguments) {
        auto result = vosklin(arguments);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return folderEntry("list");
    };
    EXPECT_EQ(changed({"folder", "pause", root})["isPaused"], true);
    EXPECT_EQ(changed({"folder", "resume", id})["isPaused"], false);
    EXPECT_EQ(changed({"folder", "mode", root, "manual"})["mode"], "manual");
    EXPECT_EQ(changed({"folder", "budget", root, "20GB"})["budgetBytes"], 20'000'000'000);
    EXPECT_EQ(changed({"folder", "budget", root, "1.5 GiB"})["budgetBytes"], 1'610'612'736);
    EXPECT_EQ(changed({"folder", "budget", root, "unlimited"})["budgetBytes"], "unlimited");

    expectRefused(vosklin({"folder", "mode", root, "sometimes"}), "not a mode");
    // Each refused by name, with the reason; none may wrap round into a negative budget.
    const std::pair<std::string, std::string> refusedBudgets[] = {
        {"lots", "does not start with a number"},
        {"1e30", "has no unit 'e30'"},
        {"-5", "does not start with a number"},
        {"1.5.3", "is not one number"},
        {"5 XB", "has no unit 'XB'"},
        {"", "is empty"},
        {"9223372036854775808", "more bytes than can be counted"},
        {"10000000 TB", "more bytes than can be counted"},
        {"20", "too small for a budget"},
    };
    for (const auto& [text, because] : refusedBudgets) {
        SCOPED_TRACE(text);
        expectRefused(vosklin({"folder", "budget", root, text}), "'" + text + "' ");
        expectRefused(vosklin({"folder", "budget", root, text}), because);
    }
    auto after = folderEntry("list");
    EXPECT_EQ(after["mode"], "manual") << "a refused change changes nothing";
    EXPECT_EQ(after["budgetBytes"], "unlimited");
    EXPECT_TRUE(changed({"folder", "budget", root, "automatic"})["budgetBytes"].is_null());
    EXPECT_EQ(changed({"folder", "mode", root, "automatic"})["mode"], "automatic");
    EXPECT_EQ(after["isPaused"], false);
}

TEST_F(CaptureCommandsTest, RemoveWithForgetHistoryTakesTheFolderItsHistoryAndItsCopies) {
    TempDirectory otherPlace;
    const std::string other = canonicalPath(otherPlace);
    watched.write("a.txt", "a");
    watched.write("b.txt", "bb");
    otherPlace.write("c.txt", "ccc");
    addFolder();
    jsonOf({"folder", "add", other});
    jsonOf({"scan", root});
    jsonOf({"scan", other});
    std::vector<std::string> forgotten = {slotDirectory(versionsOf("a.txt")[0]), slotDirectory(versionsOf("b.txt")[0])};
    const std::string keptSlot = slotDirectory(jsonOf({"versions", other + "/c.txt"})["versions"][0]);
    for (const auto& slot : forgotten) ASSERT_TRUE(fs::is_directory(slot)) << slot;

    auto removed = vosklin({"folder", "remove", root, "--forget-history"});
    EXPECT_EQ(removed.exitStatus, 0) << removed.err;

    auto status = jsonOf({"status"});
    ASSERT_EQ(status["folders"].size(), 1u);
    EXPECT_EQ(status["folders"][0]["path"], other);
    EXPECT_EQ(status["files"], 1);
    EXPECT_EQ(status["versions"], 1);
    EXPECT_EQ(status["logicalBytes"], 3);
    for (const auto& slot : forgotten) EXPECT_FALSE(fs::exists(slot)) << slot;
    EXPECT_TRUE(fs::is_directory(keptSlot));
    EXPECT_TRUE(fs::exists(root + "/a.txt")) << "the user's own files are never touched";
    expectRefused(vosklin({"versions", root + "/a.txt"}), "not inside a watched folder");
}

TEST_F(CaptureCommandsTest, RemovedFolderAddedAgainHasItsHistoryBack) {
    // `folder remove` keeps the history and promises that `folder add` brings
    // it back: the re-added folder must take its old id, by which the catalog
    // keys its history, or the versions are lost to view and a new baseline is taken.
    watched.write("a.txt", "kept");
    addFolder();
    jsonOf({"scan", root});
    auto removed = vosklin({"folder", "remove", root});
    EXPECT_EQ(removed.exitStatus, 0) << removed.err;
    EXPECT_NE(removed.out.find("folder add"), std::string::npos) << removed.out;
    EXPECT_EQ(jsonOf({"status"})["versions"], 1) << "history kept";

    addFolder();
    EXPECT_EQ(versionsOf("a.txt").size(), 1u);
    EXPECT_EQ(jsonOf({"scan", root})["captured"], 0) << "nothing new to keep";
}

TEST_F(CaptureCommandsTest, NamesThatAreNotUtf8WorkEndToEnd) {
    const std::string folder = root + "/caf\xe9";
    const std::string file = folder + "/r\xe9sum\xe9.txt";
    fs::create_directory(folder);
    test::writeFile(file, "latin-1 named");

    // Still valid JSON, with the exact bytes for programs.
    EXPECT_EQ(jsonOf({"folder", "add", folder}).value("pathBytes", ""), hexOf(folder));
    ASSERT_EQ(vosklin({"scan", folder}).exitStatus, 0);
    auto versions = jsonOf({"versions", file})["versions"];
    ASSERT_EQ(versions.size(), 1u);
    EXPECT_EQ(contentOf(versions[0]), "latin-1 named");
}

TEST_F(CaptureCommandsTest, MistakesFailWithOneLineAndNothingChanges) {
    watched.write("a.txt", "a");
    // Before any store exists, asking for a version must not make one.
    expectRefused(vosklin({"cat", "1"}), "no version 1");
    EXPECT_FALSE(fs::exists(home / "store"));

    addFolder();
    jsonOf({"scan", root});
    expectRefused(vosklin({"scan", root + "-elsewhere"}), "No watched folder");
    expectRefused(vosklin({"folder", "pause", makeUuid()}), "No watched folder");
    expectRefused(vosklin({"folder", "remove", root + "/a.txt"}), "No watched folder");
    expectRefused(vosklin({"versions", "/etc/hostname"}), "not inside a watched folder");
    expectRefused(vosklin({"versions", root}), "not inside a watched folder");
    expectRefused(vosklin({"versions", root + "/never.txt"}), "no history");
    expectRefused(vosklin({"cat", "999"}), "no version 999");
    for (const std::string text : {"abc", "0", "-1", "1x", ""})
        expectRefused(vosklin({"cat", text}), "not a version number");
    EXPECT_EQ(folderEntry("list")["isPaused"], false);
    EXPECT_EQ(folderEntry("status")["versions"], 1);
}

TEST_F(CaptureCommandsTest, StatusShowsEachFolderAndWhenItIsGone) {
    watched.write("a.txt", "1234");
    watched.write("b/c.txt", "123456");
    const std::string id = addFolder();
    auto beforeStore = folderEntry("status");
    EXPECT_EQ(beforeStore["reachable"], true);
    EXPECT_EQ(beforeStore["files"], 0);
    jsonOf({"scan", root});

    auto entry = folderEntry("status");
    EXPECT_EQ(entry["id"], id);
    EXPECT_EQ(entry["path"], root);
    EXPECT_EQ(entry["reachable"], true);
    EXPECT_FALSE(entry.contains("unreachableReason"));
    EXPECT_EQ(entry["files"], 2);
    EXPECT_EQ(entry["versions"], 2);
    EXPECT_EQ(entry["logicalBytes"], 10);

    fs::remove_all(root);
    auto gone = folderEntry("status");  // a missing folder is reported, not an error of the store
    EXPECT_EQ(gone["reachable"], false);
    EXPECT_EQ(gone["unreachableReason"], "no longer exists");
    EXPECT_EQ(gone["versions"], 2) << "its history is still there";
    auto listed = folderEntry("list");
    EXPECT_EQ(listed["reachable"], false);
    EXPECT_EQ(listed["unreachableReason"], "no longer exists");
    expectRefused(vosklin({"scan", root}), "no longer exists");
}

}  // namespace
}  // namespace vosklin

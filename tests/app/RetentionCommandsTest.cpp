// delete, usage and settings through the built binary, over histories made by
// real captures at chosen instants.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "app/RecordedFolder.h"
#include "platform/Instant.h"
#include "platform/StringTable.h"
#include "support/TerminalSession.h"
#include "support/XfsImage.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::t0;
using Strings = std::vector<std::string>;

class RetentionCommandsTest : public test::RecordedFolder, public ::testing::Test {
protected:
    RetentionCommandsTest() : RecordedFolder("C0000000-0000-4000-8000-000000000003") {}

    StoredVersion keep(const std::string& relative, const std::string& contents, double at,
                       CaptureSource source = CaptureSource::watcher, const WatchedFolder* in = nullptr) {
        const WatchedFolder& into = in ? *in : folder;
        test::writeFile(into.path + "/" + relative, contents);
        auto outcome = stack.service.capture({into.id, into.path, into.path + "/" + relative, false, source, {}}, at);
        EXPECT_EQ(outcome.kind, CaptureOutcome::Kind::stored) << relative;
        return outcome.version;
    }

    // A second watched folder beside the first.
    WatchedFolder addFolder() {
        const std::string path = place / "Other";
        fs::create_directories(path);
        struct stat st {};
        ::stat(path.c_str(), &st);
        WatchedFolder other{"C0000000-0000-4000-8000-000000000004", path, CaptureMode::automatic, false, {},
                            st.st_dev, st.st_ino};
        FolderList(home / "folders.json", stack.fileSystem).append(other);
        return other;
    }

    void name(double at, const std::string& text) {
        ASSERT_EQ(vosklin({"name", root, formatInstant(at), text}).exitStatus, 0) << text;
    }

    // Every named moment as `history --json` shows it: name -> printed instant.
    std::map<std::string, std::string> namedMoments() {
        std::map<std::string, std::string> names;
        const auto history = jsonOf({"history", root});
        for (const auto& session : history["sessions"])
            for (const auto& moment : session["moments"])
                if (moment.contains("mark") && moment["mark"].contains("name")) names[moment["mark"]["name"]] = moment["at"];
        return names;
    }
};

// ---- delete: one history, many selections ----------------------------------

struct Erasure {
    const char* name;
    Strings arguments;  // version labels, or --all and a file name
    Strings deleted;    // the labels of the versions that go
    bool starred, undoCopy, lastCopyOfDeletedFile, wholeLiveFile;
    Strings vanishing;
    std::map<std::string, double> namesAfter;  // name -> instant (after t0) its moment ends at
};

void PrintTo(const Erasure& row, std::ostream* out) { *out << row.name; }

class EraseTest : public RetentionCommandsTest, public ::testing::WithParamInterface<Erasure> {
protected:
    // t0         a1 b1 c1 gone1 live1 old1
    // t0+100     live2
    // t0+300     gone.txt deleted
    // t0+500     old.txt deleted                 named "Tidy"
    // t0+1000    c.txt deleted   |
    // t0+1020    a2              | one moment,   named "Draft" (the mark on b2)
    // t0+1040    b2              |
    // t0+2000    a3 alone                        named "Lone"
    // t0+3000    b3, a copy taken before a rewind; t0+3100 b4, starred
    EraseTest() {
        for (const char* file : {"a", "b", "c", "gone", "live", "old"})
            v[std::string(file) + "1"] = keep(std::string(file) + ".txt", std::string(file) + " one", t0);
        v["live2"] = keep("live.txt", "live two", t0 + 100);
        const std::pair<const char*, int> deletions[] = {{"gone", 300}, {"old", 500}, {"c", 1000}};
        for (const auto& [file, at] : deletions) {
            fs::remove(root + "/" + file + ".txt");
            stack.catalog.markDeleted(v[std::string(file) + "1"].fileID, t0 + at);
        }
        v["a2"] = keep("a.txt", "a two", t0 + 1020);
        v["b2"] = keep("b.txt", "b two", t0 + 1040);
        v["a3"] = keep("a.txt", "a three", t0 + 2000);
        v["b3"] = keep("b.txt", "b three", t0 + 3000, CaptureSource::preRewind);
        v["b4"] = keep("b.txt", "b four", t0 + 3100);
        name(t0 + 500, "Tidy");
        name(t0 + 1040, "Draft");
        name(t0 + 2000, "Lone");
        EXPECT_EQ(vosklin({"star", std::to_string(v["b4"].id)}).exitStatus, 0);
    }

    bool hasEvents(std::int64_t fileID) {
        const auto events = stack.catalog.eventsSince(folder.id, 0);
        return std::any_of(events.begin(), events.end(), [&](const auto& event) { return event.fileID == fileID; });
    }

    std::map<std::string, StoredVersion> v;
};

TEST_P(EraseTest, ThePreviewSaysWhatGoesAndTheEraseTakesExactlyThat) {
    const auto& row = GetParam();
    Strings arguments = {"delete"};
    for (const auto& word : row.arguments)
        arguments.push_back(v.count(word) ? std::to_string(v[word].id) : word.ends_with(".txt") ? root + "/" + word : word);
    const std::string live = root + "/live.txt";
    struct stat liveBefore {};
    ASSERT_EQ(::stat(live.c_str(), &liveBefore), 0);

    arguments.push_back("--dry-run");
    const auto preview = jsonOf(arguments);
    arguments.pop_back();
    EXPECT_EQ(preview["versionCount"], row.deleted.size());
    EXPECT_GT(preview["reclaimableBytes"].get<std::int64_t>(), 0);
    EXPECT_EQ(preview["includesStarred"], row.starred);
    EXPECT_EQ(preview["includesUndoCopy"], row.undoCopy);
    EXPECT_EQ(preview["erasesLastCopyOfDeletedFile"], row.lastCopyOfDeletedFile);
    EXPECT_EQ(preview["erasesWholeLiveFile"], row.wholeLiveFile);
    EXPECT_EQ(preview["vanishingMomentNames"], row.vanishing);
    std::set<std::int64_t> chosen;
    for (const auto& label : row.deleted) chosen.insert(v[label].id);
    EXPECT_EQ(preview["versionIDs"].get<std::set<std::int64_t>>(), chosen);
    for (const auto& [label, version] : v) ASSERT_TRUE(stack.catalog.version(version.id)) << "a dry run keeps " << label;

    arguments.push_back("--yes");
    EXPECT_EQ(jsonOf(arguments)["deletedCount"], row.deleted.size());
    for (const auto& [label, version] : v) {
        const bool gone = chosen.count(version.id) > 0;
        EXPECT_EQ(stack.catalog.version(version.id).has_value(), !gone) << label;
        EXPECT_EQ(fs::exists(stack.layout.slotDirectory(version.slot)), !gone) << label;
    }
    // A deleted file that lost its last copy leaves the catalog with its events; a live file keeps its row.
    for (const char* file : {"gone", "old", "c"}) {
        const bool erased = chosen.count(v[std::string(file) + "1"].id) > 0;
        EXPECT_EQ(stack.catalog.fileAtPath(folder.id, std::string(file) + ".txt").has_value(), !erased) << file;
        EXPECT_EQ(hasEvents(v[std::string(file) + "1"].fileID), !erased) << file;
        if (erased) test::expectRefused(vosklin({"versions", root + "/" + file + ".txt"}), "no history of");
    }
    const auto liveRow = stack.catalog.fileAtPath(folder.id, "live.txt");
    ASSERT_TRUE(liveRow);
    EXPECT_EQ(stack.catalog.versionsOfFile(liveRow->id, 10).empty(), row.wholeLiveFile);
    struct stat liveAfter {};
    ASSERT_EQ(::stat(live.c_str(), &liveAfter), 0);
    EXPECT_EQ(test::readFile(live), "live two") << "the file itself is never touched";
    EXPECT_EQ(liveAfter.st_ino, liveBefore.st_ino);
    EXPECT_EQ(liveAfter.st_mtim.tv_sec, liveBefore.st_mtim.tv_sec);
    EXPECT_EQ(liveAfter.st_mtim.tv_nsec, liveBefore.st_mtim.tv_nsec);

    std::map<std::string, std::string> expectedNames;
    for (const auto& [text, at] : row.namesAfter) expectedNames[text] = formatInstant(t0 + at);
    EXPECT_EQ(namedMoments(), expectedNames);
    EXPECT_EQ(stack.catalog.marks(folder.id).size(), expectedNames.size()) << "no mark is left standing on nothing";
    const auto check = vosklin({"check", "--read-data"});
    EXPECT_EQ(check.exitStatus, 0) << check.out << check.err;
}

const std::map<std::string, double> allNames = {{"Tidy", 500}, {"Draft", 1040}, {"Lone", 2000}};

INSTANTIATE_TEST_SUITE_P(
    RetentionCommands, EraseTest,
    ::testing::Values(
        Erasure{"OnlyCopyOfADeletedFile", {"gone1"}, {"gone1"}, false, false, true, false, {}, allNames},
        Erasure{"WholeHistoryOfALiveFile", {"--all", "live.txt"}, {"live1", "live2"}, false, false, false, true, {},
                allNames},
        Erasure{"TheVersionANamedMomentAloneStoodOn", {"a3"}, {"a3"}, false, false, false, false, {"Lone"},
                {{"Tidy", 500}, {"Draft", 1040}}},
        Erasure{"AVersionBesideTheMark", {"a2"}, {"a2"}, false, false, false, false, {}, allNames},
        // The name goes with what is left of its moment.
        Erasure{"TheVersionAtTheMark", {"b2"}, {"b2"}, false, false, false, false, {},
                {{"Tidy", 500}, {"Draft", 1020}, {"Lone", 2000}}},
        Erasure{"EveryVersionOfTheMomentButADeletionRemains", {"a2", "b2"}, {"a2", "b2"}, false, false, false, false,
                {}, {{"Tidy", 500}, {"Draft", 1000}, {"Lone", 2000}}},
        Erasure{"AnUndoCopy", {"b3"}, {"b3"}, false, true, false, false, {}, allNames},
        Erasure{"AStarredVersion", {"b4"}, {"b4"}, true, false, false, false, {}, allNames},
        // Erasing a deleted file's last copy takes its deletion with it: a moment that stood on that goes too.
        Erasure{"TheOnlyCopyOfAFileWhoseDeletionWasNamed", {"old1"}, {"old1"}, false, false, true, false, {"Tidy"},
                {{"Draft", 1040}, {"Lone", 2000}}},
        Erasure{"EveryVersionOfTheMomentAndTheDeletedFile", {"a2", "b2", "c1"}, {"a2", "b2", "c1"}, false, false, true,
                false, {"Draft"}, {{"Tidy", 500}, {"Lone", 2000}}},
        Erasure{"SeveralAtOnce", {"b4", "a3", "b3", "a3"}, {"a3", "b3", "b4"}, true, true, false, false, {"Lone"},
                {{"Tidy", 500}, {"Draft", 1040}}}),
    [](const auto& entry) { return std::string(entry.param.name); });

// ---- delete: what is refused, and asking on a terminal ---------------------

TEST_F(RetentionCommandsTest, DeleteRefusesWhatItCannotDoAndDeletesNothing) {
    const auto a = keep("a.txt", "one", t0);
    const auto other = addFolder();
    const auto o = keep("o.txt", "oh", t0, CaptureSource::watcher, &other);
    const std::string id = std::to_string(a.id);

    test::expectRefused(vosklin({"delete", id}), "Add --yes to delete without a terminal");
    test::expectRefused(vosklin({"delete", id, std::to_string(o.id), "--yes"}), "different folders");
    test::expectRefused(vosklin({"delete", id, "987654", "--yes"}), "There is no version 987654");
    test::expectRefused(vosklin({"delete", id, "--all", root + "/a.txt", "--yes"}), "(not both)");
    test::expectRefused(vosklin({"delete", "--yes"}), "(not both)");
    test::expectRefused(vosklin({"delete", "--all", root + "/never.txt", "--yes"}), "no history of");
    for (const auto& version : {a, o}) {
        EXPECT_TRUE(stack.catalog.version(version.id));
        EXPECT_TRUE(fs::exists(stack.layout.slotDirectory(version.slot)));
    }
}

TEST_F(RetentionCommandsTest, OnATerminalDeleteShowsTheSheetAndAsks) {
    keep("a.txt", "one", t0);
    const auto starred = keep("a.txt", "two", t0 + 100);
    ASSERT_EQ(vosklin({"star", std::to_string(starred.id)}).exitStatus, 0);
    for (const std::string answer : {"n", "y"}) {
        test::TerminalSession session({"--home", home.path(), "delete", std::to_string(starred.id)});
        ASSERT_TRUE(session.readUntil("[y/N]")) << session.output() << session.errorOutput();
        EXPECT_NE(session.output().find(StringTable::text("history.delete.sheet.warn.starred")), std::string::npos)
            << session.output();
        session.type(answer + "\n");
        EXPECT_EQ(session.finish(), answer == "y" ? 0 : 1) << session.output() << session.errorOutput();
        EXPECT_EQ(stack.catalog.version(starred.id).has_value(), answer == "n") << session.output();
    }
}

// ---- settings ----------------------------------------------------------------

TEST_F(RetentionCommandsTest, SettingsTakeOnlyTheValuesTheyMean) {
    struct Row {
        Strings arguments;
        bool accepted;
        std::string key;         // without "vosklin."
        nlohmann::json stored;   // afterwards in settings.json; null: absent
    };
    const std::vector<Row> rows = {
        {{"historyHorizon", "month"}, true, "historyHorizon", "month"},
        {{"historyHorizon", "quarter"}, true, "historyHorizon", "quarter"},
        {{"vosklin.historyHorizon", "halfYear"}, true, "historyHorizon", "halfYear"},
        {{"historyHorizon", "forever"}, true, "historyHorizon", "forever"},
        {{"historyHorizon", "year"}, true, "historyHorizon", "year"},
        {{"historyHorizon", "fortnight"}, false, "", {}},
        {{"mergeWindowSeconds", "2.5"}, true, "mergeWindowSeconds", 2.5},
        {{"mergeWindowSeconds", "0"}, false, "", {}},
        {{"mergeWindowSeconds", "-1"}, false, "", {}},
        {{"mergeWindowSeconds", "1e3"}, false, "", {}},
        {{"mergeWindowSeconds", "nan"}, false, "", {}},
        {{"mergeWindowSeconds", "abc"}, false, "", {}},
        {{"mergeWindowSeconds", "3601"}, false, "", {}},
        {{"vosklin.mergeWindowSeconds", "3600"}, true, "mergeWindowSeconds", 3600},
        {{"contentSearchDisabled", "true"}, true, "contentSearchDisabled", true},
        {{"isPaused", "on"}, true, "isPaused", true},
        {{"isPaused", "off"}, true, "isPaused", false},
        {{"contentSearchDisabled", "false"}, true, "contentSearchDisabled", false},
        {{"isPaused", "maybe"}, false, "", {}},
        {{"excludePatterns", "*.tmp", "~$*", "build"}, true, "excludePatterns", {"*.tmp", "~$*", "build"}},
        {{"excludePatterns", "cache/*"}, false, "", {}},
        {{"excludePatterns", "*.log", ""}, false, "", {}},
        {{"packageExtensions", ".scriv", "pages"}, true, "packageExtensions", {"scriv", "pages"}},
        {{"vosklin.nonsense", "1"}, false, "", {}},
        {{"nonsense", "--reset"}, false, "", {}},
        {{"historyHorizon", "--reset"}, true, "historyHorizon", nullptr},
    };
    const std::string file = home / "settings.json";
    for (const auto& row : rows) {
        Strings arguments = {"settings"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        SCOPED_TRACE(::testing::PrintToString(row.arguments));
        const std::string before = fs::exists(file) ? test::readFile(file) : "";
        const auto result = vosklin(arguments);
        if (!row.accepted) {
            test::expectRefused(result, "");
            EXPECT_EQ(fs::exists(file) ? test::readFile(file) : "", before) << "a refused value changes nothing";
            continue;
        }
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        const auto stored = nlohmann::json::parse(test::readFile(file));
        const std::string key = "vosklin." + row.key;
        EXPECT_EQ(stored.value(key, nlohmann::json()), row.stored) << stored.dump();
    }

    std::map<std::string, nlohmann::json> listed;
    for (const auto& entry : jsonOf({"settings"})) {
        EXPECT_TRUE(entry.contains("value") && entry.contains("default")) << entry.dump();
        EXPECT_FALSE(entry["meaning"].get<std::string>().empty()) << entry.dump();
        listed[entry["key"]] = entry;
    }
    EXPECT_EQ(listed.size(), 6u);
    for (const char* key : {"historyHorizon", "mergeWindowSeconds", "excludePatterns", "packageExtensions",
                            "contentSearchDisabled", "isPaused"})
        EXPECT_TRUE(listed.count(std::string("vosklin.") + key)) << key;
    EXPECT_EQ(listed["vosklin.historyHorizon"]["value"], "year");
    EXPECT_EQ(listed["vosklin.historyHorizon"]["isDefault"], true);
    EXPECT_EQ(listed["vosklin.mergeWindowSeconds"]["value"], 3600);
    EXPECT_EQ(listed["vosklin.mergeWindowSeconds"]["default"], 10);
}

// ---- usage -------------------------------------------------------------------

TEST_F(RetentionCommandsTest, UsageWeighsEachFolderAgainstItsBudget) {
    keep("a.bin", std::string(700'000, 'a'), t0);
    keep("a.bin", std::string(700'000, 'b'), t0 + 100);
    const auto other = addFolder();
    keep("o.txt", "small", t0, CaptureSource::watcher, &other);
    auto usageOf = [&](const std::string& id) {
        const auto usage = jsonOf({"usage"});
        std::int64_t privateSum = 0, logicalSum = 0, countSum = 0;
        nlohmann::json found;
        for (const auto& row : usage["folders"]) {
            privateSum += row["privateBytes"].get<std::int64_t>();
            logicalSum += row["logicalBytes"].get<std::int64_t>();
            countSum += row["versionCount"].get<std::int64_t>();
            if (row["folderID"] == id) found = row;
        }
        EXPECT_EQ(usage["total"]["privateBytes"], privateSum);
        EXPECT_EQ(usage["total"]["logicalBytes"], logicalSum);
        EXPECT_EQ(usage["total"]["versionCount"], countSum);
        EXPECT_EQ(countSum, 3);
        return found;
    };

    auto row = usageOf(folder.id);
    EXPECT_EQ(row["logicalBytes"], 1'400'000);
    EXPECT_EQ(row["versionCount"], 2);
    EXPECT_EQ(row["budget"], "automatic");
    EXPECT_GE(row["budgetBytes"].get<std::int64_t>(), 268'435'456) << "never below the scarce-disk budget";
    EXPECT_EQ(row["overBudget"], false);
    // Copied payloads take at least their own size; cloned ones may share it (see the XFS test).
    bool copied = true;
    const auto versions = jsonOf({"versions", root + "/a.bin"});
    for (const auto& version : versions["versions"]) copied &= version["method"] != "cloned";
    if (copied) {
        EXPECT_GE(row["privateBytes"].get<std::int64_t>(), 1'400'000);
    }
    EXPECT_EQ(jsonOf({"usage", root})["folders"].size(), 1u);

    // 1 MB is the smallest budget a folder takes, and 1.4 MB of versions are over it.
    const std::tuple<std::string, std::string, nlohmann::json, bool> budgets[] = {
        {"5GB", "5000000000", 5'000'000'000, false},
        {"1MB", "1000000", 1'000'000, true},
        {"unlimited", "unlimited", nullptr, false},
        {"automatic", "automatic", row["budgetBytes"], false},
    };
    for (const auto& [given, described, bytes, over] : budgets) {
        ASSERT_EQ(vosklin({"folder", "budget", root, given}).exitStatus, 0) << given;
        row = usageOf(folder.id);
        EXPECT_EQ(row["budget"], described);
        EXPECT_EQ(row["budgetBytes"], bytes) << given;
        EXPECT_EQ(row["overBudget"], over) << given;
        EXPECT_EQ(usageOf(other.id)["budget"], "automatic") << "the other folder keeps its own";
    }
}

TEST(RetentionCommandsXfsTest, ReflinkedVersionsTakeAlmostNothingOfTheirOwn) {
    std::string whyNot;
    auto image = test::XfsImage::mount(whyNot);
    if (!image) GTEST_SKIP() << "no reflink XFS here: " << whyNot;
    // The store must be on the folder's file system for its payloads to be clones.
    const std::string home = image->mountPoint() + "/home", docs = image->mountPoint() + "/Docs";
    const std::string big = docs + "/big.bin";
    fs::create_directories(docs);
    auto vosklin = [&](Strings arguments) { return test::runInHome(home, arguments); };
    ASSERT_EQ(vosklin({"folder", "add", docs}).exitStatus, 0);
    test::writeFile(big, std::string(4 << 20, 'x'));
    ASSERT_EQ(vosklin({"scan", docs}).exitStatus, 0);
    std::ofstream(big, std::ios::app) << "a little more";  // the first 4 MiB stay shared with the first version
    ASSERT_EQ(vosklin({"scan", docs}).exitStatus, 0);

    const auto versions = test::jsonInHome(home, {"versions", big})["versions"];
    ASSERT_EQ(versions.size(), 2u);
    for (const auto& version : versions) EXPECT_EQ(version["method"], "cloned") << version.dump();
    const auto row = test::jsonInHome(home, {"usage"})["folders"][0];
    EXPECT_EQ(row["logicalBytes"], 2 * (4 << 20) + 13);
    EXPECT_LT(row["privateBytes"].get<std::int64_t>(), row["logicalBytes"].get<std::int64_t>() / 16) << row.dump();
}

}  // namespace
}  // namespace vosklin

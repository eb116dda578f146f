// The live daemon end to end: `vosklin run` as its own process, changes made
// to the watched folders while it records, and the command line and the local
// API talking to it. `vosklin settle` is the only way these tests wait for a
// capture: it returns once every change made before it has been captured.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "app/LiveDaemonTest.h"
#include "platform/Uuid.h"
#include "support/DaemonProcess.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::DaemonProcess;
using test::TempDirectory;

void append(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    out << text;
}

class DaemonTest : public test::LiveDaemonTest {
protected:
    json daemonFolder(const json& status, const std::string& path) {
        for (const auto& folder : status["daemon"].value("folders", json::array()))
            if (folder.value("path", "") == path) return folder;
        ADD_FAILURE() << "the daemon does not report " << path << ": " << status.dump();
        return json::object();
    }
};

TEST_F(DaemonTest, FileWrittenOnceIsOneVersionAndABurstOfAppendsIsOneMore) {
    watched.write("before.txt", "there before the daemon");
    watched.write("sub/older.txt", "also there before");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    for (const std::string path : {"before.txt", "sub/older.txt"}) onlyVersionOf(root + "/" + path, "baseline");

    watched.write("note.txt", "written once");
    settle();
    EXPECT_EQ(onlyVersionOf(root + "/note.txt", "watcher")["logicalBytes"], 12);
    EXPECT_EQ(versionsOf(root + "/before.txt").size(), 1u) << "an untouched file is not captured again";

    std::string expected = "first line\n";
    const std::string log = watched.write("log.txt", expected);
    settle();
    ASSERT_EQ(versionsOf(log).size(), 1u);
    for (int line = 0; line < 20; ++line) {
        const std::string text = "appended line " + std::to_string(line) + "\n";
        append(log, text);
        expected += text;
    }
    settle();
    auto burst = versionsOf(log);
    ASSERT_EQ(burst.size(), 2u) << "twenty appends in a row are one change: " << burst.dump();
    EXPECT_EQ(burst[0]["source"], "watcher");
    EXPECT_EQ(burst[0]["logicalBytes"], expected.size()) << "the version is of the file after the last append";
    EXPECT_EQ(contentOf(burst[0]), expected);
    EXPECT_EQ(totalVersions(), 5) << "two baseline versions, note.txt, and log.txt twice";

    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
    // Read once it has exited: its standard output is a file, flushed no sooner.
    EXPECT_NE(daemon.standardOutput().find("Watching " + root), std::string::npos) << daemon.standardOutput();
    EXPECT_FALSE(fs::exists(home / "daemon.json")) << "a stopped daemon withdraws its endpoint";
    EXPECT_FALSE(fs::exists(home / "api-token"));
}

TEST_F(DaemonTest, FiveHundredFilesMadeAtOnceAreAllCaptured) {
    watched.write("existing.txt", "baseline");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();

    // Half straight into the root, half into a folder made at the same moment,
    // whose first files may well be written before its watch exists.
    std::map<std::string, std::string> made;  // relative path -> contents
    fs::create_directory(root + "/batch");
    for (int i = 0; i < 250; ++i) {
        for (const std::string& name : {"batch/file-" + std::to_string(i) + ".txt", "top-" + std::to_string(i) + ".txt"}) {
            made[name] = "contents of " + name;
            watched.write(name, made[name]);
        }
    }
    settle();

    auto status = jsonOf({"status"});
    ASSERT_EQ(status["folders"].size(), 1u) << status.dump();
    EXPECT_EQ(status["folders"][0]["files"], 501);
    EXPECT_EQ(status["folders"][0]["versions"], 501);

    // Each file, not just the count: a version of exactly its size.
    PosixFileSystem fileSystem;
    VersionCatalog catalog(VersionStoreLayout(home / "store", fileSystem).databasePath());
    const std::string folderID = status["folders"][0]["id"];
    const auto newest = catalog.newestVersionSummaries(folderID);
    std::set<std::string> missing;
    for (const auto& [relative, contents] : made) missing.insert(relative);
    for (const auto& file : catalog.files(folderID, true)) {
        if (!missing.erase(file.relativePath)) continue;
        auto version = newest.find(file.id);
        ASSERT_NE(version, newest.end()) << file.relativePath << " has a row but no version";
        EXPECT_EQ(version->second.logicalBytes, std::int64_t(made[file.relativePath].size())) << file.relativePath;
    }
    EXPECT_TRUE(missing.empty()) << missing.size() << " files never captured, such as " << *missing.begin();
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(DaemonTest, ExcludedAndTransientNamesAreNeverCapturedAndAPackageIsOneUnit) {
    watched.write("Book.pages/Index.xml", "<index/>");
    watched.write("Book.pages/Data/img.jpg", "jpeg, first");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    auto book = historyOf(root + "/Book.pages");
    EXPECT_EQ(book["file"]["isPackage"], true);
    ASSERT_EQ(book["versions"].size(), 1u);

    const std::vector<std::string> ignored = {"node_modules/x.js", "lib/node_modules/pkg/index.js",
                                              "draft.docx.sb-1a2b", "~$report.docx", "x.tmp"};
    for (const auto& path : ignored) watched.write(path, "noise");
    // Saved the way many editors save: a transient name, then renamed over the real one.
    watched.write("report.docx.sb-77aa", "the saved report");
    fs::rename(root + "/report.docx.sb-77aa", root + "/report.docx");
    watched.write("kept.txt", "kept");
    watched.write("Book.pages/Data/img.jpg", "jpeg, edited and longer");
    settle();

    ASSERT_EQ(versionsOf(root + "/kept.txt").size(), 1u) << "the daemon was recording all along";
    auto report = versionsOf(root + "/report.docx");
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0]["logicalBytes"], 16);
    for (const auto& path : ignored) expectNoHistory(root + "/" + path);
    expectNoHistory(root + "/report.docx.sb-77aa");

    auto books = versionsOf(root + "/Book.pages");
    ASSERT_EQ(books.size(), 2u) << "an edit inside a package is one new version of it: " << books.dump();
    EXPECT_EQ(books[0]["source"], "watcher");
    expectNoHistory(root + "/Book.pages/Data/img.jpg");
    const std::string restored = home / "Book-restored.pages";
    ASSERT_EQ(vosklin({"cat", idOf(books[0]), "-o", restored}).exitStatus, 0);
    EXPECT_EQ(test::readFile(restored + "/Data/img.jpg"), "jpeg, edited and longer");
    EXPECT_EQ(totalVersions(), 4);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(DaemonTest, RenamedFilesAndFoldersKeepTheirHistory) {
    watched.write("old-name.txt", "a file that moves");
    watched.write("a/b/c.txt", "nested deep");
    watched.write("a/d.txt", "nested");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    auto original = historyOf(root + "/old-name.txt");
    ASSERT_EQ(original["versions"].size(), 1u);
    const json nestedBefore = {versionsOf(root + "/a/b/c.txt"), versionsOf(root + "/a/d.txt")};

    fs::rename(root + "/old-name.txt", root + "/new-name.txt");
    settle();
    auto renamed = historyOf(root + "/new-name.txt");
    EXPECT_EQ(renamed["file"]["id"], original["file"]["id"]) << "the same file, under its new name";
    EXPECT_EQ(renamed["file"]["relativePath"], "new-name.txt");
    EXPECT_EQ(renamed["versions"], original["versions"]) << "no new version for the same content";
    expectNoHistory(root + "/old-name.txt");

    fs::rename(root + "/a", root + "/z");
    settle();
    const json nestedAfter = {versionsOf(root + "/z/b/c.txt"), versionsOf(root + "/z/d.txt")};
    EXPECT_EQ(nestedAfter, nestedBefore) << "every file of a renamed folder keeps its history";
    for (const std::string path : {"/a/b/c.txt", "/a/d.txt"}) expectNoHistory(root + path);

    // Changed right after the move: the change is captured under the new name.
    watched.write("z/b/c.txt", "nested deep, edited");
    settle();
    auto edited = versionsOf(root + "/z/b/c.txt");
    ASSERT_EQ(edited.size(), 2u) << edited.dump();
    EXPECT_EQ(edited[0]["source"], "watcher");
    EXPECT_EQ(edited[1], nestedBefore[0][0]);
    EXPECT_EQ(totalVersions(), 4);
    EXPECT_EQ(daemon.stop(), 0);
}

// A move out of the folder is known only once its other half has failed to
// come (the watcher holds it briefly): `settle` must wait for that too, or the
// files would still read as live right after it returns.
TEST_F(DaemonTest, MovesOutMovesInAndDeletionsAreRecordedOnceSettled) {
    TempDirectory outside;
    const std::string elsewhere = canonicalPath(outside);
    watched.write("leaving/x.txt", "leaves");
    watched.write("leaving/sub/y.txt", "leaves too");
    watched.write("gone.txt", "leaves alone");
    watched.write("doomed.txt", "deleted soon");
    watched.write("doomed-dir/e.txt", "deleted with its folder");
    watched.write("doomed-dir/f/g.txt", "deleted with its folder, deeper");
    watched.write("stays.txt", "stays");
    outside.write("arriving/p.txt", "comes in");
    outside.write("arriving/q/r.txt", "comes in, nested");
    outside.write("Arriving.rtfd/TXT.rtf", "a package comes in");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    ASSERT_EQ(totalVersions(), 7);

    fs::rename(root + "/leaving", elsewhere + "/leaving");
    fs::rename(root + "/gone.txt", elsewhere + "/gone.txt");
    settle();
    for (const std::string path : {"/leaving/x.txt", "/leaving/sub/y.txt", "/gone.txt"}) expectDeleted(root + path);
    EXPECT_EQ(jsonOf({"status"})["liveFiles"], 4) << "stays.txt and the three doomed files";

    // A folder moved in is rescanned as a whole, not reported file by file;
    // a package moved in is one unit like any other.
    fs::rename(elsewhere + "/arriving", root + "/arriving");
    fs::rename(elsewhere + "/Arriving.rtfd", root + "/Arriving.rtfd");
    settle();
    for (const std::string path : {"arriving/p.txt", "arriving/q/r.txt"}) onlyVersionOf(root + "/" + path, "crawl");
    EXPECT_EQ(historyOf(root + "/Arriving.rtfd")["file"]["isPackage"], true);
    onlyVersionOf(root + "/Arriving.rtfd", "watcher");
    if (!fs::exists("/run/systemd/journal/socket")) {  // else the log line went to the journal
        EXPECT_NE(daemon.standardError().find("FSEvents asked for a full rescan: mustScanSubDirs"), std::string::npos)
            << daemon.standardError();
    }

    fs::remove(root + "/doomed.txt");
    fs::remove_all(root + "/doomed-dir");
    settle();
    for (const std::string path : {"/doomed.txt", "/doomed-dir/e.txt", "/doomed-dir/f/g.txt"}) expectDeleted(root + path);

    EXPECT_TRUE(historyOf(root + "/stays.txt")["file"]["deletedAt"].is_null());
    auto status = jsonOf({"status"});
    EXPECT_EQ(status["versions"], 10);
    EXPECT_EQ(status["liveFiles"], 4) << "stays.txt and the three arrivals";
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(DaemonTest, RestartCatchesUpWithWhatChangedWhileStopped) {
    watched.write("edited.txt", "first");
    watched.write("deleted.txt", "goes while stopped");
    watched.write("same.txt", "never changes");
    {
        DaemonProcess first(home.path(), {root});
        ASSERT_TRUE(first.start());
        settle();
        ASSERT_EQ(totalVersions(), 3);
        EXPECT_EQ(first.stop(), 0) << first.standardError();
    }
    watched.write("edited.txt", "first, then more while stopped");
    watched.write("new.txt", "made while stopped");
    fs::remove(root + "/deleted.txt");

    DaemonProcess second(home.path());  // the folder is in the list already
    ASSERT_TRUE(second.start());
    settle();
    auto edited = versionsOf(root + "/edited.txt");
    ASSERT_EQ(edited.size(), 2u) << edited.dump();
    EXPECT_EQ(edited[0]["source"], "crawl");
    EXPECT_EQ(edited[0]["logicalBytes"], 30);
    EXPECT_EQ(edited[1]["source"], "baseline");
    onlyVersionOf(root + "/new.txt", "crawl");
    expectDeleted(root + "/deleted.txt");
    EXPECT_EQ(versionsOf(root + "/same.txt").size(), 1u);
    EXPECT_EQ(totalVersions(), 5);

    // And it records live again after catching up.
    watched.write("later.txt", "after the restart");
    settle();
    onlyVersionOf(root + "/later.txt", "watcher");
    EXPECT_EQ(second.stop(), 0);
}

TEST_F(DaemonTest, ASecondDaemonForTheSameHomeIsRefused) {
    DaemonProcess running(home.path(), {root});
    ASSERT_TRUE(running.start());

    DaemonProcess another(home.path());
    another.launch();
    auto status = another.waitForExit(15);
    ASSERT_TRUE(status.has_value()) << "the second daemon kept running";
    EXPECT_EQ(*status, 1);
    test::expectRefused({*status, "", another.standardError()}, "already running");
    EXPECT_NE(another.standardError().find("(pid " + std::to_string(running.pid()) + ")"), std::string::npos);

    // The refused one took nothing away from the one that runs.
    EXPECT_TRUE(running.isRunning());
    auto endpoint = json::parse(test::readFile(home / "daemon.json"));
    EXPECT_EQ(endpoint["pid"], running.pid());
    EXPECT_TRUE(fs::exists(home / "api-token"));
    watched.write("still.txt", "recorded");
    settle();
    EXPECT_EQ(versionsOf(root + "/still.txt").size(), 1u);
    EXPECT_EQ(running.stop(), 0);
}

TEST_F(DaemonTest, ApiRefusesRequestsWithoutTheTokenOrForAnotherHost) {
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    const std::string token = daemon.token();
    ASSERT_EQ(token.size(), 64u) << token;
    struct stat tokenFile {};
    ASSERT_EQ(::stat((home / "api-token").c_str(), &tokenFile), 0);
    EXPECT_EQ(tokenFile.st_mode & 07777, 0600u) << "the token is the user's alone";

    const std::string port = std::to_string(daemon.port());
    auto post = [&](const std::string& request, httplib::Headers headers) {
        httplib::Client client("127.0.0.1", daemon.port());
        client.set_read_timeout(30, 0);
        auto response = client.Post(("/v1/" + request).c_str(), headers,
                                    json{{"folder", root}}.dump(), "application/json");
        EXPECT_TRUE(response) << request << ": no answer";
        return response ? response->status : -1;
    };
    std::string wrong = token;
    wrong[0] = wrong[0] == 'a' ? 'b' : 'a';
    const httplib::Headers rightToken = {{"Authorization", "Bearer " + token}};

    EXPECT_EQ(post("status", {}), 401);
    EXPECT_EQ(post("status", {{"Authorization", "Bearer " + wrong}}), 401);
    EXPECT_EQ(post("status", {{"Authorization", token}}), 401) << "the token alone, without its scheme";
    EXPECT_EQ(post("status", {{"Authorization", "Bearer " + token}, {"Host", "evil.example:" + port}}), 403);
    EXPECT_EQ(post("status", {{"Authorization", "Bearer " + token}, {"Host", "127.0.0.1"}}), 403)
        << "a Host without the port";
    // A refused request does nothing: these would each have stored a batch.
    watched.write("a.txt", "would be snapshotted");
    settle();
    const auto before = totalVersions();
    EXPECT_EQ(post("snapshot", {}), 401);
    EXPECT_EQ(post("snapshot", {{"Authorization", "Bearer " + token}, {"Host", "evil.example:" + port}}), 403);
    EXPECT_EQ(totalVersions(), before);

    // The same requests, properly addressed, are answered.
    EXPECT_EQ(post("status", rightToken), 200);
    EXPECT_EQ(post("status", {{"Authorization", "Bearer " + token}, {"Host", "localhost:" + port}}), 200);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(DaemonTest, SnapshotGoesThroughTheRunningDaemonAndStatusShowsIt) {
    // A manual folder: nothing but the snapshot stores a version, so what it stores is certain.
    watched.write("a.txt", "alpha");
    watched.write("sub/b.txt", "beta");
    ASSERT_EQ(vosklin({"folder", "add", root, "--manual"}).exitStatus, 0);
    DaemonProcess daemon(home.path());
    ASSERT_TRUE(daemon.start());
    settle();

    auto status = jsonOf({"status"});
    ASSERT_TRUE(status["daemon"].is_object()) << status.dump();
    EXPECT_EQ(status["daemon"]["running"], true);
    EXPECT_EQ(status["daemon"]["pid"], daemon.pid());
    EXPECT_EQ(status["daemon"]["port"], daemon.port());
    EXPECT_TRUE(status["daemon"]["stats"].is_object()) << status.dump();
    EXPECT_FALSE(status["daemon"].contains("error")) << status.dump();
    EXPECT_EQ(daemonFolder(status, root).value("watched", true), false) << "a manual folder has no live watch";

    EXPECT_EQ(status["daemon"]["socket"], daemon.socketPath());

    // The command line reaches the daemon at the socket it publishes: with another
    // path in its place the command fails, where a local crawl would have gone ahead.
    const std::string endpointPath = home / "daemon.json";
    const std::string published = test::readFile(endpointPath);
    auto misdirected = nlohmann::json::parse(published);
    misdirected["socket"] = home / "nowhere.sock";
    test::writeFile(endpointPath, misdirected.dump());
    auto refused = vosklin({"snapshot", root, "--json"});
    EXPECT_EQ(refused.exitStatus, 1) << refused.out;
    EXPECT_NE(refused.err.find("cannot be reached"), std::string::npos) << refused.err;
    expectNoHistory(root + "/a.txt");
    test::writeFile(endpointPath, published);

    auto snapshot = jsonOf({"snapshot", root});
    EXPECT_EQ(snapshot["captured"], 2);
    EXPECT_EQ(snapshot["failed"], 0);
    const std::string batch = snapshot.value("batchID", "");
    EXPECT_TRUE(isUuid(batch)) << snapshot.dump();
    for (const std::string path : {"a.txt", "sub/b.txt"})
        EXPECT_EQ(onlyVersionOf(root + "/" + path, "manual")["batchID"], batch) << path;

    EXPECT_EQ(daemon.stop(), 0);
    auto after = jsonOf({"status"});
    EXPECT_EQ(after["daemon"]["running"], false) << after.dump();
    EXPECT_FALSE(after["daemon"].contains("pid"));
}

TEST_F(DaemonTest, PausedAndManualFoldersGetNoLiveCaptures) {
    TempDirectory pausedPlace, manualPlace;
    const std::string paused = canonicalPath(pausedPlace), manual = canonicalPath(manualPlace);
    watched.write("control.txt", "recorded throughout");
    pausedPlace.write("p.txt", "paused folder");
    manualPlace.write("m.txt", "manual folder");
    DaemonProcess daemon(home.path(), {root, paused, manual});
    ASSERT_TRUE(daemon.start());
    settle();
    ASSERT_EQ(totalVersions(), 3);

    succeeds({"folder", "pause", paused});
    succeeds({"folder", "mode", manual, "manual"});
    // The tick that takes this change re-reads the folder list first.
    watched.write("control-1.txt", "one");
    settle();
    auto status = jsonOf({"status"});
    EXPECT_EQ(daemonFolder(status, root).value("watched", false), true);
    EXPECT_EQ(daemonFolder(status, paused).value("watched", true), false);
    EXPECT_EQ(daemonFolder(status, manual).value("watched", true), false);

    watched.write("control-2.txt", "two");
    pausedPlace.write("while-paused.txt", "not recorded live");
    pausedPlace.write("p.txt", "paused folder, edited");
    manualPlace.write("while-manual.txt", "not recorded live");
    settle();
    ASSERT_EQ(versionsOf(root + "/control-2.txt").size(), 1u) << "the daemon was recording all along";
    expectNoHistory(paused + "/while-paused.txt");
    EXPECT_EQ(versionsOf(paused + "/p.txt").size(), 1u);
    expectNoHistory(manual + "/while-manual.txt");

    auto snapshot = jsonOf({"snapshot", manual});
    EXPECT_EQ(snapshot["captured"], 1);
    EXPECT_EQ(onlyVersionOf(manual + "/while-manual.txt", "manual")["batchID"], snapshot["batchID"]);

    // Resumed, the folder catches up with what changed while paused, and records live again.
    succeeds({"folder", "resume", paused});
    watched.write("control-3.txt", "three");
    settle();
    onlyVersionOf(paused + "/while-paused.txt", "crawl");
    EXPECT_EQ(versionsOf(paused + "/p.txt").size(), 2u);
    pausedPlace.write("after.txt", "recorded live");
    settle();
    onlyVersionOf(paused + "/after.txt", "watcher");
    EXPECT_EQ(daemon.stop(), 0);
}

// A folder added while the daemon runs, even as its only folder, gets its
// baseline without a restart; so does a folder resumed while it was the only one.
TEST_F(DaemonTest, FolderAddedWhileTheDaemonRunsGetsItsBaseline) {
    watched.write("a.txt", "there before the folder was added");
    watched.write("sub/b.txt", "also there before");
    DaemonProcess daemon(home.path());  // watching nothing yet
    ASSERT_TRUE(daemon.start());
    settle();
    succeeds({"folder", "add", root});

    // Nothing changed in a watched folder yet, so no settle can wait for the
    // folder list to be re-read: ask the daemon until it watches the folder.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    bool watching = false;
    while (!watching && std::chrono::steady_clock::now() < deadline) {
        auto status = jsonOf({"status"});
        for (const auto& folder : status["daemon"].value("folders", json::array()))
            if (folder.value("path", "") == root && folder.value("watched", false)) watching = true;
        if (!watching) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(watching) << "the daemon never took up the added folder";
    settle();
    for (const std::string path : {"a.txt", "sub/b.txt"}) onlyVersionOf(root + "/" + path, "baseline");
    watched.write("c.txt", "made after");
    settle();
    onlyVersionOf(root + "/c.txt", "watcher");
    EXPECT_EQ(daemon.stop(), 0);
}

}  // namespace
}  // namespace vosklin

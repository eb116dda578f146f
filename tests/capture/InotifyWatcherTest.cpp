#include "capture/InotifyWatcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "platform/PosixFileSystem.h"
#include "support/RecordingLogger.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;
namespace fs = std::filesystem;

// Starts a watcher over one folder and collects what it reports.
class InotifyWatcherTest : public ::testing::Test {
protected:
    InotifyWatcherTest() { fs::create_directories(root); }
    ~InotifyWatcherTest() override {
        if (watcher) watcher->stop();
    }

    void start(std::uint64_t lastEventID = 0) {
        InotifyWatcher::Callbacks callbacks;
        callbacks.onRecords = [this](std::vector<FSEventRecord> records) {
            std::lock_guard guard(lock);
            received.insert(received.end(), records.begin(), records.end());
            arrived.notify_all();
        };
        callbacks.onRootChanged = [this](const std::string& folderID) {
            std::lock_guard guard(lock);
            rootChanged.push_back(folderID);
            arrived.notify_all();
        };
        watcher = std::make_unique<InotifyWatcher>(fileSystem, logger, ExcludeRules::standard({}), callbacks,
                                                   lastEventID);
        watcher->start({{"F", root}});
    }

    // The records so far, after the watcher has read everything queued.
    std::vector<FSEventRecord> seen() {
        watcher->drain();
        std::lock_guard guard(lock);
        return received;
    }
    // Waits (bounded) for a record matching `match`: for reports that need a moment by design.
    bool waitFor(const std::function<bool(const FSEventRecord&)>& match) {
        std::unique_lock guard(lock);
        return arrived.wait_for(guard, std::chrono::seconds(5), [&] {
            return std::any_of(received.begin(), received.end(), match);
        });
    }
    static bool has(const std::vector<FSEventRecord>& records, const std::string& path, std::uint32_t flag) {
        return std::any_of(records.begin(), records.end(),
                           [&](const FSEventRecord& r) { return r.path == path && r.has(flag); });
    }

    TempDirectory directory;
    const std::string root = directory / "Watched";
    PosixFileSystem fileSystem;
    test::RecordingLogger logger;
    std::unique_ptr<InotifyWatcher> watcher;
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<FSEventRecord> received;
    std::vector<std::string> rootChanged;
};

TEST_F(InotifyWatcherTest, ReportsWritesCreationsAndDeletionsWithGrowingIds) {
    directory.write("Watched/existing.txt", "old");
    start(5);
    test::writeFile(root + "/existing.txt", "new");
    directory.write("Watched/new.txt", "n");
    fs::remove(root + "/existing.txt");
    auto records = seen();
    EXPECT_TRUE(has(records, root + "/existing.txt", FSEventFlag::modified));
    EXPECT_TRUE(has(records, root + "/new.txt", FSEventFlag::created));
    EXPECT_TRUE(has(records, root + "/existing.txt", FSEventFlag::removed));
    for (std::size_t i = 1; i < records.size(); ++i) EXPECT_GT(records[i].eventID, records[i - 1].eventID);
    EXPECT_GT(records.front().eventID, 5u);
    EXPECT_EQ(watcher->latestEventID(), records.back().eventID);
}

TEST_F(InotifyWatcherTest, ANewFolderIsWatchedAndOneMovedInAsksForARescanOfIt) {
    start();
    // Made elsewhere and moved in whole: nothing inside it was ever seen being
    // written, and it may hold any number of files: one rescan request for it.
    directory.write("Outside/Project/src/main.c", "int main;");
    directory.write("Outside/Project/README", "r");
    fs::rename(directory / "Outside/Project", root + "/Project");
    // And one made in place, with files written straight away.
    fs::create_directories(root + "/Fresh/deeper");
    test::writeFile(root + "/Fresh/deeper/a.txt", "a");
    auto records = seen();
    EXPECT_TRUE(has(records, root + "/Project", FSEventFlag::mustScanSubDirs));
    EXPECT_FALSE(std::any_of(records.begin(), records.end(), [&](const FSEventRecord& r) {
        return r.path.starts_with(root + "/Project/");
    })) << "not file by file";
    EXPECT_TRUE(has(records, root + "/Fresh/deeper/a.txt", FSEventFlag::created) ||
                has(records, root + "/Fresh/deeper/a.txt", FSEventFlag::modified));
    EXPECT_FALSE(has(records, root + "/Fresh", FSEventFlag::mustScanSubDirs));
    // Now watched: a later write inside is reported as such.
    test::writeFile(root + "/Project/src/main.c", "int main(void);");
    EXPECT_TRUE(has(seen(), root + "/Project/src/main.c", FSEventFlag::modified));
}

// Restore and rewind put a package back by swapping a scratch copy (an
// excluded name) with it, then deleting the scratch item, now the old one.
TEST_F(InotifyWatcherTest, AFolderSwappedInKeepsItsPathWatched) {
    directory.write("Watched/Doc.rtfd/TXT.rtf", "current");
    start();
    const std::string scratch = root + "/.vosklin-restore-6A1F0E2C";
    directory.write("Watched/.vosklin-restore-6A1F0E2C/TXT.rtf", "put back");
    ASSERT_EQ(::renameat2(AT_FDCWD, scratch.c_str(), AT_FDCWD, (root + "/Doc.rtfd").c_str(), RENAME_EXCHANGE), 0);
    fs::remove_all(scratch);
    auto records = seen();
    for (const auto& record : records)
        EXPECT_EQ(record.path.find(".vosklin-restore-"), std::string::npos) << record.path;
    test::writeFile(root + "/Doc.rtfd/TXT.rtf", "edited after");
    EXPECT_TRUE(has(seen(), root + "/Doc.rtfd/TXT.rtf", FSEventFlag::modified));
    EXPECT_EQ(watcher->watchCount(), 2u) << "the root and the folder swapped in";
}

TEST_F(InotifyWatcherTest, MovesInsideTheFolderAreOneRenameAndFolderMovesKeepTheirWatches) {
    directory.write("Watched/a.txt", "a");
    directory.write("Watched/Old/inner.txt", "i");
    start();
    fs::rename(root + "/a.txt", root + "/b.txt");
    fs::rename(root + "/Old", root + "/New");
    auto records = seen();
    auto renamed = std::count_if(records.begin(), records.end(),
                                 [](const FSEventRecord& r) { return r.has(FSEventFlag::renamed); });
    EXPECT_EQ(renamed, 2);
    auto file = std::find_if(records.begin(), records.end(),
                             [&](const FSEventRecord& r) { return r.path == root + "/b.txt"; });
    ASSERT_NE(file, records.end());
    EXPECT_EQ(file->previousPath, root + "/a.txt");
    EXPECT_FALSE(file->has(FSEventFlag::isDirectory));
    EXPECT_TRUE(has(records, root + "/New", FSEventFlag::isDirectory));
    EXPECT_FALSE(has(records, root + "/a.txt", FSEventFlag::removed)) << "a rename is not a deletion";
    test::writeFile(root + "/New/inner.txt", "edited after the move");
    EXPECT_TRUE(has(seen(), root + "/New/inner.txt", FSEventFlag::modified)) << "reported under its new path";
}

TEST_F(InotifyWatcherTest, AFolderMovedOutIsRemovedAndNoLongerWatched) {
    directory.write("Watched/Leaving/x.txt", "x");
    start();
    fs::rename(root + "/Leaving", directory / "Gone");
    ASSERT_TRUE(waitFor([&](const FSEventRecord& r) {
        return r.path == root + "/Leaving" && r.has(FSEventFlag::removed) && r.has(FSEventFlag::isDirectory);
    }));
    const auto watches = watcher->watchCount();
    test::writeFile(directory / "Gone/x.txt", "changed outside");
    auto records = seen();
    EXPECT_FALSE(std::any_of(records.begin(), records.end(), [&](const FSEventRecord& r) {
        return r.path.find("/Gone/") != std::string::npos || r.path == root + "/Leaving/x.txt";
    }));
    EXPECT_EQ(watches, 1u) << "only the root is still watched";
}

TEST_F(InotifyWatcherTest, ExcludedFoldersAreNeverWatched) {
    start();
    fs::create_directories(root + "/node_modules/left-pad");
    test::writeFile(root + "/node_modules/left-pad/index.js", "x");
    fs::create_directories(root + "/.git/objects");
    test::writeFile(root + "/.git/objects/ab", "x");
    auto records = seen();
    for (const auto& record : records) {
        EXPECT_EQ(record.path.find("node_modules"), std::string::npos) << record.path;
        EXPECT_EQ(record.path.find(".git"), std::string::npos) << record.path;
    }
    EXPECT_EQ(watcher->watchCount(), 1u);
}

TEST_F(InotifyWatcherTest, ARemovedRootIsReported) {
    start();
    fs::rename(root, directory / "Renamed");
    watcher->drain();
    std::unique_lock guard(lock);
    ASSERT_TRUE(arrived.wait_for(guard, std::chrono::seconds(5), [&] { return !rootChanged.empty(); }));
    EXPECT_EQ(rootChanged, std::vector<std::string>{"F"});
}

}  // namespace
}  // namespace vosklin

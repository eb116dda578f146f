#include "capture/WatchCoordinator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/PosixFileSystem.h"
#include "support/ManualClock.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::setModified;
using test::TempDirectory;

class WatchCoordinatorTest : public ::testing::Test {
protected:
    WatchCoordinatorTest() {
        std::filesystem::create_directories(root);
        coordinator.setTargets({target});
        coordinator.onDelete = [this](const WatchTarget&, const std::string& path) { deleted.push_back(path); };
    }

    FSEventRecord changed(const std::string& path) { return {path, std::nullopt, FSEventFlag::modified, 1, ""}; }
    // A sparse file of `size` bytes (no real space used).
    std::string sparseFile(const std::string& relative, off_t size) {
        const std::string path = directory / relative;
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
        EXPECT_EQ(::ftruncate(fd, size), 0) << path;
        ::close(fd);
        return path;
    }
    std::vector<std::string> releasedPaths() {
        std::vector<std::string> paths;
        for (const auto& unit : coordinator.flush()) paths.push_back(unit.unit.path);
        return paths;
    }

    TempDirectory directory;
    const std::string root = directory / "Watched";
    const WatchTarget target{"F", root};
    PosixFileSystem fileSystem;
    test::ManualClock clock{1'740'000'000};
    WatchCoordinator coordinator{fileSystem, clock, WatchCoordinator::Settings{}, ExcludeRules::standard({}),
                                 PackageKinds()};
    std::vector<std::string> deleted;
};

TEST_F(WatchCoordinatorTest, AUnitIsReleasedOnceAfterTheMergeWindowHowManyEventsItHad) {
    const std::string file = directory.write("Watched/notes.txt", "text");
    coordinator.take({changed(file), changed(file), changed(file)});
    EXPECT_EQ(coordinator.pendingCount(), 1u) << "a burst on one file is one pending unit";
    clock.advance(9.9);
    EXPECT_TRUE(releasedPaths().empty());
    clock.advance(0.1);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{file});
    EXPECT_EQ(coordinator.pendingCount(), 0u);
    EXPECT_TRUE(releasedPaths().empty()) << "released once";
}

TEST_F(WatchCoordinatorTest, ChangesInsideAPackageMakeOnePendingPackage) {
    directory.write("Watched/Book.pages/Data/a.jpg", "a");
    directory.write("Watched/Book.pages/Index/b.iwa", "b");
    coordinator.take({changed(root + "/Book.pages/Data/a.jpg"), changed(root + "/Book.pages/Index/b.iwa")});
    clock.advance(10);
    auto released = coordinator.flush();
    ASSERT_EQ(released.size(), 1u);
    EXPECT_EQ(released[0].unit.path, root + "/Book.pages");
    EXPECT_TRUE(released[0].unit.isPackage);
    EXPECT_EQ(released[0].target, target);
}

TEST_F(WatchCoordinatorTest, ALargeFileWaitsOneSecondPer20MBButNeverMoreThanAMinute) {
    // 2 GB would be 100 s at 20 MB a second; it is released at 60 s even while still changing.
    const std::string big = sparseFile("Watched/disk.img", 2'000'000'000);
    coordinator.take({changed(big)});
    for (int second = 1; second < 60; ++second) {
        clock.advance(1);
        setModified(big, clock.now());  // still being written: probes never agree
        ASSERT_TRUE(releasedPaths().empty()) << "released after only " << second << " s";
    }
    clock.advance(1);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{big});

    // 200 MB waits its 10 s, not the merge window of 3 s.
    const std::string medium = sparseFile("Watched/video.mov", 200'000'000);
    WatchCoordinator::Settings quick;
    quick.mergeWindow = 3;
    WatchCoordinator shortWindow(fileSystem, clock, quick, ExcludeRules(), PackageKinds());
    shortWindow.setTargets({target});
    shortWindow.take({changed(medium)});
    for (int second = 1; second < 10; ++second) {
        clock.advance(1);
        setModified(medium, clock.now());
        ASSERT_TRUE(shortWindow.flush().empty()) << second;
    }
    clock.advance(1);
    EXPECT_EQ(shortWindow.flush().size(), 1u);
}

TEST_F(WatchCoordinatorTest, OnlyAStableOldFileIsReleasedEarlyAndNotAnEmptyOne) {
    const std::string moved = directory.write("Watched/archive.zip", "zip bytes");
    const std::string empty = directory.write("Watched/placeholder.txt", "");
    setModified(moved, clock.now() - 200);  // moved in whole, written long ago
    setModified(empty, clock.now() - 200);
    coordinator.take({changed(moved), changed(empty)});
    clock.advance(1);
    EXPECT_TRUE(releasedPaths().empty()) << "the first probe only records";
    clock.advance(1);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{moved}) << "two equal probes of an old file: no need to wait";
    clock.advance(8);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{empty}) << "an empty file waits out the merge window";

    // A fresh file, stable or not, waits the merge window: an application may still write more.
    const std::string fresh = directory.write("Watched/fresh.txt", "just saved");
    coordinator.take({changed(fresh)});
    clock.advance(1);
    coordinator.flush();
    clock.advance(1);
    EXPECT_TRUE(releasedPaths().empty()) << "an application may still write more";
    clock.advance(8);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{fresh});
}

TEST_F(WatchCoordinatorTest, BatchesAreBoundedAndOldestFirst) {
    std::vector<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        const std::string file = directory.write("Watched/f" + std::to_string(1000 + i) + ".txt", "x");
        coordinator.take({changed(file)});
        expected.push_back(file);
        clock.advance(0.001);
    }
    clock.advance(10);
    auto first = releasedPaths();
    auto second = releasedPaths();
    auto third = releasedPaths();
    EXPECT_EQ(first.size(), 200u);
    EXPECT_EQ(second.size(), 200u);
    EXPECT_EQ(third.size(), 100u);
    std::vector<std::string> all = first;
    all.insert(all.end(), second.begin(), second.end());
    all.insert(all.end(), third.begin(), third.end());
    EXPECT_EQ(all, expected) << "oldest first";
}

TEST_F(WatchCoordinatorTest, VosklinsOwnWritesAreSuppressedForFiveSeconds) {
    const std::string restored = directory.write("Watched/restored.txt", "old content back");
    const std::string package = directory.write("Watched/Deck.key/index.zip", "deck");
    coordinator.suppress({restored, root + "/Deck.key"});
    clock.advance(4.9);
    coordinator.take({changed(restored), changed(package)});
    EXPECT_EQ(coordinator.pendingCount(), 0u) << "its own write, and what is inside a suppressed package";
    clock.advance(0.2);
    coordinator.take({changed(restored)});
    EXPECT_EQ(coordinator.pendingCount(), 1u) << "after five seconds a change is the user's again";
}

TEST_F(WatchCoordinatorTest, VanishedUnitsAreReleasedAtOnceAndRemovalsReported) {
    const std::string file = directory.write("Watched/short-lived.txt", "x");
    coordinator.take({changed(file)});
    std::filesystem::remove(file);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{file}) << "the capture will say it is missing";

    directory.write("Watched/Book.pages/a.txt", "a");
    coordinator.take({{root + "/gone.txt", std::nullopt, FSEventFlag::removed, 2, ""},
                      {root + "/Old Folder", std::nullopt, FSEventFlag::removed | FSEventFlag::isDirectory, 3, ""},
                      {root + "/Book.pages/deleted-inside.txt", std::nullopt, FSEventFlag::removed, 4, ""}});
    EXPECT_EQ(deleted, (std::vector<std::string>{root + "/gone.txt", root + "/Old Folder"}));
    EXPECT_EQ(coordinator.pendingCount(), 1u) << "a file removed from a package is a change of the package";
}

TEST_F(WatchCoordinatorTest, PendingUnitsFollowARename) {
    const std::string file = directory.write("Watched/a/draft.txt", "x");
    coordinator.take({changed(file)});
    std::filesystem::rename(root + "/a", root + "/b");
    coordinator.rename(root + "/a", root + "/b");
    clock.advance(10);
    EXPECT_EQ(releasedPaths(), std::vector<std::string>{root + "/b/draft.txt"});
}

TEST_F(WatchCoordinatorTest, NothingOutsideTheTargetsOrExcludedBecomesPending) {
    const std::string outside = directory.write("Elsewhere/x.txt", "x");
    const std::string excluded = directory.write("Watched/node_modules/pkg/index.js", "x");
    const std::string transient = directory.write("Watched/~$report.docx", "lock");
    const std::string scratch = directory.write("Watched/.vosklin-restore-5F0C2B3A/TXT.rtf", "being put back");
    coordinator.take({changed(outside), changed(excluded), changed(transient), changed(scratch), changed(root)});
    EXPECT_EQ(coordinator.pendingCount(), 0u);
    const std::string file = directory.write("Watched/kept.txt", "x");
    coordinator.take({changed(file)});
    coordinator.setTargets({});
    EXPECT_EQ(coordinator.pendingCount(), 0u) << "a folder no longer watched leaves nothing pending";
}

}  // namespace
}  // namespace vosklin

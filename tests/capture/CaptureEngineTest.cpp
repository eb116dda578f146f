#include "capture/CaptureEngine.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <set>
#include <tuple>

#include "support/CaptureStack.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;
using Operation = test::FaultyFileSystem::Operation;
namespace fs = std::filesystem;

// Moves on by a hundredth of a second each time it is read, as time does while a tick works.
class SteppingClock final : public Clock {
public:
    double now() const override { return now_ = now_.load() + 0.01; }
    void sleepFor(double seconds) override { advance(seconds); }
    void advance(double seconds) { now_ = now_.load() + seconds; }

private:
    mutable std::atomic<double> now_{1'700'000'000.0};
};

// The engine under the manual timer policy: nothing happens until the test drives a tick.
class CaptureEngineTest : public ::testing::Test {
protected:
    CaptureEngineTest() {
        fs::create_directories(root);
        directory.write("Watched/before.txt", "there at start");
        folder.id = "E0000000-0000-4000-8000-000000000001";
        folder.path = root;
        struct stat st {};
        ::stat(root.c_str(), &st);
        folder.device = st.st_dev;
        folder.inode = st.st_ino;
        folders.append(folder);
        settings.set("vosklin.mergeWindowSeconds", 2);
    }

    // Takes the watcher's changes, lets them settle for `seconds`, then captures what settled.
    void settle(double seconds = 2) {
        engine.drainWatcher();
        engine.tick();
        stack.clock.advance(seconds);
        engine.tick();
    }

    std::int64_t versionsOf(const std::string& relative) {
        auto file = stack.catalog.fileAtPath(folder.id, relative);
        return file ? std::int64_t(stack.catalog.versionsOfFile(file->id, 100).size()) : 0;
    }

    TempDirectory directory;
    const std::string root = directory / "Watched";
    test::CaptureStack stack{directory / "store"};
    FolderList folders{directory / "config/folders.json", stack.fileSystem};
    Settings settings{directory / "config/settings.json", stack.fileSystem, stack.logger};
    WatchedFolder folder;
    CaptureEngine engine{{folders, stack.catalog, stack.service, stack.layout, stack.fileSystem, stack.clock,
                          stack.logger, settings},
                         CaptureEngine::TimerPolicy::manual};
};

TEST_F(CaptureEngineTest, UnderTheManualPolicyNothingIsCapturedUntilTheOwnerTicks) {
    engine.start();
    engine.start();  // a second start changes nothing
    EXPECT_TRUE(stack.logger.contains("Capture engine started over 1 folders"));
    engine.runQueuedCrawls();  // the start-up crawl: the baseline
    EXPECT_EQ(versionsOf("before.txt"), 1);
    const auto storedByCrawl = engine.stats().stored;

    directory.write("Watched/live.txt", "written while recording");
    engine.drainWatcher();
    EXPECT_FALSE(engine.barrier(0.2)) << "no tick, no capture";
    EXPECT_EQ(versionsOf("live.txt"), 0);

    engine.tick();  // takes the change; it must settle first
    EXPECT_EQ(engine.stats().pending, 1);
    EXPECT_EQ(versionsOf("live.txt"), 0);
    stack.clock.advance(2);
    engine.tick();
    EXPECT_EQ(versionsOf("live.txt"), 1);
    EXPECT_EQ(engine.stats().stored - storedByCrawl, 1);
    EXPECT_EQ(engine.stats().pending, 0);
    auto versions = stack.catalog.versionsOfFile(stack.catalog.fileAtPath(folder.id, "live.txt")->id, 10);
    EXPECT_EQ(versions.front().source, CaptureSource::watcher);
}

TEST_F(CaptureEngineTest, RenamesMoveHistoryAndDeletionsTombstoneIt) {
    directory.write("Watched/dir/a.txt", "a");
    directory.write("Watched/dir/sub/b.txt", "b");
    engine.start();
    engine.runQueuedCrawls();
    const auto a = *stack.catalog.fileAtPath(folder.id, "dir/a.txt");
    const auto storedByCrawl = engine.stats().stored;

    fs::rename(root + "/dir", root + "/moved");
    fs::rename(root + "/before.txt", root + "/after.txt");
    settle();
    auto moved = stack.catalog.fileAtPath(folder.id, "moved/a.txt");
    ASSERT_TRUE(moved.has_value());
    EXPECT_EQ(moved->id, a.id);
    EXPECT_TRUE(stack.catalog.fileAtPath(folder.id, "moved/sub/b.txt").has_value());
    EXPECT_TRUE(stack.catalog.fileAtPath(folder.id, "after.txt").has_value());
    EXPECT_EQ(engine.stats().renamed, 3);
    EXPECT_EQ(engine.stats().stored, storedByCrawl) << "renames change no contents";

    fs::remove_all(root + "/moved");
    engine.drainWatcher();
    engine.tick();
    EXPECT_TRUE(stack.catalog.fileAtPath(folder.id, "moved/a.txt")->deletedAt.has_value());
    EXPECT_TRUE(stack.catalog.fileAtPath(folder.id, "moved/sub/b.txt")->deletedAt.has_value());
    EXPECT_EQ(engine.stats().tombstoned, 2);
}

// A backup renamed aside and the new content written at the original path:
// whether one tick takes both or a tick falls between them, the history stays
// on the path that holds the file; the backup, if kept, is a file of its own.
// Only a path left empty for longer than a few seconds lets the history go.
struct BackupRename {
    const char* name;
    const char* backup;
    bool tickBetween;
    double pause;  // seconds between the rename and the new write
    bool keepBackup;
    bool historyStays;
};

void PrintTo(const BackupRename& c, std::ostream* out) { *out << c.name; }

class BackupRenameTest : public CaptureEngineTest, public ::testing::WithParamInterface<BackupRename> {};

TEST_P(BackupRenameTest, HistoryStaysWithTheRewrittenPath) {
    const BackupRename& c = GetParam();
    engine.start();
    engine.runQueuedCrawls();
    const auto original = *stack.catalog.fileAtPath(folder.id, "before.txt");
    fs::rename(root + "/before.txt", root + "/" + c.backup);
    if (c.tickBetween) {
        engine.drainWatcher();
        engine.tick();
        stack.clock.advance(c.pause);
    }
    directory.write("Watched/before.txt", "the new content");
    if (!c.keepBackup) fs::remove(root + "/" + c.backup);
    settle();

    auto file = stack.catalog.fileAtPath(folder.id, "before.txt");
    ASSERT_TRUE(file.has_value());
    EXPECT_FALSE(file->deletedAt.has_value());
    EXPECT_EQ(file->id == original.id, c.historyStays);
    EXPECT_EQ(versionsOf("before.txt"), c.historyStays ? 2 : 1);
    auto backup = stack.catalog.fileAtPath(folder.id, c.backup);
    if (c.keepBackup && c.historyStays) {
        ASSERT_TRUE(backup.has_value()) << "a kept backup is a file of its own";
        EXPECT_NE(backup->id, original.id);
        EXPECT_FALSE(backup->deletedAt.has_value());
    } else if (c.historyStays) {
        EXPECT_TRUE(!backup || backup->deletedAt.has_value()) << "nothing live under the backup's name";
    } else {
        ASSERT_TRUE(backup.has_value());
        EXPECT_EQ(backup->id, original.id) << "renamed, and its old path stayed empty";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Timings, BackupRenameTest,
    ::testing::Values(BackupRename{"OneTick", "before.txt.bak", false, 0, true, true},
                      BackupRename{"TickBetween", "before.txt.bak", true, 0.5, true, true},
                      BackupRename{"TickBetweenBackupDeleted", "before.txt___jb_old___", true, 0.5, false, true},
                      BackupRename{"TransientBackup", "before.txt~", true, 0.5, false, true},
                      BackupRename{"PathEmptyForLong", "before.txt.bak", true, 6, true, false}),
    [](const auto& timing) { return std::string(timing.param.name); });

TEST_F(CaptureEngineTest, StoppingCapturesWhatSettledAndCheckpoints) {
    engine.start();
    engine.runQueuedCrawls();
    directory.write("Watched/late.txt", "late");
    engine.drainWatcher();
    engine.tick();
    stack.clock.advance(5);
    engine.stop();
    EXPECT_EQ(versionsOf("late.txt"), 1) << "settled before the stop, so captured by it";
    auto state = stack.catalog.watchState(folder.id);
    ASSERT_TRUE(state.has_value());
    EXPECT_TRUE(state->lastEventID.has_value());
    EXPECT_TRUE(state->volumeID.has_value());
    EXPECT_TRUE(stack.logger.contains("Capture engine stopped"));
}

TEST_F(CaptureEngineTest, PausedAndManualFoldersGetNoLiveCaptures) {
    folder.mode = CaptureMode::manual;
    folders.replace(folder);
    engine.start();
    engine.runQueuedCrawls();
    EXPECT_EQ(versionsOf("before.txt"), 0) << "a manual folder is not crawled either: only snapshots";
    directory.write("Watched/x.txt", "x");
    settle(5);
    EXPECT_EQ(versionsOf("x.txt"), 0);
    CrawlCancellation cancellation;
    auto report = engine.snapshot(folder, cancellation);
    EXPECT_EQ(report.captured, 2);
}

TEST_F(CaptureEngineTest, TheUnitsOfOneTickShareItsInstant) {
    SteppingClock stepping;
    CaptureEngine stepped{{folders, stack.catalog, stack.service, stack.layout, stack.fileSystem, stepping,
                           stack.logger, settings},
                          CaptureEngine::TimerPolicy::manual};
    stepped.start();
    stepped.runQueuedCrawls();
    for (const char* name : {"one.txt", "two.txt", "three.txt"}) directory.write(std::string("Watched/") + name, name);
    stepped.drainWatcher();
    stepped.tick();
    stepping.advance(5);
    stepped.tick();
    std::set<double> instants;
    for (const char* name : {"one.txt", "two.txt", "three.txt"}) {
        auto file = stack.catalog.fileAtPath(folder.id, name);
        ASSERT_TRUE(file.has_value()) << name;
        auto versions = stack.catalog.versionsOfFile(file->id, 10);
        ASSERT_EQ(versions.size(), 1u) << name;
        instants.insert(versions.front().capturedAt);
    }
    EXPECT_EQ(instants.size(), 1u) << "released together, captured at one instant";
    stepped.stop();
}

// A capture held inside its copy (as a long one is) must not hold up anything
// else the engine answers. On a live engine, with the system clock.
TEST_F(CaptureEngineTest, StatusSuppressionAndSettleBookkeepingAnswerWhileACaptureRuns) {
    SystemClock systemClock;
    settings.set("vosklin.mergeWindowSeconds", 0.05);
    CaptureEngine live{{folders, stack.catalog, stack.service, stack.layout, stack.fileSystem, systemClock,
                        stack.logger, settings},
                       CaptureEngine::TimerPolicy::runLoop};
    live.start();
    ASSERT_TRUE(live.barrier(30)) << "the start-up crawl";

    std::promise<void> entered, release;
    auto released = release.get_future().share();
    std::atomic<bool> held{false};
    stack.fileSystem.beforeMutation = [&](Operation operation, const std::string& path) {
        if (operation != Operation::clone || path.find("held.bin") == std::string::npos || held.exchange(true)) return;
        entered.set_value();
        released.wait();
    };
    directory.write("Watched/held.bin", "being copied");
    entered.get_future().wait();  // the worker is now inside the capture

    auto answers = std::async(std::launch::async, [&] {
        live.drainWatcher();
        live.suppress({root + "/restored.txt"});
        auto states = live.folderStates();
        return std::make_tuple(live.stats(), states.size(), live.barrier(0));
    });
    // A liveness bound, not a speed goal: an answer that waits for the capture never comes while it is held.
    const bool answered = answers.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    release.set_value();
    ASSERT_TRUE(answered) << "the engine did not answer while a capture ran";
    auto [stats, folderCount, settled] = answers.get();
    EXPECT_GE(stats.pending, 1) << "a unit being captured is still pending";
    EXPECT_EQ(folderCount, 1u);
    EXPECT_FALSE(settled) << "settle waits for captures in progress";
    EXPECT_EQ(versionsOf("held.bin"), 0);

    ASSERT_TRUE(live.barrier(30));
    EXPECT_EQ(versionsOf("held.bin"), 1);
    EXPECT_EQ(live.stats().pending, 0);
    live.stop();
    stack.fileSystem.beforeMutation = nullptr;
}

}  // namespace
}  // namespace vosklin

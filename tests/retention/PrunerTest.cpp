// The pass over a real store: thinning, the budget stage, the sweep of
// expired marks, and the orphan sweep, which must never take a capture's slot.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "platform/FileLock.h"
#include "retention/Pruner.h"
#include "retention/StorageBudget.h"
#include "retention/StoreSweeper.h"
#include "support/RestoreFixture.h"

namespace vosklin {
namespace {

using test::RestoreFixture;
using test::TempDirectory;
namespace fs = std::filesystem;

constexpr double day = 86'400;
constexpr double now = test::t0;

struct PrunerTest : ::testing::Test {
    TempDirectory directory;
    RestoreFixture f{directory};
    const RetentionPolicy policy = RetentionPolicy::forHorizon(RetentionHorizon::year);

    // One version of "a.txt" at each age (days), oldest first, each with its own content.
    std::vector<StoredVersion> history(const std::vector<double>& agesInDays, const std::string& name = "a.txt") {
        std::vector<StoredVersion> made;
        for (double age : agesInDays) made.push_back(f.capture(name, name + std::to_string(age), now - age * day));
        return made;
    }
    std::int64_t versionCount() { return f.stack.catalog.folderVersionCount(f.folder.id); }
    bool slotExists(const StoredVersion& version) { return fs::exists(f.stack.layout.slotDirectory(version.slot)); }
    PruneResult prune(std::optional<std::int64_t> budget, bool dryRun = false) {
        return Pruner(f.stack.catalog, f.stack.layout, f.stack.logger, dryRun).prune(f.folder.id, budget, policy, now);
    }
};

TEST_F(PrunerTest, ADryPassCountsWhatTheRealPassRemovesAndTheRealOneTakesRowsAndSlots) {
    // Thirty versions from two years ago up to an hour ago: tiers of every kind, and some beyond the horizon.
    std::vector<double> ages;
    for (int i = 0; i < 30; ++i) ages.push_back(730.0 - i * 25.2);
    const auto made = history(ages);
    const auto versions = f.stack.catalog.versionsOfFile(made.front().fileID, 100);
    const auto keep = policy.versionsToKeep(versions, false, {}, now);
    ASSERT_LT(keep.size(), made.size());

    const auto dry = prune(std::nullopt, true);
    EXPECT_EQ(versionCount(), 30) << "a dry pass removes nothing";
    const auto real = prune(std::nullopt);
    EXPECT_EQ(dry.removedCount, real.removedCount);
    EXPECT_EQ(dry.freedBytes, real.freedBytes);
    EXPECT_EQ(real.removedCount, std::int64_t(made.size() - keep.size()));
    for (const auto& version : made) {
        const bool kept = keep.count(version.id) != 0;
        EXPECT_EQ(f.stack.catalog.version(version.id).has_value(), kept) << version.id;
        EXPECT_EQ(slotExists(version), kept) << version.slot;
    }
    EXPECT_EQ(prune(std::nullopt).removedCount, 0) << "a second pass finds nothing more";
}

TEST_F(PrunerTest, TheBudgetThinsOldestTiersFirstAndNeverProtectedOrYoungVersions) {
    struct Row {
        const char* name;
        std::vector<double> ages;  // days, oldest first; each version holds exactly 100 bytes
        std::optional<std::int64_t> budget;
        std::int64_t expectRemoved;
        bool expectOver;
    };
    const std::vector<double> twoOld = {200, 100, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11};
    const std::vector<Row> rows = {
        // All younger than a day: nothing may go, whatever the budget.
        {"all young", std::vector<double>(12, 0.5), 1, 0, true},
        // Thinning keeps both old versions (different weeks); the weekly step alone meets the budget.
        {"weekly step", twoOld, 1000, 2, false},
        // The newest ten are protected: over a tighter budget the pass warns rather than deleting more.
        {"still over", twoOld, 999, 2, true},
        {"unlimited", twoOld, std::nullopt, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TempDirectory scratch;
        RestoreFixture g(scratch);
        for (std::size_t i = 0; i < row.ages.size(); ++i) {
            std::string content = "version " + std::to_string(i);
            content.resize(100, '.');
            g.capture("f.txt", content, now - row.ages[i] * day - double(row.ages.size() - i));
        }
        const auto result =
            Pruner(g.stack.catalog, g.stack.layout, g.stack.logger).prune(g.folder.id, row.budget, policy, now);
        EXPECT_EQ(result.removedCount, row.expectRemoved);
        EXPECT_EQ(result.overBudget, row.expectOver);
        EXPECT_EQ(g.stack.logger.contains("A folder is still over budget after pruning; warning rather than deleting more"),
                  row.expectOver);
    }
}

TEST_F(PrunerTest, TwoGigabytesUnderAOneGigabyteBudgetAllYoungerThanADayStayAndAreReportedOver) {
    // The budget works on recorded sizes; two rows of a gigabyte each stand for the real thing.
    const auto seed = history({0.9});
    for (double age : {0.8, 0.7}) {
        NewVersion version;
        version.fileID = seed.front().fileID;
        version.capturedAt = now - age * day;
        version.digest = "d" + std::to_string(age);
        version.logicalBytes = 1'000'000'000;
        version.slot = f.stack.layout.makeSlot(version.fileID, version.capturedAt).relativePath;
        version.payloadName = "a.txt";
        f.stack.catalog.recordVersion(version);
    }
    const auto result = prune(1'000'000'000);
    EXPECT_EQ(result.removedCount, 0);
    EXPECT_TRUE(result.overBudget);
    EXPECT_EQ(versionCount(), 3);
}

TEST_F(PrunerTest, ExpiredTimelineMarksAreSweptAndNamedOnesStay) {
    const auto made = history({40, 35, 31, 29, 2});
    auto& catalog = f.stack.catalog;
    using Kind = MomentMark::Kind;
    catalog.recordMark({f.folder.id, made[2].capturedAt, std::nullopt, Kind::beforeRewind, std::nullopt});  // 31 days
    catalog.recordMark({f.folder.id, made[3].capturedAt, std::nullopt, Kind::beforeRewind, std::nullopt});  // 29 days
    catalog.recordMark({f.folder.id, made[0].capturedAt, "Draft", Kind::beforeRewind, std::nullopt});       // named
    catalog.recordMark({f.folder.id, now - 3 * day, std::nullopt, Kind::rewind, std::nullopt});  // stands on nothing
    catalog.recordMark({f.folder.id, made[4].capturedAt, std::nullopt, Kind::rewind, std::nullopt});  // on a version
    const auto result = prune(std::nullopt);
    EXPECT_EQ(result.markCount, 2);
    std::vector<double> left;
    for (const auto& mark : catalog.marks(f.folder.id)) left.push_back(mark.at);
    EXPECT_EQ(left, (std::vector<double>{made[4].capturedAt, made[3].capturedAt, made[0].capturedAt}));
    EXPECT_TRUE(f.stack.logger.contains("Swept 2 expired timeline marks"));
}

TEST(StorageBudgetTest, TheAutomaticBudgetFollowsFreeSpace) {
    constexpr std::int64_t GiB = 1'073'741'824;
    const std::vector<std::pair<std::int64_t, std::int64_t>> rows = {
        {50 * GiB, 5 * GiB},          {400 * GiB, 5 * GiB},     {50 * GiB - 1, (50 * GiB - 1) / 10},
        {10 * GiB, GiB},              {2'684'354'560, 268'435'456},
        {2'684'354'559, 268'435'456}, {0, 268'435'456},
    };
    for (auto [free, budget] : rows) EXPECT_EQ(StorageBudget::automaticBudget(free), budget) << free;
    EXPECT_EQ(StorageBudget::effectiveBudget({FolderBudget::Kind::unlimited, 0}, 0), std::nullopt);
    EXPECT_EQ(StorageBudget::effectiveBudget({FolderBudget::Kind::bytes, 2'000'000}, 100 * GiB), 2'000'000);
    EXPECT_EQ(StorageBudget::effectiveBudget({}, 100 * GiB), 5 * GiB);
}

struct StoreSweeperTest : PrunerTest {
    SweepReport sweep() { return StoreSweeper(f.stack.catalog, f.stack.layout, f.stack.fileSystem, f.stack.logger).sweep(); }
    // A slot with a payload, as a capture killed before recording its row leaves it.
    std::string orphanOf(std::int64_t fileID, double at) {
        auto slot = f.stack.layout.makeSlot(fileID, at);
        test::writeFile(slot.directory + "/a.txt", "left behind");
        return slot.relativePath;
    }
};

TEST_F(StoreSweeperTest, RemovesOrphansStagingAndEmptiedDirectoriesAndKeepsEveryReferencedSlot) {
    const auto made = history({3, 2, 1});
    const std::string sameFile = orphanOf(made[0].fileID, now);
    const std::string loneFile = orphanOf(999'999, now);  // a file with no rows at all
    test::writeFile(f.stack.layout.stagingDirectory() + "/leftover", "x");
    const auto report = sweep();
    EXPECT_EQ(report.slotsRemoved, 2);
    EXPECT_EQ(report.stagingItemsRemoved, 1);
    EXPECT_GT(report.bytesRemoved, 0);
    EXPECT_FALSE(fs::exists(f.stack.layout.slotDirectory(sameFile)));
    const fs::path lone = f.stack.layout.slotDirectory(loneFile);
    EXPECT_FALSE(fs::exists(lone.parent_path())) << "the file's emptied directory goes";
    EXPECT_FALSE(fs::exists(lone.parent_path().parent_path())) << "and the emptied fan-out directory";
    for (const auto& version : made) EXPECT_TRUE(slotExists(version)) << version.slot;
    EXPECT_TRUE(f.stack.logger.contains("Swept " + std::to_string(report.bytesRemoved) + " bytes of orphaned payloads"));
}

TEST_F(StoreSweeperTest, NeverTakesASlotACaptureHoldsOrOneFiledUnderAnotherFile) {
    const auto made = history({2, 1});
    // A row whose slot sits in another file's directory (a store put together by hand): referenced all the same.
    NewVersion misfiled;
    misfiled.fileID = made[0].fileID;
    misfiled.capturedAt = now;
    misfiled.digest = made[0].digest;
    misfiled.slot = orphanOf(made[0].fileID + 1, now);
    misfiled.payloadName = "a.txt";
    f.stack.catalog.recordVersion(misfiled);
    const std::string inFlight = orphanOf(made[0].fileID, now + 5);
    {
        auto capture = FileLock::acquire(f.stack.layout.slotLockPath(), FileLock::Mode::shared);
        const auto report = sweep();
        EXPECT_EQ(report.slotsRemoved, 0);
        EXPECT_EQ(report.slotsBusy, 1);
        EXPECT_TRUE(fs::exists(f.stack.layout.slotDirectory(inFlight)));
    }
    EXPECT_EQ(sweep().slotsRemoved, 1) << "once the capture let go, its abandoned slot is an orphan";
    EXPECT_TRUE(fs::exists(f.stack.layout.slotDirectory(misfiled.slot)));
}

TEST_F(StoreSweeperTest, SweepsRacingLiveCapturesNeverCostARecordedPayload) {
    std::string sweepFailure;
    {
        std::jthread sweeper([&](std::stop_token stop) {
            try {
                while (!stop.stop_requested()) sweep();
            } catch (const std::exception& error) {
                sweepFailure = error.what();
            }
        });
        for (int i = 0; i < 150; ++i)
            f.capture("f" + std::to_string(i % 7) + ".txt", "content " + std::to_string(i), now + i);
    }
    EXPECT_EQ(sweepFailure, "");
    for (const auto& slot : f.stack.catalog.allSlots()) EXPECT_TRUE(fs::exists(f.stack.layout.slotDirectory(slot))) << slot;
    EXPECT_EQ(f.stack.catalog.allSlots().size(), 150u);
}

}  // namespace
}  // namespace vosklin

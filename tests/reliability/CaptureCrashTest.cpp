// A capture killed (SIGKILL) just before each of its writes in turn, then the
// store reopened as the daemon opens it: whatever the instant of the crash,
// the catalog is sound, every version it names is whole, nothing is left
// half-made in the store, and the user's files were never touched.
#include <gtest/gtest.h>

#include <filesystem>

#include "store/PayloadDigest.h"
#include "reliability/CaptureBatch.h"
#include "reliability/TmpfsScratch.h"
#include "support/FolderImage.h"
#include "support/RestoreFixture.h"
#include "support/StoreAudit.h"

namespace vosklin {
namespace {

using test::RestoreFixture;
using test::t0;
using test::TempDirectory;
TEST(CaptureCrashTest, AKillBeforeAnyWriteLeavesASoundStoreAndUntouchedFiles) {
    test::TmpfsScratch onTmpfs;
    int completedAt = 0;
    std::vector<std::string> emptyAfterKill;
    for (int killAt = 1; killAt < 500 && !completedAt; ++killAt) {
        SCOPED_TRACE("killed before write " + std::to_string(killAt));
        TempDirectory directory;
        {
            RestoreFixture setup(directory);
            test::prepareBatch(setup);
        }
        const auto before = test::imageOf(directory / "Docs");
        if (test::runKilledAtWrite(directory, killAt, [](RestoreFixture& f) {
                auto results = f.stack.service.captureBatch(test::batchRequests(f, CaptureSource::watcher),
                                                            [] { return t0 + 100; });
                if (auto failed = test::failuresOf(results); !failed.empty()) throw std::runtime_error(failed);
            }))
            completedAt = killAt;

        // The next start: open the store, the launch-time recoveries, then record again.
        RestoreFixture next(directory);
        next.service.recoverInterrupted();
        next.rewinds.recoverInterrupted();
        auto again =
            next.stack.service.captureBatch(test::batchRequests(next, CaptureSource::crawl), [] { return t0 + 200; });
        EXPECT_EQ(test::failuresOf(again), "");
        for (const auto& result : again)
            EXPECT_TRUE(result.outcome && result.outcome->kind != CaptureOutcome::Kind::skipped) << result.request.unit;

        EXPECT_EQ(test::differences(before, test::imageOf(next.root)), "") << "the user's files are untouched";
        auto audit = test::StoreAudit::of(next.store);
        EXPECT_TRUE(audit.problems.empty()) << audit.summary();
        if (!audit.emptyDirectories.empty()) emptyAfterKill.push_back(std::to_string(killAt) + ": " + audit.summary());
        PayloadDigest digest(next.stack.fileSystem);
        for (const auto& unit : test::batchUnits()) {
            const std::string live = next.root + "/" + unit.path;
            auto newest = audit.newestByPath.find(unit.path);
            ASSERT_NE(newest, audit.newestByPath.end()) << unit.path << " has no version";
            EXPECT_EQ(newest->second.digest, unit.isPackage ? digest.packageDigest(live) : digest.fileDigest(live))
                << unit.path << ": the newest version is the file as it is";
        }
    }
    EXPECT_GT(completedAt, 15) << "a batch of five units takes many writes; each was interrupted in turn";
    // A kill between making a slot and filling it leaves the slot empty: a copy without a row,
    // which the store's sweep of orphans takes, like a payload whose row never came.
    std::cout << "[ crash    ] " << completedAt << " kill points; " << emptyAfterKill.size()
              << " left an empty slot\n";
}

}  // namespace
}  // namespace vosklin

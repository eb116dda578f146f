// A pass killed (SIGKILL) just before each of its removals in turn: whatever
// the instant, every version the catalog names is whole, what the kill left
// behind is at worst an orphan, and the next pass and sweep finish the job.
#include <gtest/gtest.h>

#include <set>

#include "reliability/TmpfsScratch.h"
#include "retention/Pruner.h"
#include "retention/StoreSweeper.h"
#include "support/RestoreFixture.h"
#include "support/StoreAudit.h"

namespace vosklin {
namespace {

using test::RestoreFixture;
using test::TempDirectory;

constexpr double day = 86'400;
constexpr double now = test::t0;

RetentionPolicy policy() { return RetentionPolicy::forHorizon(RetentionHorizon::year); }

// Three files, fifteen versions each, over two years: every tier, and some beyond the horizon.
void makeHistory(RestoreFixture& f) {
    for (int i = 0; i < 15; ++i)
        for (const char* name : {"a.txt", "b.txt", "c.txt"})
            f.capture(name, std::string(name) + " v" + std::to_string(i), now - (730 - i * 52) * day - i);
}

std::set<std::int64_t> versionIDs(VersionCatalog& catalog) {
    std::set<std::int64_t> ids;
    for (const auto& version : catalog.allVersions()) ids.insert(version.id);
    return ids;
}

TEST(PruneCrashTest, AKillBeforeAnyRemovalLeavesAConsistentStoreThatTheNextPassCompletes) {
    test::TmpfsScratch onTmpfs;
    std::set<std::int64_t> expected;  // what an uninterrupted pass keeps
    bool completed = false;
    int kills = 0;
    for (int killAt = 1; killAt < 1000 && !completed; ++killAt) {
        SCOPED_TRACE("killed before removal " + std::to_string(killAt));
        TempDirectory directory;
        {
            RestoreFixture setup(directory);
            makeHistory(setup);
            if (expected.empty())
                for (const auto& file : setup.stack.catalog.files(setup.folder.id, false))
                    for (auto id : policy().versionsToKeep(setup.stack.catalog.versionsOfFile(file.id, 100), false, {}, now))
                        expected.insert(id);
        }
        completed = test::runKilledAtWrite(directory, killAt, [](RestoreFixture& f) {
            Pruner(f.stack.catalog, f.stack.layout, f.stack.logger).prune(f.folder.id, std::nullopt, policy(), now);
        });
        if (!completed) ++kills;

        RestoreFixture next(directory);
        auto audit = test::StoreAudit::of(next.store);
        EXPECT_TRUE(audit.problems.empty()) << "right after the kill: " << audit.summary();
        Pruner(next.stack.catalog, next.stack.layout, next.stack.logger).prune(next.folder.id, std::nullopt, policy(), now);
        StoreSweeper(next.stack.catalog, next.stack.layout, next.stack.fileSystem, next.stack.logger).sweep();
        audit = test::StoreAudit::of(next.store);
        EXPECT_TRUE(audit.problems.empty() && audit.orphanSlots.empty() && audit.emptyDirectories.empty())
            << audit.summary() << " orphans: " << audit.orphanSlots.size();
        EXPECT_EQ(versionIDs(next.stack.catalog), expected);
    }
    EXPECT_TRUE(completed) << "the pass never finished";
    EXPECT_GT(kills, 20) << "every removal of the pass is a kill point";
}

}  // namespace
}  // namespace vosklin

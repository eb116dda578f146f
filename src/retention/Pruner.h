#pragma once

#include <cstdint>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "catalog/TrackedFile.h"
#include "catalog/VersionCatalog.h"
#include "platform/Logger.h"
#include "retention/RetentionPolicy.h"
#include "retention/VersionRemoval.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// What one folder's pass did (or, dry, would do).
struct PruneResult {
    std::int64_t removedCount = 0;
    std::int64_t freedBytes = 0;  // logical bytes of the removed versions
    bool overBudget = false;      // still over budget after the budget stage
    std::int64_t markCount = 0;   // expired timeline marks swept
};

// Applies the retention policy to one folder, then its storage budget, then
// sweeps its expired timeline marks.
//
// Never in the way of capture: it reads and deletes through the catalog like
// any client, a file at a time, each file's removals one short transaction,
// so a capture waits at most for one of them. A version's row goes before its
// payload, and is made durable before it (one sync for many files' rows): a
// pass killed, or a power cut, in between leaves an unreferenced slot, which
// the orphan sweep removes, never a row without its payload. Protected versions
// and versions younger than a day are never removed, whatever the budget.
//
// Dry (`dryRun`): computes the same, removing nothing; what it would remove is
// left out of what it reads next, so the budget stage sees the same history.
//
// Payload removal runs on a thread of its own beside the catalog work, both
// at idle priority; prune() returns once both are done. Where the disk does
// not honour idle priority, the pass still gives way: before each file and
// every few removals it waits while a capture is in flight (the capture's
// shared slot lock), so captures meet a quiet disk. Passes through one
// Pruner are serialised. A catalog failure is thrown and
// ends the folder's pass; what was removed before it stays removed.
class Pruner {
public:
    Pruner(VersionCatalog& catalog, VersionStoreLayout& layout, Logger& logger, bool dryRun = false);
    // `budgetBytes`: nothing for an unlimited folder, which skips the budget stage.
    PruneResult prune(const std::string& folderID, std::optional<std::int64_t> budgetBytes,
                      const RetentionPolicy& policy, double now);

    // The most versions of one file a pass looks at (the newest); older ones wait for a later pass.
    static constexpr std::int64_t versionsPerFile = 10'000;
    // Payloads whose rows are gone wait for one catalog sync per this many.
    static constexpr std::size_t payloadsPerSync = 1'000;

private:
    PruneResult pruneLocked(const std::string& folderID, std::optional<std::int64_t> budgetBytes,
                            const RetentionPolicy& policy, double now);
    std::vector<StoredVersion> versionsOf(const TrackedFile& file);
    void remove(std::vector<StoredVersion> versions, PruneResult& result);
    // Syncs the catalog, then hands the payloads whose rows are gone to a
    // removal running beside the next files' deletions (one at a time).
    void removePayloads();
    // removePayloads(), then waits for the removal to end.
    void finishRemovals();
    // Waits (a little, at most) while a capture is between making a slot and
    // recording it: the pass's disk writes would slow the capture's sync.
    void yieldToCaptures() const;
    bool budgetStage(const std::vector<TrackedFile>& files, const std::vector<MomentMark>& marks,
                     const RetentionPolicy& policy, double now, std::int64_t budget, std::int64_t usage,
                     PruneResult& result);
    std::int64_t sweepMarks(const std::string& folderID, const std::vector<MomentMark>& marks,
                            const RetentionPolicy& policy, double now);

    VersionCatalog& catalog_;
    VersionStoreLayout& layout_;
    VersionRemoval removal_;
    Logger& logger_;
    bool dryRun_;
    std::unordered_set<std::int64_t> removedDry_;
    std::vector<StoredVersion> rowless_;  // deleted from the catalog, payloads still on disk
    std::future<void> removing_;
    std::mutex lock_;
};

}  // namespace vosklin

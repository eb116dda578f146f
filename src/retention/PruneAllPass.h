#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bridge/FolderList.h"
#include "catalog/VersionCatalog.h"
#include "platform/Logger.h"
#include "platform/Settings.h"
#include "retention/Pruner.h"
#include "retention/StoreSweeper.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

struct FolderPruneReport {
    WatchedFolder folder;
    PruneResult result;
    std::optional<std::int64_t> budgetBytes;  // the effective budget; nothing when unlimited
    std::int64_t logicalBytes = 0;            // after the pass (dry: as it would be)
    std::optional<std::string> failure;       // why this folder's pass stopped
};

struct PruneAllReport {
    bool ran = false;  // false: another pass was already running
    bool dryRun = false;
    std::vector<FolderPruneReport> folders;
    std::int64_t removedCount = 0;
    std::int64_t freedBytes = 0;
    SweepReport sweep;
};

// The whole store's pass: every watched folder in the list's order under the
// policy of the stored horizon and its effective budget, then the orphan
// sweep. One instant is taken for the whole pass. A folder whose pass fails
// is reported and skipped; the others go on.
//
// Runs on a thread of its own at idle I/O and CPU priority, so the user's own
// work (and Vosklin's captures) get the disk first; run() waits for it. A run
// while another is running does nothing (`ran` false). Thread-safe.
class PruneAllPass {
public:
    PruneAllPass(VersionCatalog& catalog, VersionStoreLayout& layout, FolderList& folders, Settings& settings,
                 FileSystem& fileSystem, Logger& logger);
    PruneAllReport run(double now, bool dryRun = false);
    bool isPruning() const { return pruning_; }

private:
    PruneAllReport runHere(double now, bool dryRun);

    VersionCatalog& catalog_;
    VersionStoreLayout& layout_;
    FolderList& folders_;
    Settings& settings_;
    FileSystem& fileSystem_;
    Logger& logger_;
    std::atomic<bool> pruning_{false};
};

}  // namespace vosklin

#include "retention/PruneAllPass.h"

#include <exception>
#include <thread>

#include "platform/DiskSpace.h"
#include "platform/IoPriority.h"
#include "retention/RetentionHorizon.h"
#include "retention/StorageBudget.h"

namespace vosklin {

PruneAllPass::PruneAllPass(VersionCatalog& catalog, VersionStoreLayout& layout, FolderList& folders,
                           Settings& settings, FileSystem& fileSystem, Logger& logger)
    : catalog_(catalog),
      layout_(layout),
      folders_(folders),
      settings_(settings),
      fileSystem_(fileSystem),
      logger_(logger) {}

PruneAllReport PruneAllPass::run(double now, bool dryRun) {
    if (pruning_.exchange(true)) return {};
    PruneAllReport report;
    std::exception_ptr failure;
    std::thread worker([&] {
        IoPriority::makeThisThreadIdle();
        try {
            report = runHere(now, dryRun);
        } catch (...) {
            failure = std::current_exception();
        }
    });
    worker.join();
    pruning_ = false;
    if (failure) std::rethrow_exception(failure);
    return report;
}

PruneAllReport PruneAllPass::runHere(double now, bool dryRun) {
    PruneAllReport report;
    report.ran = true;
    report.dryRun = dryRun;
    const RetentionPolicy policy = RetentionPolicy::forHorizon(RetentionHorizons::read(settings_));
    const std::int64_t freeBytes = DiskSpace::availableBytes(layout_.root()).value_or(0);
    Pruner pruner(catalog_, layout_, logger_, dryRun);
    // Thousands of small deletions: no checkpoint inside their commits, where a capture would
    // wait behind it; the pruner checkpoints aside between files and syncs the log itself.
    struct Checkpoints {
        VersionCatalog& catalog;
        explicit Checkpoints(VersionCatalog& c) : catalog(c) { catalog.setCheckpointPages(0); }
        ~Checkpoints() {
            try {
                catalog.setCheckpointPages(VersionCatalog::standardCheckpointPages);
            } catch (...) {
                // The connection's next checkpoint comes later, that is all.
            }
        }
    } checkpoints(catalog_);
    for (const auto& folder : folders_.folders()) {
        FolderPruneReport entry;
        entry.folder = folder;
        entry.budgetBytes = StorageBudget::effectiveBudget(folder.budget, freeBytes);
        try {
            entry.result = pruner.prune(folder.id, entry.budgetBytes, policy, now);
            entry.logicalBytes = catalog_.folderBytes(folder.id) - (dryRun ? entry.result.freedBytes : 0);
        } catch (const std::exception& error) {
            entry.failure = error.what();
            logger_.error("Pruning " + folder.path + " failed: " + error.what());
        }
        report.removedCount += entry.result.removedCount;
        report.freedBytes += entry.result.freedBytes;
        report.folders.push_back(std::move(entry));
    }
    if (!dryRun)
        logger_.info("Pruned " + std::to_string(report.removedCount) + " versions, freed " +
                     std::to_string(report.freedBytes) + " bytes");
    report.sweep = StoreSweeper(catalog_, layout_, fileSystem_, logger_).sweep(dryRun);
    return report;
}

}  // namespace vosklin

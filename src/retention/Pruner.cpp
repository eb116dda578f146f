#include "retention/Pruner.h"

#include <algorithm>

#include "platform/FileLock.h"
#include "platform/IoPriority.h"

namespace vosklin {

namespace {
// The longest a pass waits for captures before going on anyway: it must finish some day.
constexpr double captureAllowance = 2;
}  // namespace

Pruner::Pruner(VersionCatalog& catalog, VersionStoreLayout& layout, Logger& logger, bool dryRun)
    : catalog_(catalog), layout_(layout), removal_(layout), logger_(logger), dryRun_(dryRun) {}

std::vector<StoredVersion> Pruner::versionsOf(const TrackedFile& file) {
    auto versions = catalog_.versionsOfFile(file.id, versionsPerFile);
    if (dryRun_)
        std::erase_if(versions, [&](const StoredVersion& version) { return removedDry_.count(version.id) != 0; });
    return versions;
}

void Pruner::remove(std::vector<StoredVersion> versions, PruneResult& result) {
    if (versions.empty()) return;
    for (const auto& version : versions) result.freedBytes += version.logicalBytes;
    result.removedCount += std::int64_t(versions.size());
    if (dryRun_) {
        for (const auto& version : versions) removedDry_.insert(version.id);
        return;
    }
    std::vector<std::int64_t> ids;
    ids.reserve(versions.size());
    for (const auto& version : versions) ids.push_back(version.id);
    // Rows first: a payload without a row is an orphan the sweep takes; a row without its payload would be a loss.
    catalog_.deleteVersionsListed(ids);
    rowless_.insert(rowless_.end(), versions.begin(), versions.end());
    if (rowless_.size() >= payloadsPerSync) removePayloads();
}

void Pruner::removePayloads() {
    if (rowless_.empty()) return;
    catalog_.makeDurable();
    // Between files, from its own connection: no capture waits behind this checkpoint.
    catalog_.checkpointAside();
    if (removing_.valid()) removing_.get();
    removing_ = std::async(std::launch::async, [this, batch = std::move(rowless_)] {
        IoPriority::makeThisThreadIdle();
        removal_.remove(batch, [this] { yieldToCaptures(); });
    });
    rowless_.clear();
}

void Pruner::yieldToCaptures() const {
    try {
        // Held for a moment only: having it proves no capture holds it now.
        FileLock::tryAcquire(layout_.slotLockPath(), FileLock::Mode::exclusive, captureAllowance);
    } catch (const std::exception&) {
        // Courtesy, not safety: a lock file that cannot be opened is no reason to stop.
    }
}

void Pruner::finishRemovals() {
    removePayloads();
    if (removing_.valid()) removing_.get();
}

PruneResult Pruner::prune(const std::string& folderID, std::optional<std::int64_t> budgetBytes,
                          const RetentionPolicy& policy, double now) {
    std::lock_guard guard(lock_);
    try {
        return pruneLocked(folderID, budgetBytes, policy, now);
    } catch (...) {
        // The rows deleted before the failure stay deleted; their payloads go if they can.
        try {
            finishRemovals();
        } catch (...) {
            rowless_.clear();  // the orphan sweep takes them
        }
        throw;
    }
}

PruneResult Pruner::pruneLocked(const std::string& folderID, std::optional<std::int64_t> budgetBytes,
                                const RetentionPolicy& policy, double now) {
    PruneResult result;
    const auto files = catalog_.files(folderID, false);
    const auto marks = catalog_.marks(folderID);
    // The catalog's sum before this pass; what the pass frees comes off it.
    const std::int64_t usage = catalog_.folderBytes(folderID);
    for (const auto& file : files) {
        if (!dryRun_) yieldToCaptures();
        auto versions = versionsOf(file);
        const auto keep = policy.versionsToKeep(versions, file.deletedAt.has_value(), marks, now);
        if (keep.size() == versions.size()) continue;
        std::erase_if(versions, [&](const StoredVersion& version) { return keep.count(version.id) != 0; });
        remove(std::move(versions), result);
    }
    if (budgetBytes && usage - result.freedBytes > *budgetBytes)
        result.overBudget = !budgetStage(files, marks, policy, now, *budgetBytes, usage, result);
    if (!dryRun_) result.markCount = sweepMarks(folderID, marks, policy, now);
    finishRemovals();
    return result;
}

bool Pruner::budgetStage(const std::vector<TrackedFile>& files, const std::vector<MomentMark>& marks,
                         const RetentionPolicy& policy, double now, std::int64_t budget, std::int64_t usage,
                         PruneResult& result) {
    // Oldest tier first; the youngest tier (a day) is never thinned for the budget.
    for (int tier : {3, 2, 1}) {
        for (const auto& file : files) {
            if (!dryRun_) yieldToCaptures();
            auto versions = versionsOf(file);
            const auto kept = policy.protectedVersions(versions, file.deletedAt.has_value(), marks, now);
            std::erase_if(versions, [&](const StoredVersion& version) {
                return kept.count(version.id) != 0 || policy.tier(now - version.capturedAt) != tier;
            });
            remove(std::move(versions), result);
        }
        if (usage - result.freedBytes <= budget) return true;
    }
    logger_.info("A folder is still over budget after pruning; warning rather than deleting more");
    return false;
}

std::int64_t Pruner::sweepMarks(const std::string& folderID, const std::vector<MomentMark>& marks,
                                const RetentionPolicy& policy, double now) {
    std::int64_t swept = 0;
    for (const auto& mark : marks) {
        if (mark.name || mark.kind == MomentMark::Kind::named) continue;
        const bool expired = mark.kind == MomentMark::Kind::rewind
                                 ? !catalog_.anythingAt(folderID, mark.at)
                                 : now - mark.at > policy.beforeRewindWindow;
        if (!expired) continue;
        catalog_.deleteMark(folderID, mark.at);
        ++swept;
    }
    if (swept) logger_.info("Swept " + std::to_string(swept) + " expired timeline marks");
    return swept;
}

}  // namespace vosklin

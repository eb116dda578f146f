#include "retention/StorageBudget.h"

#include "catalog/VersionCatalog.h"
#include "platform/DiskSpace.h"
#include "store/VersionStoreLayout.h"

namespace vosklin::StorageBudget {

std::int64_t automaticBudget(std::int64_t freeBytes) {
    if (freeBytes >= roomyFreeBytes) return roomyBudget;
    if (freeBytes < scarceFreeBytes) return scarceBudget;
    return freeBytes / 10;
}

std::optional<std::int64_t> effectiveBudget(const FolderBudget& budget, std::int64_t freeBytes) {
    switch (budget.kind) {
        case FolderBudget::Kind::unlimited: return std::nullopt;
        case FolderBudget::Kind::bytes: return budget.bytes;
        case FolderBudget::Kind::automatic: break;
    }
    return automaticBudget(freeBytes);
}

std::string describe(const FolderBudget& budget) {
    switch (budget.kind) {
        case FolderBudget::Kind::unlimited: return "unlimited";
        case FolderBudget::Kind::bytes: return std::to_string(budget.bytes);
        case FolderBudget::Kind::automatic: break;
    }
    return "automatic";
}

Usage measure(const WatchedFolder& folder, VersionCatalog& catalog, const VersionStoreLayout& layout,
              std::int64_t freeBytes) {
    Usage usage;
    usage.logicalBytes = catalog.folderBytes(folder.id);
    usage.versionCount = catalog.folderVersionCount(folder.id);
    usage.budgetBytes = effectiveBudget(folder.budget, freeBytes);
    for (const auto& slot : catalog.slotsOfFolder(folder.id))
        usage.privateBytes += DiskSpace::privateBytes(layout.slotDirectory(slot));
    return usage;
}

}  // namespace vosklin::StorageBudget

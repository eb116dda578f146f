#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "bridge/WatchedFolder.h"

namespace vosklin {

class VersionCatalog;
class VersionStoreLayout;

// How much store each folder's history may take. Stateless.
//
// A folder's budget is what the user chose, or "automatic": a share of the
// free space on the volume holding the store, so a nearly full disk gets a
// small budget and a roomy one a generous one. The budget is compared with the
// folder's logical bytes (the sum of its versions' sizes as the catalog
// records them), not with what is on disk: reflinked versions share blocks
// with the live files and with each other, and the logical sum falls by a
// known amount with every removal, which a pass can count on without
// measuring the disk again.
namespace StorageBudget {

constexpr std::int64_t roomyFreeBytes = 53'687'091'200;     // 50 GiB
constexpr std::int64_t roomyBudget = 5'368'709'120;         // 5 GiB
constexpr std::int64_t scarceFreeBytes = 2'684'354'560;     // 2.5 GiB
constexpr std::int64_t scarceBudget = 268'435'456;          // 256 MiB

// The automatic rule; `freeBytes` is 0 when unknown.
std::int64_t automaticBudget(std::int64_t freeBytes);

// The budget a pass enforces; nothing for an unlimited folder.
std::optional<std::int64_t> effectiveBudget(const FolderBudget& budget, std::int64_t freeBytes);

// What the budget is to a person: "automatic", "unlimited" or the chosen size in bytes.
std::string describe(const FolderBudget& budget);

struct Usage {
    std::int64_t privateBytes = 0;  // on disk and shared with no other file
    std::int64_t logicalBytes = 0;  // the versions' sizes as recorded
    std::int64_t versionCount = 0;
    std::optional<std::int64_t> budgetBytes;  // the effective budget; nothing when unlimited
    bool overBudget() const { return budgetBytes && logicalBytes > *budgetBytes; }
};

// Measures one folder: the catalog's sums, and every slot of the folder on
// disk (so it takes a while for a long history). Throws what the catalog or
// the disk throws.
Usage measure(const WatchedFolder& folder, VersionCatalog& catalog, const VersionStoreLayout& layout,
              std::int64_t freeBytes);

}  // namespace StorageBudget
}  // namespace vosklin

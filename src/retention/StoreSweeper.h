#pragma once

#include <cstdint>

#include "catalog/VersionCatalog.h"
#include "platform/FileSystem.h"
#include "platform/Logger.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

struct SweepReport {
    std::int64_t slotsRemoved = 0;
    std::int64_t bytesRemoved = 0;       // on disk, unshared, of the slots removed
    std::int64_t stagingItemsRemoved = 0;
    std::int64_t slotsBusy = 0;           // orphans passed over because captures held the store
};

// Removes what the catalog no longer refers to: slots no version row names
// (a pass or an erase whose payload removal failed, a capture killed between
// its copy and its row), the staging area's leftovers, and the file and
// fan-out directories left empty.
//
// A capture's slot exists before its row does. So a slot counts as an orphan
// only when, with the store's slot lock held exclusively (captures hold it
// shared from making a slot until its row is recorded), the catalog still
// does not name it. The lock is taken per file directory and only briefly; a
// directory whose lock cannot be had soon is left for the next sweep.
// Slots are compared per file directory, so memory stays bounded by the
// longest file history rather than the store; a slot the catalog files under
// another file's directory is never taken for an orphan.
//
// Dry: counts what it would remove, takes no lock, removes nothing. Listing
// or catalog failures are thrown; a slot that cannot be removed is skipped.
class StoreSweeper {
public:
    StoreSweeper(VersionCatalog& catalog, VersionStoreLayout& layout, FileSystem& fileSystem, Logger& logger);
    SweepReport sweep(bool dryRun = false);

private:
    VersionCatalog& catalog_;
    VersionStoreLayout& layout_;
    FileSystem& fileSystem_;
    Logger& logger_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "catalog/MomentMark.h"
#include "catalog/StoredVersion.h"
#include "catalog/TrackedFile.h"
#include "catalog/VersionCatalog.h"
#include "platform/Logger.h"
#include "retention/VersionRemoval.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Deleting history by hand: one version, several, or a file's whole history,
// after a preview of exactly what goes with it.
//
// The erase removes the rows in one transaction (all or none), and the rows
// and events of a deleted file left with no version; a live file keeps its
// row, so its next change starts a new history. Then the payloads go (one
// that cannot is left to the orphan sweep), and a named moment left standing
// on nothing is removed. The file in the watched folder is never touched.
//
// The preview and the erase use the catalog's staged-id table, so they must
// not interleave with another staged operation: the caller serialises them
// (the daemon runs one history change at a time). Catalog failures are thrown.
class HistoryEraser {
public:
    // The versions of one file to delete, and how many versions the file has.
    struct Selection {
        TrackedFile file;
        std::vector<StoredVersion> versions;
        std::int64_t fileVersionCount = 0;
    };

    struct Preview {
        std::int64_t versionCount = 0;
        std::int64_t reclaimableBytes = 0;
        bool includesStarred = false;
        bool includesUndoCopy = false;  // a preRestore or preRewind copy
        bool erasesLastCopyOfDeletedFile = false;
        bool erasesWholeLiveFile = false;
        std::vector<std::string> vanishingMomentNames;
        bool operator==(const Preview&) const = default;
    };

    HistoryEraser(VersionCatalog& catalog, VersionStoreLayout& layout, Logger& logger);
    // All selections belong to `folderID`.
    Preview preview(const std::string& folderID, const std::vector<Selection>& selections);
    // Returns how many versions were deleted.
    std::int64_t erase(const std::string& folderID, const std::vector<Selection>& selections);

private:
    // A named moment covers (floor, mark.at]: from just after the moment
    // before it, as moment clustering delimits moments, up to the mark.
    struct NamedSpan {
        MomentMark mark;
        double floor = 0;
        bool holds(double instant) const { return instant > floor && instant <= mark.at; }
    };
    std::vector<NamedSpan> namedSpans(const std::string& folderID);
    static std::vector<std::int64_t> selectedIDs(const std::vector<Selection>& selections);
    // The instants of the deleted/renamed events (one per event) that go with
    // the files whose every version is selected: the erase drops their events.
    std::vector<double> vanishingEventInstants(const std::string& folderID, const std::vector<Selection>& selections);
    // Whether the span loses anything: a selected version or one of those events.
    static bool touches(const NamedSpan& span, const std::vector<StoredVersion>& versions,
                        const std::vector<double>& vanishingEvents);

    VersionCatalog& catalog_;
    VersionRemoval removal_;
    Logger& logger_;
};

}  // namespace vosklin

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "catalog/MomentMark.h"
#include "catalog/VersionCatalog.h"
#include "history/MomentClustering.h"

namespace vosklin {

struct FolderHistoryPage;

// A folder's history as the user reads it: sessions of moments, with the
// marks that name them or fence them.
struct FolderHistory {
    static constexpr std::int64_t changeRowLimit = 5000;

    std::vector<MomentClustering::Session> sessions;  // newest first
    std::vector<MomentMark> marks;

    // Reads the newest 5,000 change rows, every file event and every mark of
    // the folder, and clusters them (60 s moments, 2,700 s sessions). Catalog
    // errors are passed on.
    static FolderHistory load(VersionCatalog& catalog, const std::string& folderID);
    // One page of the history, for reading it all a part at a time: the moments
    // older than `before` (all moments when absent), newest first, from about
    // `limit` change rows. The oldest moment read is left for the next page (it
    // may go on past the rows read), so a page never splits a moment; a moment
    // of more than `limit` rows comes whole. Each moment is the one clustering
    // the whole history makes. `before` is a printed instant: whatever it stands
    // for (within the microsecond rounding) belongs to the next page. The first
    // page of a history of fewer than `limit` rows is what load() gives.
    static FolderHistoryPage loadPage(VersionCatalog& catalog, const std::string& folderID,
                                      std::optional<double> before, std::int64_t limit);

    // The moment whose instant is `instant`, allowing for the microsecond
    // rounding of instants as they are printed.
    std::optional<MomentClustering::Moment> momentAt(double instant) const;
    std::optional<MomentMark> markAt(double instant) const;
    // The instant to read a state at for one a person typed or copied: a
    // moment's exact instant when it names one, else just past it, since a
    // printed instant is rounded to the microsecond and stands for everything
    // captured up to it.
    double stateInstant(double typed) const;

    // The row headline: a rewind's target, "before going back", the user's
    // name, a batch's size, or the number of files changed.
    std::string headline(const MomentClustering::Moment& moment) const;
};

struct FolderHistoryPage {
    // The page's moments in sessions; the newest session may continue the
    // oldest of the page before (a session is only ever cut at a page's end).
    FolderHistory history;
    // What to pass as `before` for the next (older) page; absent at the end.
    std::optional<double> next;
};

}  // namespace vosklin

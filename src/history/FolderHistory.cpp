#include "history/FolderHistory.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <unordered_set>

#include "platform/Instant.h"
#include "platform/StringTable.h"

namespace vosklin {
namespace {

// Printed instants carry microseconds: a stored instant is within half of one of what was
// printed, plus the spacing of doubles near today's instants (about 0.24 us), so within 2 us.
// Moments are never that close: even fenced ones are a millisecond or more apart.
constexpr double instantTolerance = 2e-6;

}  // namespace

FolderHistory FolderHistory::load(VersionCatalog& catalog, const std::string& folderID) {
    auto rows = catalog.changeList(folderID, changeRowLimit);
    auto events = catalog.eventsSince(folderID, 0);
    FolderHistory history;
    history.marks = catalog.marks(folderID);
    history.sessions =
        MomentClustering::sessions(MomentClustering::moments(rows, events, history.marks, MomentClustering::momentWindow),
                                   MomentClustering::sessionGap);
    return history;
}

FolderHistoryPage FolderHistory::loadPage(VersionCatalog& catalog, const std::string& folderID,
                                          std::optional<double> before, std::int64_t limit) {
    const double bound = before ? *before - instantTolerance : std::numeric_limits<double>::infinity();
    FolderHistoryPage page;
    auto& marks = page.history.marks;
    marks = catalog.marks(folderID);
    std::unordered_set<double> fences;
    for (const auto& mark : marks)
        if (mark.kind != MomentMark::Kind::named) fences.insert(mark.at);
    auto cluster = [&](const std::vector<ChangeRow>& rows, const std::vector<FileEventRow>& events,
                       const std::vector<ChangeRow>& earlier) {
        page.history.sessions = MomentClustering::sessions(
            MomentClustering::moments(rows, events, marks, MomentClustering::momentWindow, earlier),
            MomentClustering::sessionGap);
    };
    for (std::int64_t want = std::max<std::int64_t>(limit, 1);; want *= 2) {
        auto rows = before ? catalog.changeListBefore(folderID, bound, want) : catalog.changeList(folderID, want);
        if (std::int64_t(rows.size()) < want) {
            // The rest of the history, and every older event with it.
            cluster(rows, before ? catalog.eventsBetween(folderID, 0, bound) : catalog.eventsSince(folderID, 0), {});
            return page;
        }
        auto events = catalog.eventsBetween(folderID, rows.back().capturedAt, bound);
        std::set<double, std::greater<>> instants;
        for (const auto& row : rows) instants.insert(row.capturedAt);
        for (const auto& event : events)
            if (event.kind != FileEventKind::appeared) instants.insert(event.at);
        // Grouping runs from the newest instant down, so the groups above the
        // oldest are whole and are the ones the whole history has.
        const auto groups =
            MomentClustering::groupInstants(std::vector<double>(instants.begin(), instants.end()), fences);
        if (groups.size() < 2) continue;  // one moment of more than `want` rows: read further
        const double oldestKept = groups[groups.size() - 2].back();
        std::erase_if(rows, [&](const ChangeRow& row) { return row.capturedAt < oldestKept; });
        std::erase_if(events, [&](const FileEventRow& event) { return event.at < oldestKept; });
        // A deleted or renamed file's path and size before the change may lie on an older page.
        std::vector<std::int64_t> lookedBack;
        for (const auto& event : events)
            if (event.kind != FileEventKind::appeared) lookedBack.push_back(event.fileID);
        std::sort(lookedBack.begin(), lookedBack.end());
        lookedBack.erase(std::unique(lookedBack.begin(), lookedBack.end()), lookedBack.end());
        cluster(rows, events, catalog.newestRowsBefore(lookedBack, oldestKept));
        page.next = oldestKept;
        return page;
    }
}

std::optional<MomentClustering::Moment> FolderHistory::momentAt(double instant) const {
    for (const auto& session : sessions)
        for (const auto& moment : session.moments)
            if (std::fabs(moment.at - instant) <= instantTolerance) return moment;
    return std::nullopt;
}

double FolderHistory::stateInstant(double typed) const {
    if (auto moment = momentAt(typed)) return moment->at;
    return typed + instantTolerance;
}

std::optional<MomentMark> FolderHistory::markAt(double instant) const {
    for (const auto& mark : marks)
        if (mark.at == instant) return mark;
    return std::nullopt;
}

std::string FolderHistory::headline(const MomentClustering::Moment& moment) const {
    if (auto mark = markAt(moment.at)) {
        if (mark->kind == MomentMark::Kind::rewind)
            return StringTable::text("rewind.moment.wentBack %@",
                                     {mark->targetAt ? formatInstantSeconds(*mark->targetAt) : std::string("?")});
        if (mark->kind == MomentMark::Kind::beforeRewind) return StringTable::text("rewind.moment.beforeRewind");
        if (mark->name && !mark->name->empty()) return *mark->name;
    }
    const auto count = static_cast<long long>(moment.changes.size());
    if (moment.batchID) return StringTable::count("rewind.moment.batch %lld", count);
    if (count == 0) return StringTable::text("rewind.moment.unknown");
    return StringTable::count("rewind.moment.files %lld", count);
}

}  // namespace vosklin

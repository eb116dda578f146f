#include "history/FolderHistory.h"

#include <cmath>

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

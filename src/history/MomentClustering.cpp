#include "history/MomentClustering.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "platform/NaturalOrder.h"
#include "platform/PathNames.h"

namespace vosklin::MomentClustering {
namespace {

// Each file's rows, newest first: the builders look back before a moment through it.
using FileHistory = std::unordered_map<std::int64_t, std::vector<const ChangeRow*>>;

const ChangeRow* newestAtOrBefore(const FileHistory& history, std::int64_t fileID, double instant, bool strictly) {
    auto found = history.find(fileID);
    if (found == history.end()) return nullptr;
    for (const ChangeRow* row : found->second)
        if (strictly ? row->capturedAt < instant : row->capturedAt <= instant) return row;
    return nullptr;
}

// Rules A: a file with versions in the moment.
FileChange changeFromRows(std::vector<const ChangeRow*> rows, const FileEventRow* event, double oldestInstant,
                          const FileHistory& history) {
    std::stable_sort(rows.begin(), rows.end(),
                     [](const ChangeRow* a, const ChangeRow* b) { return a->capturedAt < b->capturedAt; });
    const ChangeRow& first = *rows.front();
    const ChangeRow& last = *rows.back();
    FileChange change;
    change.fileID = last.fileID;
    change.bytes = last.logicalBytes;
    if (event && event->kind == FileEventKind::renamed) {
        change.kind = FileChange::Kind::renamed;
        change.relativePath = event->path.value_or(last.relativePath);
        change.byteDelta = last.logicalBytes - first.previousBytes.value_or(last.logicalBytes);
        if (const ChangeRow* before = newestAtOrBefore(history, last.fileID, oldestInstant, true))
            change.previousPath = before->relativePath;
        return change;
    }
    change.relativePath = last.relativePath;
    if (event && event->kind == FileEventKind::deleted) {
        change.kind = FileChange::Kind::deleted;
        return change;
    }
    if (!first.previousBytes) {
        change.kind = FileChange::Kind::added;
        return change;
    }
    const bool replaced = std::any_of(rows.begin(), rows.end(), [](const ChangeRow* row) { return row->isReplacement; });
    change.kind = replaced ? FileChange::Kind::replaced : FileChange::Kind::edited;
    change.byteDelta = last.logicalBytes - *first.previousBytes;
    return change;
}

// Rules B: an event with no version of its file in the moment.
std::optional<FileChange> changeFromEvent(const FileEventRow& event, const FileHistory& history) {
    if (event.kind == FileEventKind::appeared) return std::nullopt;
    const ChangeRow* prior = newestAtOrBefore(history, event.fileID, event.at, false);
    FileChange change;
    change.fileID = event.fileID;
    change.bytes = prior ? prior->logicalBytes : 0;
    if (event.kind == FileEventKind::deleted) {
        change.kind = FileChange::Kind::deleted;
        change.relativePath = prior ? prior->relativePath : std::string();
    } else {
        change.kind = FileChange::Kind::renamed;
        change.relativePath = event.path ? *event.path : prior ? prior->relativePath : std::string();
        if (prior) change.previousPath = prior->relativePath;
    }
    return change;
}

std::int64_t weight(const FileChange& change) {
    if (change.kind == FileChange::Kind::added || change.kind == FileChange::Kind::deleted) return change.bytes;
    return change.byteDelta ? std::llabs(*change.byteDelta) : 0;
}

}  // namespace

std::string_view toString(FileChange::Kind kind) {
    switch (kind) {
        case FileChange::Kind::added: return "added";
        case FileChange::Kind::edited: return "edited";
        case FileChange::Kind::replaced: return "replaced";
        case FileChange::Kind::deleted: return "deleted";
        case FileChange::Kind::renamed: return "renamed";
    }
    return "";
}

std::vector<std::vector<double>> groupInstants(const std::vector<double>& instantsNewestFirst,
                                               const std::unordered_set<double>& fences, double window) {
    // Each group is anchored at its newest instant.
    std::vector<std::vector<double>> groups;
    for (double instant : instantsNewestFirst) {
        if (!groups.empty()) {
            const double newest = groups.back().front();
            if (newest - instant <= window && !fences.count(newest) && !fences.count(instant)) {
                groups.back().push_back(instant);
                continue;
            }
        }
        groups.push_back({instant});
    }
    return groups;
}

double momentFloor(const std::vector<double>& instantsNewestFirst, const std::unordered_set<double>& fences, double at,
                   double window) {
    double lowest = at;
    for (const auto& group : groupInstants(instantsNewestFirst, fences, window))
        if (group.back() <= at && at <= group.front()) lowest = group.back();
    for (double instant : instantsNewestFirst)
        if (instant < lowest) return instant;
    return std::numeric_limits<double>::lowest();
}

std::vector<Moment> moments(const std::vector<ChangeRow>& rows, const std::vector<FileEventRow>& events,
                            const std::vector<MomentMark>& marks, double window, const std::vector<ChangeRow>& earlier) {
    std::unordered_set<double> fences;
    for (const auto& mark : marks)
        if (mark.kind != MomentMark::Kind::named) fences.insert(mark.at);

    std::set<double, std::greater<>> instantSet;
    std::unordered_map<double, std::vector<const ChangeRow*>> rowsAt;
    std::unordered_map<double, std::vector<const FileEventRow*>> eventsAt;
    FileHistory history;
    for (const auto& row : rows) {
        instantSet.insert(row.capturedAt);
        rowsAt[row.capturedAt].push_back(&row);
        history[row.fileID].push_back(&row);
    }
    for (const auto& row : earlier) history[row.fileID].push_back(&row);
    for (const auto& event : events) {
        eventsAt[event.at].push_back(&event);
        if (event.kind == FileEventKind::deleted || event.kind == FileEventKind::renamed) instantSet.insert(event.at);
    }
    for (auto& [fileID, list] : history)
        std::stable_sort(list.begin(), list.end(),
                         [](const ChangeRow* a, const ChangeRow* b) { return a->capturedAt > b->capturedAt; });
    const auto groups = groupInstants(std::vector<double>(instantSet.begin(), instantSet.end()), fences, window);

    std::vector<Moment> result;
    result.reserve(groups.size());
    // Reused from moment to moment: most moments are small, and allocating afresh for each dominated.
    std::vector<std::int64_t> fileOrder;
    std::unordered_map<std::int64_t, std::vector<const ChangeRow*>> rowsByFile;
    std::vector<const ChangeRow*> momentRows;
    std::vector<const FileEventRow*> momentEvents;
    std::unordered_set<std::int64_t> fromEvents;
    for (const auto& group : groups) {
        Moment moment;
        moment.at = group.front();
        moment.instantCount = int(group.size());
        const double oldest = group.back();

        // The moment's rows by file (in first-seen order) and its events in query order.
        fileOrder.clear();
        rowsByFile.clear();
        momentRows.clear();
        momentEvents.clear();
        fromEvents.clear();
        for (double instant : group) {
            if (auto found = rowsAt.find(instant); found != rowsAt.end())
                for (const ChangeRow* row : found->second) {
                    if (!rowsByFile.count(row->fileID)) fileOrder.push_back(row->fileID);
                    rowsByFile[row->fileID].push_back(row);
                    momentRows.push_back(row);
                }
        }
        // Instants newest first, each instant's events in query order: the query's order overall.
        for (double instant : group)
            if (auto found = eventsAt.find(instant); found != eventsAt.end())
                momentEvents.insert(momentEvents.end(), found->second.begin(), found->second.end());

        for (std::int64_t fileID : fileOrder) {
            const FileEventRow* matched = nullptr;
            for (const FileEventRow* event : momentEvents)
                if (event->fileID == fileID) {
                    matched = event;
                    break;
                }
            moment.changes.push_back(changeFromRows(rowsByFile[fileID], matched, oldest, history));
        }
        for (const FileEventRow* event : momentEvents) {
            if (rowsByFile.count(event->fileID) || fromEvents.count(event->fileID)) continue;
            if (auto change = changeFromEvent(*event, history)) {
                moment.changes.push_back(*change);
                fromEvents.insert(event->fileID);
            }
        }
        std::stable_sort(moment.changes.begin(), moment.changes.end(), [](const FileChange& a, const FileChange& b) {
            const auto wa = weight(a), wb = weight(b);
            if (wa != wb) return wa > wb;
            return naturalLess(lastComponent(a.relativePath), lastComponent(b.relativePath));
        });

        if (moment.changes.size() >= 2 && !momentRows.empty()) {
            const auto& batch = momentRows.front()->batchID;
            if (batch && !batch->empty() &&
                std::all_of(momentRows.begin(), momentRows.end(),
                            [&](const ChangeRow* row) { return row->batchID == batch; }))
                moment.batchID = batch;
        }
        result.push_back(std::move(moment));
    }
    return result;
}

std::vector<Session> sessions(std::vector<Moment> moments, double gap) {
    std::vector<Session> result;
    std::vector<Moment> current;
    auto close = [&] {
        if (current.empty()) return;
        result.push_back({current.back().at, current.front().at, std::move(current)});
        current.clear();
    };
    for (auto& moment : moments) {
        if (!current.empty() && current.back().at - moment.at > gap) close();
        current.push_back(std::move(moment));
    }
    close();
    return result;
}

}  // namespace vosklin::MomentClustering

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "catalog/ChangeRow.h"
#include "catalog/FileEventRow.h"
#include "catalog/MomentMark.h"

namespace vosklin {

// Turns a folder's change rows, file events and marks into moments (changes
// within a minute of each other) and sessions (moments without a pause of
// more than 45 minutes). Pure: no state, no input or output, cannot fail.
//
// Grouping is anchored at each group's newest instant (a steady stream of
// saves every 30 s makes a moment per minute, not one long moment); marks
// other than names are fences that always stand alone. Instants are compared
// as exact values.
namespace MomentClustering {

struct FileChange {
    enum class Kind { added, edited, replaced, deleted, renamed };

    std::int64_t fileID = 0;
    std::string relativePath;
    Kind kind = Kind::edited;
    std::int64_t bytes = 0;  // the size after the change
    std::optional<std::int64_t> byteDelta;
    std::optional<std::string> previousPath;  // for renames

    // "fileID@relativePath": what identifies a change in a list.
    std::string identity() const { return std::to_string(fileID) + "@" + relativePath; }
    bool operator==(const FileChange&) const = default;
};

std::string_view toString(FileChange::Kind kind);

struct Moment {
    double at = 0;  // the newest instant: the moment's identity within its folder
    int instantCount = 0;
    std::vector<FileChange> changes;  // in display order
    std::optional<std::string> batchID;
};

struct Session {
    double start = 0;  // the oldest moment's `at`
    double end = 0;    // the newest moment's `at`
    std::vector<Moment> moments;  // newest first
};

constexpr double momentWindow = 60;
constexpr double sessionGap = 2700;

// Distinct instants (newest first) grouped into moments, each group newest
// first; an instant in `fences` always stands alone.
std::vector<std::vector<double>> groupInstants(const std::vector<double>& instantsNewestFirst,
                                               const std::unordered_set<double>& fences, double window = momentWindow);
// The exclusive lower bound of the moment that holds `at` (or, when no moment
// does, of the span just below `at`): the newest instant older than the moment,
// or the lowest double when there is none. The moment covers (floor, at].
double momentFloor(const std::vector<double>& instantsNewestFirst, const std::unordered_set<double>& fences, double at,
                   double window = momentWindow);
// Moments newest first. `events` in the catalog's order (newest first, ties by newest row).
// `earlier`: rows older than all of `rows`, only looked back on (a deleted or renamed
// file's path and size before the change), never made into moments of their own.
std::vector<Moment> moments(const std::vector<ChangeRow>& rows, const std::vector<FileEventRow>& events,
                            const std::vector<MomentMark>& marks, double window = momentWindow,
                            const std::vector<ChangeRow>& earlier = {});
// Sessions newest first; a gap of exactly `gap` seconds stays in one session.
// Takes the moments by value: pass a temporary (or std::move) and none is copied.
std::vector<Session> sessions(std::vector<Moment> moments, double gap = sessionGap);

}  // namespace MomentClustering
}  // namespace vosklin

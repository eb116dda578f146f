#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "catalog/MomentMark.h"
#include "catalog/StoredVersion.h"
#include "retention/RetentionHorizon.h"

namespace vosklin {

// Which versions of one file survive thinning: everything for a day, one per
// clock hour for a week, one per calendar day for a month, one per week up to
// the horizon, nothing older, and never what `protectedVersions` names.
//
// A value; every operation is a pure function of its arguments (time comes in
// as `now`, seconds since 1970), so it is safe from any thread. Durations are
// in seconds, measured backwards from `now`. Bucket keys are calendar keys in
// the local time zone (TZ is honoured): a day is the user's day.
struct RetentionPolicy {
    double everythingWindow = 86'400;     // younger: always kept
    double hourlyWindow = 604'800;        // up to this age: one per clock hour
    double dailyWindow = 2'592'000;       // up to this age: one per calendar day
    double weeklyWindow = 31'536'000;     // up to this age: one per week; older is dropped
    std::int64_t alwaysKeepNewest = 10;   // the newest N of every file
    double untouchableWindow = 3'600;     // younger is never removed, not even for the budget
    double preRestoreWindow = 2'592'000;  // how long what a restore overwrote is kept
    double beforeRewindWindow = 2'592'000;  // how long an unnamed before-rewind mark protects
    double replacedWindow = 2'592'000;    // how long what a replacing write displaced is kept

    enum class Granularity { none, hourly, daily, weekly };

    static const RetentionPolicy& standard();
    // The standard policy with the weekly tier ending at the horizon and the
    // daily tier no longer than the horizon.
    static RetentionPolicy forHorizon(RetentionHorizon horizon);

    // `versions`: every version of one file, in any order; `marks`: every mark of its folder.
    std::unordered_set<std::int64_t> versionsToKeep(const std::vector<StoredVersion>& versions, bool fileIsDeleted,
                                                    const std::vector<MomentMark>& marks, double now) const;
    // The versions no pass may remove, by thinning or for the budget.
    std::unordered_set<std::int64_t> protectedVersions(const std::vector<StoredVersion>& versions, bool fileIsDeleted,
                                                       const std::vector<MomentMark>& marks, double now) const;
    // "h-2025-3-1-14", "d-2025-3-1", "w-2025-9" (ISO 8601 week-numbering year
    // and week, Monday first), "n-1740839525".
    static std::string bucketKey(double capturedAt, Granularity granularity);
    // 0 up to `everythingWindow`, 1 hourly, 2 daily, 3 weekly, 4 beyond the horizon.
    int tier(double age) const;

    bool operator==(const RetentionPolicy&) const = default;

private:
    // Newest first by capturedAt; equal instants keep their given order.
    static std::vector<const StoredVersion*> newestFirst(const std::vector<StoredVersion>& versions);
    std::unordered_set<std::int64_t> protectedAmong(const std::vector<const StoredVersion*>& sorted,
                                                    bool fileIsDeleted, const std::vector<MomentMark>& marks,
                                                    double now) const;
};

}  // namespace vosklin

#include "retention/RetentionPolicy.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>

namespace vosklin {

const RetentionPolicy& RetentionPolicy::standard() {
    static const RetentionPolicy policy;
    return policy;
}

RetentionPolicy RetentionPolicy::forHorizon(RetentionHorizon horizon) {
    RetentionPolicy policy = standard();
    const double span = RetentionHorizons::span(horizon);
    policy.weeklyWindow = span;
    policy.dailyWindow = std::min(span, standard().dailyWindow);
    return policy;
}

std::vector<const StoredVersion*> RetentionPolicy::newestFirst(const std::vector<StoredVersion>& versions) {
    std::vector<const StoredVersion*> sorted;
    sorted.reserve(versions.size());
    for (const auto& version : versions) sorted.push_back(&version);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const StoredVersion* a, const StoredVersion* b) { return a->capturedAt > b->capturedAt; });
    return sorted;
}

std::unordered_set<std::int64_t> RetentionPolicy::protectedAmong(const std::vector<const StoredVersion*>& sorted,
                                                                 bool fileIsDeleted,
                                                                 const std::vector<MomentMark>& marks,
                                                                 double now) const {
    std::unordered_set<std::int64_t> kept;
    if (sorted.empty()) return kept;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const StoredVersion& version = *sorted[i];
        const double age = now - version.capturedAt;
        const bool newest = std::int64_t(i) < alwaysKeepNewest;
        const bool young = age <= untouchableWindow;
        const bool chosen = version.isStarred || version.source == CaptureSource::manual ||
                            (version.source == CaptureSource::preRestore && age <= preRestoreWindow);
        const bool lastCopy = fileIsDeleted && i == 0;
        // What a replacing write displaced stays available for a while.
        const bool displaced =
            i > 0 && sorted[i - 1]->isReplacement && now - sorted[i - 1]->capturedAt <= replacedWindow;
        if (newest || young || chosen || lastCopy || displaced) kept.insert(version.id);
    }
    for (const auto& mark : marks) {
        const bool named = mark.name || mark.kind == MomentMark::Kind::named;
        const bool recentBeforeRewind =
            mark.kind == MomentMark::Kind::beforeRewind && now - mark.at <= beforeRewindWindow;
        if (!named && !recentBeforeRewind) continue;
        // The version the mark stands on: the newest at or before it.
        auto standing = std::partition_point(sorted.begin(), sorted.end(),
                                             [&](const StoredVersion* version) { return version->capturedAt > mark.at; });
        if (standing != sorted.end()) kept.insert((*standing)->id);
    }
    return kept;
}

std::unordered_set<std::int64_t> RetentionPolicy::protectedVersions(const std::vector<StoredVersion>& versions,
                                                                    bool fileIsDeleted,
                                                                    const std::vector<MomentMark>& marks,
                                                                    double now) const {
    return protectedAmong(newestFirst(versions), fileIsDeleted, marks, now);
}

std::unordered_set<std::int64_t> RetentionPolicy::versionsToKeep(const std::vector<StoredVersion>& versions,
                                                                 bool fileIsDeleted,
                                                                 const std::vector<MomentMark>& marks,
                                                                 double now) const {
    const auto sorted = newestFirst(versions);
    auto kept = protectedAmong(sorted, fileIsDeleted, marks, now);
    std::unordered_set<std::string> usedBuckets;
    for (const StoredVersion* version : sorted) {
        const double age = now - version->capturedAt;
        Granularity granularity;
        if (age <= everythingWindow) {
            kept.insert(version->id);
            continue;
        } else if (age <= hourlyWindow) {
            granularity = Granularity::hourly;
        } else if (age <= dailyWindow) {
            granularity = Granularity::daily;
        } else if (age <= weeklyWindow) {
            granularity = Granularity::weekly;
        } else {
            continue;
        }
        // Newest first, so each bucket keeps its newest version; a protected
        // version kept above does not use its bucket up.
        if (usedBuckets.insert(bucketKey(version->capturedAt, granularity)).second) kept.insert(version->id);
    }
    return kept;
}

std::string RetentionPolicy::bucketKey(double capturedAt, Granularity granularity) {
    const std::time_t seconds = std::time_t(std::floor(capturedAt));
    if (granularity == Granularity::none) return "n-" + std::to_string(seconds);
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    const std::string year = std::to_string(parts.tm_year + 1900);
    const std::string month = std::to_string(parts.tm_mon + 1);
    const std::string day = std::to_string(parts.tm_mday);
    switch (granularity) {
        case Granularity::hourly: return "h-" + year + "-" + month + "-" + day + "-" + std::to_string(parts.tm_hour);
        case Granularity::daily: return "d-" + year + "-" + month + "-" + day;
        case Granularity::weekly: {
            char weekYear[16], week[8];
            std::strftime(weekYear, sizeof weekYear, "%G", &parts);
            std::strftime(week, sizeof week, "%V", &parts);
            return "w-" + std::string(weekYear) + "-" + std::to_string(std::atoi(week));
        }
        case Granularity::none: break;
    }
    return "n-" + std::to_string(seconds);
}

int RetentionPolicy::tier(double age) const {
    if (age <= everythingWindow) return 0;
    if (age <= hourlyWindow) return 1;
    if (age <= dailyWindow) return 2;
    if (age <= weeklyWindow) return 3;
    return 4;
}

}  // namespace vosklin

#include "retention/HistoryEraser.h"

#include <algorithm>
#include <limits>
#include <set>
#include <unordered_set>

#include "history/MomentClustering.h"

namespace vosklin {

namespace {
const std::string notStaged = " AND id NOT IN (SELECT id FROM staged_ids)";
}

HistoryEraser::HistoryEraser(VersionCatalog& catalog, VersionStoreLayout& layout, Logger& logger)
    : catalog_(catalog), removal_(layout), logger_(logger) {}

std::vector<std::int64_t> HistoryEraser::selectedIDs(const std::vector<Selection>& selections) {
    std::vector<std::int64_t> ids;
    for (const auto& selection : selections)
        for (const auto& version : selection.versions) ids.push_back(version.id);
    return ids;
}

std::vector<HistoryEraser::NamedSpan> HistoryEraser::namedSpans(const std::string& folderID) {
    std::vector<NamedSpan> spans;
    const auto marks = catalog_.marks(folderID);
    std::unordered_set<double> fences;
    for (const auto& mark : marks)
        if (mark.kind != MomentMark::Kind::named) fences.insert(mark.at);
    std::vector<double> instants;
    for (const auto& mark : marks) {
        if (!mark.name || mark.name->empty()) continue;
        if (instants.empty()) instants = catalog_.changeInstants(folderID);
        spans.push_back({mark, MomentClustering::momentFloor(instants, fences, mark.at)});
    }
    return spans;
}

std::vector<double> HistoryEraser::vanishingEventInstants(const std::string& folderID,
                                                         const std::vector<Selection>& selections) {
    std::unordered_set<std::int64_t> erasedFiles;
    for (const auto& selection : selections)
        if (!selection.versions.empty() && std::int64_t(selection.versions.size()) >= selection.fileVersionCount)
            erasedFiles.insert(selection.file.id);
    std::vector<double> instants;
    if (erasedFiles.empty()) return instants;
    for (const auto& event : catalog_.eventsSince(folderID, std::numeric_limits<double>::lowest()))
        if (event.kind != FileEventKind::appeared && erasedFiles.count(event.fileID)) instants.push_back(event.at);
    return instants;
}

bool HistoryEraser::touches(const NamedSpan& span, const std::vector<StoredVersion>& versions,
                            const std::vector<double>& vanishingEvents) {
    return std::any_of(versions.begin(), versions.end(), [&](const auto& v) { return span.holds(v.capturedAt); }) ||
           std::any_of(vanishingEvents.begin(), vanishingEvents.end(), [&](double at) { return span.holds(at); });
}

HistoryEraser::Preview HistoryEraser::preview(const std::string& folderID, const std::vector<Selection>& selections) {
    Preview preview;
    std::vector<StoredVersion> all;
    for (const auto& selection : selections) {
        const auto& versions = selection.versions;
        all.insert(all.end(), versions.begin(), versions.end());
        preview.includesStarred |= std::any_of(versions.begin(), versions.end(), [](const auto& v) { return v.isStarred; });
        preview.includesUndoCopy |= std::any_of(versions.begin(), versions.end(), [](const auto& v) {
            return v.source == CaptureSource::preRestore || v.source == CaptureSource::preRewind;
        });
        if (!versions.empty() && std::int64_t(versions.size()) >= selection.fileVersionCount) {
            if (selection.file.deletedAt) preview.erasesLastCopyOfDeletedFile = true;
            else preview.erasesWholeLiveFile = true;
        }
    }
    preview.versionCount = std::int64_t(all.size());
    preview.reclaimableBytes = removal_.reclaimableBytes(all);

    const auto spans = namedSpans(folderID);
    if (spans.empty()) return preview;
    const auto vanishingEvents = vanishingEventInstants(folderID, selections);
    catalog_.stageVersionIDs(selectedIDs(selections));
    std::set<std::string> listed;
    for (const auto& span : spans) {
        const std::string& name = *span.mark.name;
        if (listed.count(name)) continue;
        if (!touches(span, all, vanishingEvents)) continue;
        const auto goingEvents = std::count_if(vanishingEvents.begin(), vanishingEvents.end(),
                                               [&](double at) { return span.holds(at); });
        if (catalog_.countChanges(folderID, span.floor, span.mark.at, notStaged) == goingEvents) {
            listed.insert(name);
            preview.vanishingMomentNames.push_back(name);
        }
    }
    return preview;
}

std::int64_t HistoryEraser::erase(const std::string& folderID, const std::vector<Selection>& selections) {
    std::vector<StoredVersion> all;
    for (const auto& selection : selections) all.insert(all.end(), selection.versions.begin(), selection.versions.end());
    if (all.empty()) return 0;
    const auto spans = namedSpans(folderID);
    const auto vanishingEvents = vanishingEventInstants(folderID, selections);
    catalog_.deleteVersions(selectedIDs(selections));
    catalog_.makeDurable();  // the rows stay gone even after a power cut, before their payloads go
    removal_.remove(all);
    logger_.info("Deleted " + std::to_string(all.size()) + " versions by hand");

    for (const auto& span : spans) {
        if (!touches(span, all, vanishingEvents)) continue;
        const auto& mark = span.mark;
        if (catalog_.anythingAt(folderID, mark.at)) continue;
        // The name stays with what is left of its moment, if anything is; only a
        // moment left with nothing loses its name (the preview warned of that).
        if (mark.kind == MomentMark::Kind::named)
            if (auto remaining = catalog_.newestChange(folderID, span.floor, mark.at)) {
                catalog_.moveMark(mark, *remaining);
                continue;
            }
        catalog_.deleteMark(folderID, mark.at);
        logger_.info("A named moment lost everything it stood on and was removed");
    }
    return std::int64_t(all.size());
}

}  // namespace vosklin

#include "restore/RewindService.h"

#include "restore/JournalFiles.h"

#include <algorithm>
#include <unordered_map>

#include "bridge/FolderAccess.h"
#include "capture/FolderWalker.h"
#include "platform/DisplayName.h"
#include "platform/ErrorText.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/Uuid.h"
#include "store/PayloadDigest.h"
#include "store/StoredPayload.h"

namespace vosklin {

std::string RewindError::textKey() const {
    switch (kind_) {
        case Kind::blockedBySafetyPolicy: return "rewind.error.blocked";
        case Kind::payloadOutsideStore: return "rewind.error.payloadOutsideStore";
        case Kind::payloadMissing: return "rewind.error.payloadGone";
        case Kind::nothingToDo: return "rewind.error.nothingToDo";
        case Kind::folderUnreadable: return "rewind.error.folderUnreadable";
        case Kind::captureFailed: return "rewind.error.captureFailed";
    }
    return "rewind.error.blocked";
}

RewindService::RewindService(RestoreService::Collaborators collaborators, ExcludeRules excludes, PackageKinds packages)
    : c_(collaborators), excludes_(std::move(excludes)), packages_(std::move(packages)) {}

RewindPlan RewindService::plan(const WatchedFolder& folder, double target) {
    auto reach = FolderAccess(c_.fileSystem).check(folder);
    if (!reach.reachable) throw RewindError(RewindError::Kind::folderUnreadable, DisplayName::of(folder.path) + " " + reach.reason);
    const auto states = c_.catalog.stateAt(folder.id, target);
    std::unordered_map<std::string, TrackedFile> rows;
    for (auto& file : c_.catalog.files(folder.id, true)) rows.emplace(file.relativePath, std::move(file));
    const auto newest = c_.catalog.newestVersionSummaries(folder.id);
    PayloadDigest digests(c_.fileSystem);
    std::vector<RewindPlan::LiveFile> live;
    const FolderWalk walk = FolderWalker(c_.fileSystem, excludes_, packages_).walk(folder.path);
    // A plan over a folder partly unseen would bring back what is still there, or remove what is not.
    if (!walk.unreadable.empty())
        throw RewindError(RewindError::Kind::folderUnreadable,
                          DisplayName::of(joinPath(folder.path, walk.unreadable.front())) + " could not be read");
    for (const auto& unit : walk.units) {
        RewindPlan::LiveFile file{unit.relativePath, unit.size, std::nullopt, unit.modifiedAt, unit.isPackage};
        // The catalog's digest holds while the file is what its newest version saw: same
        // inode and size, not modified since. Otherwise the bytes on disk decide.
        auto row = rows.find(unit.relativePath);
        if (row != rows.end() && row->second.lastDigest && row->second.inode == unit.inode) {
            auto summary = newest.find(row->second.id);
            if (summary != newest.end() && summary->second.logicalBytes == unit.size &&
                unit.modifiedAt <= summary->second.capturedAt)
                file.digest = row->second.lastDigest;
        }
        try {
            if (!file.digest)
                file.digest = unit.isPackage ? digests.packageDigest(unit.path) : digests.fileDigest(unit.path);
        } catch (const FileSystemError&) {
            // Unreadable now: no digest, so it is reverted rather than trusted.
        }
        live.push_back(std::move(file));
    }
    return RewindPlan::make(states, live, target);
}

namespace {

// Where a step's scratch item is, relative to the folder: beside its destination.
std::string scratchRelative(const std::string& relativePath, const std::string& scratchName) {
    const std::string parent = parentPath(relativePath);
    return joinPath(parent == "." ? "" : parent, scratchName);
}

// Whether what stands at a step's path can be kept as a version before it is
// replaced or removed: a file, or a folder where a package goes. A folder
// where a file goes (with contents no version holds), a link or a special
// file cannot, so that path is left alone.
bool canBeKept(const FileStatus& standing, const RewindPlan::Step& step) {
    return standing.isRegular() || (standing.isDirectory() && step.isPackage);
}

std::string inTheWay(const std::string& destination, const FileStatus& standing) {
    const char* what = standing.isDirectory() ? "a folder" : standing.isSymlink() ? "a symbolic link" : "a special file";
    return DisplayName::of(destination) + ": " + what + " stands there; it is left as it is";
}

}  // namespace

RewindReport RewindService::rewind(const WatchedFolder& folder, const RewindPlan& plan) {
    std::lock_guard guard(lock_);
    using Action = RewindPlan::Step::Action;
    if (plan.steps.empty()) throw RewindError(RewindError::Kind::nothingToDo, "The folder is already as it was then");

    // Everything that can refuse, before anything is written.
    std::vector<ResolvedStep> resolved;
    RestorePathPolicy policy(c_.fileSystem);
    const std::vector<std::string> granted = {folder.path};
    for (const auto& step : plan.steps) {
        ResolvedStep item{&step, joinPath(folder.path, step.relativePath), "", "", std::nullopt};
        if (step.action == Action::removeAdded) {
            item.payload = joinPath(c_.layout.versionsDirectory(), "none");  // only the destination is at stake
        } else {
            auto version = step.versionID ? c_.catalog.version(*step.versionID) : std::nullopt;
            const auto gone = [&] {
                return RewindError(RewindError::Kind::payloadMissing,
                                   "The stored copy of " + DisplayName::of(step.relativePath) + " is gone");
            };
            if (!version) throw gone();
            item.stored.emplace(c_.fileSystem, c_.layout, *version, step.isPackage);
            // What the catalog says of the payload is checked first, so a refusal names the payload.
            try {
                item.payload = item.stored->locate();
            } catch (const StoredPayloadError& error) {
                if (error.kind() == StoredPayloadError::Kind::missing) throw gone();
                throw RewindError(RewindError::Kind::payloadOutsideStore, error.what());
            }
            item.scratchName = SafePlacement::makeScratchName();
        }
        if (auto violation = policy.check(item.payload, item.destination, c_.layout.root(), granted))
            throw RewindError(RewindError::Kind::blockedBySafetyPolicy,
                              "Refused to write " + DisplayName::of(item.destination) + " (" +
                                  std::string(toString(*violation)) + ")");
        resolved.push_back(std::move(item));
    }

    RewindReport report;
    report.target = plan.target;
    report.beforeRewindAt = c_.clock.now();

    // Whatever stands at a path the rewind writes goes on the timeline first, so the
    // rewind can be undone; also where the plan saw nothing (a name excluded or transient
    // since it was captured is not walked). What cannot be kept is not touched.
    std::vector<ResolvedStep> writable;
    std::vector<std::pair<const RewindPlan::Step*, std::string>> blocked;
    std::vector<CaptureRequest> before;
    const std::string beforeBatch = makeUuid();
    for (auto& item : resolved) {
        auto standing = c_.fileSystem.linkStatus(item.destination);
        if (standing && !canBeKept(*standing, *item.step)) {
            blocked.emplace_back(item.step, inTheWay(item.destination, *standing));
            continue;
        }
        if (standing)
            before.push_back({folder.id, folder.path, item.destination, standing->isDirectory(),
                              CaptureSource::preRewind, beforeBatch});
        writable.push_back(std::move(item));
    }
    resolved = std::move(writable);
    for (const auto& result : c_.capture.captureBatch(before, [&] { return report.beforeRewindAt; })) {
        const bool gone = result.outcome && result.outcome->kind == CaptureOutcome::Kind::skipped &&
                          result.outcome->skipReason == CaptureSkipReason::missing;
        if (gone || (result.outcome && result.outcome->kind != CaptureOutcome::Kind::skipped)) continue;
        // Not kept, so not to be overwritten: nothing is written at all.
        const std::string why = result.error ? describe(result.error)
                                             : "skipped as " + std::string(toString(result.outcome->skipReason));
        c_.logger.error("Capture failed: " + why);
        throw RewindError(RewindError::Kind::captureFailed, DisplayName::of(result.request.unit) + ": " + why);
    }
    for (const auto& [step, why] : blocked) failPath(report, *step, why);
    // A file gone from the folder that the catalog still thinks present (deleted while nothing
    // recorded) is gone at this instant too: undoing the rewind must leave it gone.
    std::vector<std::int64_t> goneBefore;
    for (const auto& item : resolved) {
        if (item.step->action != Action::restoreDeleted || !item.step->fileID) continue;
        auto row = c_.catalog.file(*item.step->fileID);
        if (row && !row->deletedAt && !c_.fileSystem.linkStatus(joinPath(folder.path, row->relativePath)))
            goneBefore.push_back(row->id);
    }
    c_.catalog.markDeletedMany(goneBefore, report.beforeRewindAt);
    c_.catalog.recordMark({folder.id, report.beforeRewindAt, std::nullopt, MomentMark::Kind::beforeRewind, plan.target});

    RewindJournal journal;
    journal.id = makeUuid();
    journal.startedAt = report.beforeRewindAt;
    journal.folderID = folder.id;
    journal.folderRoot = folder.path;
    journal.target = plan.target;
    journal.beforeRewindAt = report.beforeRewindAt;
    for (const auto& item : resolved)
        journal.entries.push_back(
            {std::string(toString(item.step->action)), item.step->relativePath, item.destination,
             item.scratchName.empty()
                 ? std::nullopt
                 : std::optional<std::string>(joinPath(parentPath(item.destination), item.scratchName)),
             item.stored ? std::optional<std::string>(item.stored->digest()) : std::nullopt});
    journal.write(c_.fileSystem, c_.layout.journalDirectory());

    // A failed write's scratch item is removed at the end, or on the way out if anything
    // throws (the journal, left behind then, names them all for recovery).
    struct ScratchSweep {
        RewindService& service;
        const WatchedFolder& folder;
        const std::vector<ResolvedStep>& items;
        bool done = false;
        ~ScratchSweep() {
            try {
                if (!done) service.removeScratch(folder, items);
            } catch (...) {
                // Already on the way out with another error; recovery has the journal.
            }
        }
    } sweep{*this, folder, resolved, false};

    std::vector<std::string> destinations;
    for (const auto& item : resolved) destinations.push_back(item.destination);
    if (beforeWrite) beforeWrite(destinations);
    SafePlacement placement(c_.fileSystem, c_.cloner);
    std::vector<CaptureRequest> written;
    std::vector<std::string> removed;
    const std::string afterBatch = makeUuid();
    auto failed = [&](const RewindPlan::Step& step, const std::exception& error) {
        failPath(report, step, error.what());
    };
    // Still something that can be kept, just before it is replaced or removed?
    auto stillKeepable = [&](const ResolvedStep& item) {
        auto standing = c_.fileSystem.linkStatus(item.destination);
        if (!standing || canBeKept(*standing, *item.step)) return true;
        failPath(report, *item.step, inTheWay(item.destination, *standing));
        return false;
    };
    // Every copy first, then one sync, then every swap: each file is wholly old or wholly new
    // throughout, for two syncs of the file system instead of a few per file.
    std::vector<const ResolvedStep*> staged;
    for (const auto& item : resolved) {
        if (item.step->action == Action::removeAdded) continue;
        try {
            placement.stage(folder.path, item.step->relativePath, item.payload, item.scratchName,
                            [&](const std::string& scratch) { item.stored->verifyCopy(scratch); });
            staged.push_back(&item);
        } catch (const std::exception& error) {
            failed(*item.step, error);
        }
    }
    try {
        if (!staged.empty()) c_.fileSystem.syncFileSystem(folder.path);
    } catch (const std::exception& error) {
        // Not durable, so not swapped in: the folder stays as it is, the copies go with the sweep.
        for (const ResolvedStep* item : staged) failed(*item->step, error);
        staged.clear();
    }
    for (const auto& item : resolved) {
        const auto& step = *item.step;
        try {
            if (step.action == Action::removeAdded) {
                if (!stillKeepable(item)) continue;
                placement.remove(folder.path, step.relativePath, false);
                removed.push_back(step.relativePath);
                ++report.removedCount;
            } else if (std::find(staged.begin(), staged.end(), &item) != staged.end()) {
                if (!stillKeepable(item)) continue;
                // Swapped in is written, even when the old content stays behind under the
                // scratch name: the sweep below (or recovery) takes it away.
                if (auto left = placement.commit(folder.path, step.relativePath, item.scratchName))
                    c_.logger.error("A rewind could not remove its scratch item: " + std::string(left->what()));
                written.push_back({folder.id, folder.path, item.destination, step.isPackage, CaptureSource::rewound,
                                   afterBatch});
                ++(step.action == Action::revert ? report.revertedCount : report.restoredCount);
            }
        } catch (const std::exception& error) {
            failed(step, error);
        }
    }
    try {
        c_.fileSystem.syncFileSystem(folder.path);
    } catch (const std::exception& error) {
        c_.logger.error("Rewind could not write one path: " + std::string(error.what()));
    }
    sweep.done = true;
    const bool scratchRemoved = removeScratch(folder, resolved);

    // What was written goes on the timeline as the rewind's own moment.
    const double rewoundAt = std::max(c_.clock.now(), report.beforeRewindAt + 0.001);
    for (const auto& result : c_.capture.captureBatch(written, [&] { return rewoundAt; }))
        if (result.error) c_.logger.error("Capture failed: " + describe(result.error));
    std::vector<std::int64_t> gone;
    for (const auto& path : removed)
        for (const auto& file : c_.catalog.liveFilesAtOrBelow(folder.id, path)) gone.push_back(file.id);
    c_.catalog.markDeletedMany(gone, rewoundAt);
    c_.catalog.recordMark({folder.id, rewoundAt, std::nullopt, MomentMark::Kind::rewind, plan.target});

    // Folders left empty by removals go too, up to (not including) the watched folder.
    std::int64_t swept = 0;
    for (const auto& path : removed) {
        for (std::string parent = parentPath(path); parent != "." && !parent.empty(); parent = parentPath(parent)) {
            const std::string directory = joinPath(folder.path, parent);
            try {
                auto status = c_.fileSystem.linkStatus(directory);
                if (!status || !status->isDirectory() || !c_.fileSystem.listDirectory(directory).empty()) break;
                c_.fileSystem.removeDirectory(directory);
                ++swept;
            } catch (const std::exception& error) {
                c_.logger.error("A rewind could not remove an emptied folder: " + std::string(error.what()));
                break;
            }
        }
    }
    c_.logger.info("Rewind swept " + std::to_string(swept) + " emptied folders");

    RewindManifest manifest{RewindJournal::formatVersion, journal.id,           c_.clock.now(),      folder.id,
                            plan.target,                  report.beforeRewindAt, report.revertedCount, report.restoredCount,
                            report.removedCount};
    manifest.write(c_.fileSystem, c_.layout.journalDirectory());
    // A scratch item still in the folder stays named by the journal, for recovery to remove.
    if (scratchRemoved) c_.fileSystem.removeFile(joinPath(c_.layout.journalDirectory(), journal.fileName()));
    return report;
}

std::optional<double> RewindService::undoTarget(const std::vector<MomentMark>& marks) {
    using Kind = MomentMark::Kind;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const MomentMark& newest = marks[i];
        if (!newest.targetAt) continue;  // a plain name: no rewind's
        // A before-rewind mark with no rewind mark after it: that rewind never finished.
        if (newest.kind == Kind::beforeRewind) return newest.at;
        for (std::size_t j = i + 1; j < marks.size(); ++j) {
            if (marks[j].targetAt != newest.targetAt) continue;
            if (marks[j].kind != Kind::rewind) return marks[j].at;
            break;  // an earlier rewind to the same instant: its before-rewind moment is not this one's
        }
        // Named, with no partner: the named before-rewind mark of a rewind that never finished.
        if (newest.kind == Kind::named) return newest.at;
        return std::nullopt;
    }
    return std::nullopt;
}

void RewindService::failPath(RewindReport& report, const RewindPlan::Step& step, const std::string& why) {
    c_.logger.error("Rewind could not write one path: " + why);
    report.failedPaths.push_back(step.relativePath);
}

bool RewindService::removeScratch(const WatchedFolder& folder, const std::vector<ResolvedStep>& resolved) {
    SafePlacement placement(c_.fileSystem, c_.cloner);
    bool removedAll = true;
    for (const auto& item : resolved) {
        if (item.scratchName.empty()) continue;
        const std::string relative = scratchRelative(item.step->relativePath, item.scratchName);
        try {
            if (!c_.fileSystem.linkStatus(joinPath(folder.path, relative))) continue;  // never made, or gone
            placement.remove(folder.path, relative, false);
        } catch (const std::exception& error) {
            c_.logger.error("A rewind could not remove its scratch item: " + std::string(error.what()));
            removedAll = false;
        }
    }
    return removedAll;
}

bool RewindService::isWrittenAs(const std::string& path, const FileStatus& standing, const std::string& digest) {
    if (!standing.isRegular() && !standing.isDirectory()) return false;
    try {
        PayloadDigest digests(c_.fileSystem);
        return (standing.isDirectory() ? digests.packageDigest(path) : digests.fileDigest(path)) == digest;
    } catch (const FileSystemError& error) {
        c_.logger.error("A rewound path could not be read back: " + std::string(error.what()));
        return false;
    }
}

std::vector<RewindJournal::Interrupted> RewindService::recoverInterrupted() {
    std::lock_guard guard(lock_);
    std::vector<RewindJournal::Interrupted> found;
    const std::string directory = c_.layout.journalDirectory();
    for (auto& [path, decoded] : readJournals<RewindJournal>(c_.fileSystem, c_.logger, directory, "rewind-")) {
        RewindJournal::Interrupted interrupted;
        interrupted.journal = std::move(decoded);
        const auto& journal = interrupted.journal;
        // Every scratch item the journal names goes, made or not, and also when the rewind
        // finished: one it could not remove is left named here.
        bool scratchRemoved = true;
        for (const auto& item : journal.entries) {
            if (!item.scratchPath || !lastComponent(*item.scratchPath).starts_with(SafePlacement::scratchPrefix))
                continue;
            try {
                if (!c_.fileSystem.linkStatus(*item.scratchPath)) continue;
                removeAll(c_.fileSystem, *item.scratchPath);
                ++interrupted.sweptScratch;
            } catch (const FileSystemError& error) {
                c_.logger.error("A rewind's scratch item could not be removed: " + std::string(error.what()));
                scratchRemoved = false;
            }
        }
        const bool finished = c_.fileSystem.linkStatus(joinPath(directory, "rewound-" + journal.id + ".json")).has_value();
        if (!finished)
            for (const auto& item : journal.entries) {
                const auto standing = c_.fileSystem.linkStatus(item.destinationPath);
                if (item.action == "removeAdded") {
                    if (!standing) ++interrupted.completedEntries;
                } else if (!item.digest) {
                    ++interrupted.uncheckedEntries;
                } else if (standing && isWrittenAs(item.destinationPath, *standing, *item.digest)) {
                    // Present is not enough: a file to be reverted is there before its swap too.
                    ++interrupted.completedEntries;
                }
            }
        if (scratchRemoved) c_.fileSystem.removeFile(path);
        if (!finished) found.push_back(interrupted);
    }
    return found;
}

}  // namespace vosklin

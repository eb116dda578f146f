#include "restore/RestoreService.h"

#include "restore/JournalFiles.h"

#include <algorithm>

#include "bridge/FolderAccess.h"
#include "platform/DiskFull.h"
#include "platform/DisplayName.h"
#include "platform/ErrorText.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"
#include "platform/Uuid.h"
#include "store/CloneError.h"
#include "store/StoredPayload.h"

namespace vosklin {

std::string RestoreError::textKey() const {
    switch (kind_) {
        case Kind::blockedBySafetyPolicy:
            // Refused for where its bytes would come from, not where they would go.
            if (violation_ == RestorePathPolicy::Violation::payloadOutsideStore)
                return "history.restore.error.payloadOutsideStore";
            return "history.restore.error.blocked";
        case Kind::failed: return "history.restore.error.failed";
        case Kind::versionNotFound:
        case Kind::fileNotFound: return "history.restore.error.missing";
        case Kind::payloadMissing: return "history.restore.error.payloadGone";
        case Kind::noPrevious: return "history.restore.error.noPrevious %@";
    }
    return "history.restore.error.failed";
}

RestoreService::RestoreService(Collaborators collaborators) : c_(collaborators) {}

std::string RestoreService::copyName(const std::string& name, int attempt, const std::string& word) {
    const std::string extension = pathExtension(name);
    const std::string stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    std::string bracket = word;
    if (attempt > 999) bracket += " " + makeUuid();
    else if (attempt > 1) bracket += " " + std::to_string(attempt);
    return stem + " (" + bracket + ")" + (extension.empty() ? "" : "." + extension);
}

RestoreReport RestoreService::restore(std::int64_t versionID, RestoreMode mode) {
    std::lock_guard guard(lock_);
    using Kind = RestoreError::Kind;
    auto version = c_.catalog.version(versionID);
    if (!version) throw RestoreError(Kind::versionNotFound, "There is no version " + std::to_string(versionID));
    auto file = c_.catalog.file(version->fileID);
    if (!file) throw RestoreError(Kind::fileNotFound, "The file of version " + std::to_string(versionID) + " is gone");
    WatchedFolder folder;
    try {
        folder = c_.folders.require(file->folderID);
    } catch (const std::exception&) {
        throw RestoreError(Kind::failed, "The folder of this version is no longer watched", ENOENT);
    }
    auto reach = FolderAccess(c_.fileSystem).check(folder);
    if (!reach.reachable) throw RestoreError(Kind::failed, DisplayName::of(folder.path) + " " + reach.reason, ENOENT);
    // What the catalog says of the payload is checked first, so a refusal names the payload.
    const StoredPayload stored(c_.fileSystem, c_.layout, *version, file->isPackage);
    std::string payload;
    try {
        payload = stored.locate();
    } catch (const StoredPayloadError& error) {
        if (error.kind() == StoredPayloadError::Kind::missing)
            throw RestoreError(Kind::payloadMissing,
                               "The stored copy of version " + std::to_string(versionID) + " is gone");
        throw RestoreError(Kind::blockedBySafetyPolicy, error.what(), 0,
                           RestorePathPolicy::Violation::payloadOutsideStore);
    }

    // Where it goes.
    std::string relative = file->relativePath;
    if (mode == RestoreMode::copyBeside) {
        const std::string parent = parentPath(relative) == "." ? "" : parentPath(relative);
        const std::string word = StringTable::text("restore.copy.suffix");
        for (int attempt = 1;; ++attempt) {
            std::string candidate = joinPath(parent, copyName(lastComponent(relative), attempt, word));
            if (!c_.fileSystem.linkStatus(joinPath(folder.path, candidate)) || attempt > 999) {
                relative = candidate;
                break;
            }
        }
    }
    const std::string destination = joinPath(folder.path, relative);
    std::vector<std::string> granted;
    for (const auto& watched : c_.folders.folders())
        if (FolderAccess(c_.fileSystem).check(watched).reachable) granted.push_back(watched.path);
    if (auto violation = RestorePathPolicy(c_.fileSystem).check(payload, destination, c_.layout.root(), granted))
        throw RestoreError(Kind::blockedBySafetyPolicy,
                           "Refused to write " + DisplayName::of(destination) + " (" + std::string(toString(*violation)) +
                               ")",
                           0, *violation);

    RestoreJournal journal;
    journal.id = makeUuid();
    journal.startedAt = c_.clock.now();
    journal.mode = mode;
    journal.payloadPath = payload;
    journal.destinationPath = destination;
    try {
        // What an in-place restore overwrites stays in history.
        if (mode == RestoreMode::replaceInPlace && c_.fileSystem.linkStatus(destination)) {
            auto saved = c_.capture.capture(
                {folder.id, folder.path, destination, file->isPackage, CaptureSource::preRestore, std::nullopt},
                c_.clock.now());
            if (saved.kind == CaptureOutcome::Kind::stored) journal.preRestoreVersionID = saved.version.id;
            else if (saved.kind == CaptureOutcome::Kind::unchanged) journal.preRestoreVersionID = saved.unchangedVersionID;
        }
        journal.write(c_.fileSystem, c_.layout.journalDirectory());
        if (beforeWrite) beforeWrite({destination});
        // The copy is checked against the version's digest before it takes the file's place.
        SafePlacement(c_.fileSystem, c_.cloner)
            .place(
                folder.path, relative, payload,
                [&](const std::string& scratch) {
                    journal.scratchPath = scratch;
                    journal.write(c_.fileSystem, c_.layout.journalDirectory());
                },
                "", [&](const std::string& scratch) { stored.verifyCopy(scratch); });
    } catch (const StoredPayloadError& error) {
        throw RestoreError(Kind::failed, error.what(), EIO);
    } catch (const FileSystemError& error) {
        if (isDiskFullError(error.errorNumber()))
            throw RestoreError(Kind::failed, diskFullMessage(error.path()), error.errorNumber());
        throw RestoreError(Kind::failed, std::string("The restore failed: ") + error.what(), error.errorNumber());
    } catch (const CloneError& error) {
        throw RestoreError(Kind::failed, std::string("The restore failed: ") + error.what(), error.code());
    }

    RestoreManifest manifest{RestoreJournal::formatVersion, journal.id, c_.clock.now(), mode, payload, destination,
                             journal.preRestoreVersionID, std::nullopt};
    manifest.write(c_.fileSystem, c_.layout.journalDirectory());
    c_.fileSystem.removeFile(joinPath(c_.layout.journalDirectory(), journal.fileName()));
    c_.logger.info("Restored a version in " + std::string(toString(mode)) + " mode");
    return {mode, destination, journal.preRestoreVersionID};
}

RestoreReport RestoreService::restorePrevious(const std::string& folderID, const std::string& relativePath) {
    auto file = c_.catalog.fileAtPath(folderID, relativePath);
    std::vector<StoredVersion> versions;
    if (file) versions = c_.catalog.versionsOfFile(file->id, 2);
    if (versions.size() < 2)
        throw RestoreError(RestoreError::Kind::noPrevious,
                           StringTable::text("history.restore.error.noPrevious %@",
                                             {DisplayName::of(lastComponent(relativePath))}));
    return restore(versions[1].id, RestoreMode::replaceInPlace);
}

std::vector<RestoreJournal::Interrupted> RestoreService::recoverInterrupted() {
    std::lock_guard guard(lock_);
    std::vector<RestoreJournal::Interrupted> found;
    const std::string directory = c_.layout.journalDirectory();
    for (auto& [path, decoded] : readJournals<RestoreJournal>(c_.fileSystem, c_.logger, directory, "restore-")) {
        RestoreJournal::Interrupted interrupted;
        interrupted.journal = std::move(decoded);
        const auto& journal = interrupted.journal;
        if (journal.scratchPath && lastComponent(*journal.scratchPath).starts_with(SafePlacement::scratchPrefix) &&
            c_.fileSystem.linkStatus(*journal.scratchPath)) {
            removeAll(c_.fileSystem, *journal.scratchPath);
            interrupted.sweptScratch = true;
        }
        interrupted.destinationExists = c_.fileSystem.linkStatus(journal.destinationPath).has_value();
        RestoreManifest manifest{RestoreJournal::formatVersion, journal.id, c_.clock.now(), journal.mode,
                                 journal.payloadPath, journal.destinationPath, journal.preRestoreVersionID,
                                 c_.clock.now()};
        manifest.write(c_.fileSystem, directory);
        c_.fileSystem.removeFile(path);
        found.push_back(interrupted);
    }
    if (!found.empty())
        c_.logger.info("Found " + std::to_string(found.size()) + " interrupted restore(s) from a previous run");
    return found;
}

}  // namespace vosklin

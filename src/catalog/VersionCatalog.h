#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "catalog/ChangeRow.h"
#include "catalog/ContentRecords.h"
#include "catalog/Database.h"
#include "catalog/FileEventRow.h"
#include "catalog/FileStateAt.h"
#include "catalog/MomentMark.h"
#include "catalog/NewVersion.h"
#include "catalog/PlacedVersion.h"
#include "catalog/RecoveredHistory.h"
#include "catalog/RecentFile.h"
#include "catalog/StoredVersion.h"
#include "catalog/TrackedFile.h"
#include "catalog/UnreadableItems.h"
#include "catalog/WatchState.h"

namespace vosklin {

// A file a capture is about to write a version of.
struct FileToTrack {
    std::string folderID;
    std::string relativePath;
    std::optional<std::uint64_t> inode;
    bool isPackage = false;
    std::optional<std::string> fileExtension;
    double at = 0;  // the capture instant: an "appeared" event takes it
};

struct NewestVersionSummary {
    double capturedAt = 0;
    std::int64_t logicalBytes = 0;
};

// Counts over the whole catalog, for status reports.
struct CatalogTotals {
    std::int64_t files = 0;
    std::int64_t liveFiles = 0;
    std::int64_t versions = 0;
    std::int64_t logicalBytes = 0;
};

// A path a file of a folder had at some time (its name now, an old name, the
// path a version was taken under), for finding a file by any of its names.
struct HeldPath {
    std::string relativePath;
    std::int64_t fileID = 0;
    bool isDeleted = false;  // the file is deleted now
    std::int64_t versionCount = 0;  // of the file, under any of its names

    bool operator==(const HeldPath&) const = default;
};

// The changes of one local calendar day (versions plus deleted/renamed events).
struct ChangeDay {
    std::string date;  // "YYYY-MM-DD", in the process's time zone
    std::int64_t changes = 0;
    double first = 0;
    double last = 0;
};

// The one owner of the catalog database: every other part reads and writes
// history only through these operations.
//
// Contract: opening creates the file if needed and migrates it to the current
// schema (CatalogError::storeIsNewerThanTheApp for a newer store, which is left
// untouched). Operations are serialised: each takes the catalog's lock, so the
// connection runs one statement sequence at a time whatever thread calls.
// Multi-statement writes run in one "BEGIN IMMEDIATE" transaction and roll back
// on failure. SQLite failures are thrown as DatabaseError. Ties on time are
// broken by the newer row id.
class VersionCatalog {
public:
    // Read-only (`Database::Access::readOnly`): an existing catalog, not migrated
    // (schemaVersion() tells whether it is current), refused when newer than this
    // build; its writes fail with DatabaseError. It reads a catalog on a full disk.
    explicit VersionCatalog(const std::string& databasePath,
                            Database::Access access = Database::Access::readWrite);

    std::int32_t schemaVersion();

    // --- Files ---------------------------------------------------------------
    TrackedFile upsertFile(const std::string& folderID, const std::string& relativePath,
                           std::optional<std::uint64_t> inode, bool isPackage,
                           const std::optional<std::string>& fileExtension);
    // The row a capture writes under: in one transaction, an "appeared" event at
    // `at` when the path was tombstoned, then the upsert that clears the tombstone.
    TrackedFile trackFileForCapture(const std::string& folderID, const std::string& relativePath,
                                    std::optional<std::uint64_t> inode, bool isPackage,
                                    const std::optional<std::string>& fileExtension, double at);
    // trackFileForCapture for several files in one transaction, in order.
    std::vector<TrackedFile> trackFilesForCapture(const std::vector<FileToTrack>& files);
    std::optional<TrackedFile> file(std::int64_t id);
    // As file(), but CatalogError::fileNotFound when there is no row.
    TrackedFile requireFile(std::int64_t id);
    std::optional<TrackedFile> fileAtPath(const std::string& folderID, const std::string& relativePath);
    std::optional<TrackedFile> liveFileWithInode(const std::string& folderID, std::uint64_t inode);
    std::vector<TrackedFile> files(const std::string& folderID, bool liveOnly);
    std::vector<TrackedFile> allFiles();
    void setLastDigest(std::int64_t fileID, const std::string& digest);
    void recordRename(std::int64_t fileID, const std::string& newPath, const std::optional<std::string>& newExtension,
                      double at);
    void markDeleted(std::int64_t fileID, double at);
    // Tombstones several files in one transaction ("deleted" event each).
    void markDeletedMany(const std::vector<std::int64_t>& fileIDs, double at);
    // The live files at `relativePath` or below it (a deleted or moved folder).
    std::vector<TrackedFile> liveFilesAtOrBelow(const std::string& folderID, const std::string& relativePath);
    // A folder moved inside its watched folder: every live file row at `from` or
    // below follows it to `to`, with a "renamed" event each, in one transaction.
    // Returns how many rows moved. A row whose new path is already taken is left alone.
    std::int64_t renameTree(const std::string& folderID, const std::string& from, const std::string& to, double at);
    void markAppeared(std::int64_t fileID, double at);

    // --- Versions ------------------------------------------------------------
    std::int64_t insertVersion(const NewVersion& version);
    // Insert and move the file's last_digest, in one transaction; returns the stored row.
    StoredVersion recordVersion(const NewVersion& version);
    // recordVersion for several versions in one transaction: all are recorded, or none.
    std::vector<StoredVersion> recordVersions(const std::vector<NewVersion>& versions);
    std::optional<StoredVersion> version(std::int64_t id);
    std::vector<StoredVersion> versionsOfFile(std::int64_t fileID, std::int64_t limit, std::int64_t offset = 0);
    std::optional<StoredVersion> newestVersion(std::int64_t fileID);
    std::int64_t versionCount(std::int64_t fileID);
    // Every version; with `excludingStaged`, those staged by stageVersionIDs are left out.
    std::vector<StoredVersion> allVersions(bool excludingStaged = false);
    void setStarred(std::int64_t versionID, bool starred);
    bool wasEverReplaced(std::int64_t fileID);
    std::vector<std::string> allSlots();
    std::vector<std::string> slotsOfFolder(const std::string& folderID);
    std::vector<std::string> slotsOfFile(std::int64_t fileID);
    // Slots filed under another file's directory than their version's file. A
    // consistent store has none; the orphan sweep must never take one for an orphan.
    std::vector<std::string> misfiledSlots();

    // Deletes versions through the staged-id table, then drops the rows and
    // events of deleted files left with no version. The caller removes the slots.
    void deleteVersions(const std::vector<std::int64_t>& versionIDs);
    // Deletes an explicit, short list of versions with one bound parameter each.
    void deleteVersionsListed(const std::vector<std::int64_t>& versionIDs);
    // Makes the deletions (and everything else) committed so far survive a power
    // cut. Call it between deleting rows and removing their payloads: a row that
    // came back without its payload would be a version lost.
    void makeDurable();
    // How many pages the log may grow by before a commit folds it into the
    // catalog (the standard is 1,000; 0: never by itself). Such a checkpoint
    // runs inside the commit, holding the catalog for as long as it writes.
    void setCheckpointPages(int pages);
    static constexpr int standardCheckpointPages = 1000;
    // Folds the log into the catalog from a connection of its own and syncs
    // it, without holding this catalog: a long run of small deletions
    // checkpoints here (with setCheckpointPages(0)) so that no capture waits
    // behind a checkpoint. Committed work only; never blocks a writer.
    void checkpointAside();
    // Fills the connection's temporary staged-id table (replacing what was there).
    void stageVersionIDs(const std::vector<std::int64_t>& versionIDs);

    // --- History of a folder ---------------------------------------------------
    std::vector<FileStateAt> stateAt(const std::string& folderID, double instant);
    std::vector<ChangeRow> changeList(const std::string& folderID, std::int64_t limit);
    // changeList bounded for paging: the newest `limit` rows captured before
    // `before` (exclusive), with the sizes before them as changeList gives them.
    // Ties on the instant by the higher file id, then the newer row.
    std::vector<ChangeRow> changeListBefore(const std::string& folderID, double before, std::int64_t limit);
    // Each listed file's newest row captured before `before`, in no order, for
    // looking back past a page (previousBytes is not read: absent).
    std::vector<ChangeRow> newestRowsBefore(const std::vector<std::int64_t>& fileIDs, double before);
    std::vector<FileEventRow> eventsSince(const std::string& folderID, double instant);
    // Events in [from, before), in eventsSince's order.
    std::vector<FileEventRow> eventsBetween(const std::string& folderID, double from, double before);
    // Every path the folder's files ever had, by path then file id.
    std::vector<HeldPath> heldPaths(const std::string& folderID);
    // The folder's changes by local day, newest day first.
    std::vector<ChangeDay> changeDays(const std::string& folderID);
    // The newest version or deleted/renamed event in (after, upTo].
    std::optional<double> newestChange(const std::string& folderID, double after, double upTo);
    // Versions plus deleted/renamed events in (after, upTo]. `extraVersionCondition`
    // is a fixed SQL fragment of the calling code (" AND source = 'manual'"), never user text.
    std::int64_t countChanges(const std::string& folderID, double after, double upTo,
                              const std::string& extraVersionCondition = "");
    bool anythingAt(const std::string& folderID, double instant);
    // Every distinct instant of a version or a deleted/renamed event, newest first:
    // what moment clustering groups.
    std::vector<double> changeInstants(const std::string& folderID);
    std::vector<RecentFile> recentFiles(const std::optional<std::string>& folderID, std::int64_t limit,
                                        bool replacedOnly);
    std::vector<RecentFile> filesByName(const std::string& folderID, const std::string& likePattern);
    // A LIKE pattern that matches names containing `text` literally.
    static std::string containsPattern(const std::string& text);
    std::vector<std::pair<std::string, double>> liveFilesWithNewestCapture(const std::string& folderID);
    // For every file of the folder with versions: its newest version's instant and size, read in one query
    // (the reconciliation crawl compares a whole folder against this).
    std::unordered_map<std::int64_t, NewestVersionSummary> newestVersionSummaries(const std::string& folderID);

    // --- Aggregates ------------------------------------------------------------
    std::int64_t folderBytes(const std::string& folderID);
    std::int64_t folderVersionCount(const std::string& folderID);
    std::int64_t folderReplacedFileCount(const std::string& folderID);
    std::int64_t folderDeletedFileCount(const std::string& folderID);
    CatalogTotals totals();

    // --- Content index -----------------------------------------------------------
    std::int64_t highestVersionID();
    std::vector<PendingContent> nextBatchToIndex(std::int64_t below, std::int64_t above, std::int64_t limit);
    bool digestInUse(const std::string& digest);
    // Records the result for a digest once, and only while some version still
    // holds the digest (checked in the same transaction, so a prune cannot slip
    // between). A second result for the same digest adds nothing. False when nothing was stored.
    bool storeContentResult(const std::string& digest, ContentState state, double at, std::int64_t textBytes,
                            const std::optional<std::string>& text);
    std::int64_t digestsToIndexCount();
    std::int64_t storedTextBytes();
    ContentIndexCounts contentIndexCounts();
    void clearContentIndex();
    std::vector<ContentMatch> searchContents(const std::string& startMarker, const std::string& endMarker,
                                           const std::string& matchExpression, const std::string& folderID,
                                           std::int64_t limit);

    // --- Moment marks -------------------------------------------------------------
    // Kind precedence: named over beforeRewind over anything else; an absent name keeps the old one.
    void recordMark(const MomentMark& mark);
    // The history eraser's variant: an existing beforeRewind kind and target are kept.
    void restoreMark(const MomentMark& mark);
    std::vector<MomentMark> marks(const std::string& folderID);
    // The mark leaves its instant for `to` in one transaction, merging as recordMark does.
    void moveMark(const MomentMark& mark, double to);
    void clearMarkName(const std::string& folderID, double at);
    void deleteMark(const std::string& folderID, double at);

    // --- Watch state --------------------------------------------------------------
    std::optional<WatchState> watchState(const std::string& folderID);
    void writeWatchState(const WatchState& state);
    // Replaced by each whole walk of the folder; nothing recorded reads as none.
    UnreadableItems unreadableItems(const std::string& folderID);
    void recordUnreadable(const std::string& folderID, const UnreadableItems& items);

    // Deletes all history of a folder, in one transaction. Returns the slots the
    // caller must remove from the store.
    std::vector<std::string> forgetFolder(const std::string& folderID);

    // --- Checking and rebuilding ----------------------------------------------------
    // Every version (of one folder, when given) with its folder and path at
    // capture, in id order.
    std::vector<PlacedVersion> placedVersions(const std::optional<std::string>& folderID = std::nullopt);
    // Writes recovered files and versions into this (new, empty) catalog in one
    // transaction, with each file's last digest taken from its newest version and
    // each folder marked as having its baseline. All or nothing.
    void insertRecovered(const RecoveredHistory& history);

private:
    std::vector<TrackedFile> queryFiles(const std::string& sql, const std::vector<Database::Value>& values);
    std::vector<StoredVersion> queryVersions(const std::string& sql, const std::vector<Database::Value>& values);
    std::vector<RecentFile> queryRecentFiles(const std::string& sql, const std::vector<Database::Value>& values);
    std::optional<TrackedFile> fileAtPathLocked(const std::string& folderID, const std::string& relativePath);
    std::optional<StoredVersion> versionLocked(std::int64_t id);
    std::int64_t insertVersionLocked(const NewVersion& version);
    TrackedFile trackLocked(const FileToTrack& file);
    void stageLocked(const std::vector<std::int64_t>& versionIDs);
    std::vector<std::string> slotsOfFolderLocked(const std::string& folderID);

    std::mutex lock_;
    Database database_;
    std::string databasePath_;
    std::unique_ptr<Database> aside_;  // for checkpointAside(), opened on first use
    std::mutex asideLock_;
};

}  // namespace vosklin

#include "catalog/VersionCatalog.h"

#include <sstream>

#include "catalog/CatalogError.h"
#include "catalog/CatalogMigrations.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

using Value = Database::Value;
using Guard = std::lock_guard<std::mutex>;

const std::string fileColumns = "id, folder_id, rel_path, inode, is_package, ext, last_digest, deleted_at";
const std::string versionColumns =
    "id, file_id, captured_at, digest, logical_bytes, slot, payload_name, method, verified, starred, source, "
    "batch_id, replaced";

Value integer(std::int64_t value) { return Value(value); }
Value boolean(bool value) { return Value(std::int64_t(value ? 1 : 0)); }

Value inodeValue(std::optional<std::uint64_t> inode) {
    if (!inode) return Value(nullptr);
    return Value(static_cast<std::int64_t>(*inode));
}

// Reads a files row from `first` on, in the order of fileColumns.
TrackedFile readFile(const DatabaseRow& row, int first = 0) {
    TrackedFile file;
    file.id = row.int64(first);
    file.folderID = row.text(first + 1);
    file.relativePath = row.text(first + 2);
    if (auto inode = row.optionalInt64(first + 3)) file.inode = static_cast<std::uint64_t>(*inode);
    file.isPackage = row.int64(first + 4) != 0;
    file.fileExtension = row.optionalText(first + 5);
    file.lastDigest = row.optionalText(first + 6);
    file.deletedAt = row.optionalReal(first + 7);
    return file;
}

// An unrecognised stored source reads as an ordinary live capture.
CaptureSource readSource(const DatabaseRow& row, int column) {
    return captureSourceFromString(row.text(column)).value_or(CaptureSource::watcher);
}

// Reads a versions row from `first` on, in the order of versionColumns.
StoredVersion readVersion(const DatabaseRow& row, int first = 0) {
    StoredVersion version;
    version.id = row.int64(first);
    version.fileID = row.int64(first + 1);
    version.capturedAt = row.real(first + 2);
    version.digest = row.text(first + 3);
    version.logicalBytes = row.int64(first + 4);
    version.slot = row.text(first + 5);
    version.payloadName = row.text(first + 6);
    version.method = cloneMethodFromString(row.text(first + 7));
    version.isVerified = row.int64(first + 8) != 0;
    version.isStarred = row.int64(first + 9) != 0;
    version.source = readSource(row, first + 10);
    version.batchID = row.optionalText(first + 11);
    version.isReplacement = row.int64(first + 12) != 0;
    return version;
}

// Reads a change row: file id, path, instant, size, previous size, source, batch, replaced.
ChangeRow readChangeRow(const DatabaseRow& row) {
    ChangeRow change;
    change.fileID = row.int64(0);
    change.relativePath = row.text(1);
    change.capturedAt = row.real(2);
    change.logicalBytes = row.int64(3);
    change.previousBytes = row.optionalInt64(4);
    change.source = readSource(row, 5);
    change.batchID = row.optionalText(6);
    change.isReplacement = row.int64(7) != 0;
    return change;
}

MomentMark readMark(const DatabaseRow& row) {
    MomentMark mark;
    mark.folderID = row.text(0);
    mark.at = row.real(1);
    mark.name = row.optionalText(2);
    // A kind this build does not know is shown as a plain named moment rather than dropped.
    mark.kind = markKindFromString(row.text(3)).value_or(MomentMark::Kind::named);
    mark.targetAt = row.optionalReal(4);
    return mark;
}

std::vector<Value> markValues(const MomentMark& mark) {
    return {mark.folderID, mark.at, optionalValue(mark.name), std::string(toString(mark.kind)),
            optionalValue(mark.targetAt)};
}

}  // namespace

VersionCatalog::VersionCatalog(const std::string& databasePath, Database::Access access)
    : database_(databasePath, access), databasePath_(databasePath) {
    if (access == Database::Access::readWrite) {
        CatalogMigrations::migrate(database_);
        return;
    }
    const std::int32_t version = database_.userVersion();
    if (version > CatalogMigrations::currentVersion)
        throw CatalogError::storeIsNewerThanTheApp(version, CatalogMigrations::currentVersion);
    if (version < 0) throw CatalogError::damaged("schema version " + std::to_string(version));
}

std::int32_t VersionCatalog::schemaVersion() {
    Guard guard(lock_);
    return database_.userVersion();
}

// --- Files -------------------------------------------------------------------

std::vector<TrackedFile> VersionCatalog::queryFiles(const std::string& sql, const std::vector<Value>& values) {
    std::vector<TrackedFile> files;
    database_.query(sql, values, [&](const DatabaseRow& row) { files.push_back(readFile(row)); });
    return files;
}

std::optional<TrackedFile> VersionCatalog::fileAtPathLocked(const std::string& folderID,
                                                            const std::string& relativePath) {
    auto files = queryFiles("SELECT " + fileColumns + " FROM files WHERE folder_id = ? AND rel_path = ?",
                            {folderID, relativePath});
    if (files.empty()) return std::nullopt;
    return files.front();
}

static void upsertFileRow(Database& database, const std::string& folderID, const std::string& relativePath,
                          std::optional<std::uint64_t> inode, bool isPackage,
                          const std::optional<std::string>& fileExtension) {
    // A path that is written again is a file that came back: its tombstone is cleared.
    database.run(
        "INSERT INTO files (folder_id, rel_path, inode, is_package, ext, deleted_at) VALUES (?, ?, ?, ?, ?, NULL) "
        "ON CONFLICT(folder_id, rel_path) DO UPDATE SET inode = excluded.inode, is_package = excluded.is_package, "
        "ext = excluded.ext, deleted_at = NULL",
        {folderID, relativePath, inodeValue(inode), boolean(isPackage), optionalValue(fileExtension)});
}

TrackedFile VersionCatalog::upsertFile(const std::string& folderID, const std::string& relativePath,
                                       std::optional<std::uint64_t> inode, bool isPackage,
                                       const std::optional<std::string>& fileExtension) {
    Guard guard(lock_);
    upsertFileRow(database_, folderID, relativePath, inode, isPackage, fileExtension);
    return fileAtPathLocked(folderID, relativePath).value();
}

TrackedFile VersionCatalog::trackLocked(const FileToTrack& file) {
    // The event must be written while the tombstone is still there to be seen.
    database_.run(
        "INSERT INTO file_events (file_id, folder_id, at, kind)\nSELECT id, folder_id, ?, 'appeared' FROM files\n"
        "WHERE folder_id = ? AND rel_path = ? AND deleted_at IS NOT NULL",
        {file.at, file.folderID, file.relativePath});
    upsertFileRow(database_, file.folderID, file.relativePath, file.inode, file.isPackage, file.fileExtension);
    return fileAtPathLocked(file.folderID, file.relativePath).value();
}

TrackedFile VersionCatalog::trackFileForCapture(const std::string& folderID, const std::string& relativePath,
                                                std::optional<std::uint64_t> inode, bool isPackage,
                                                const std::optional<std::string>& fileExtension, double at) {
    return trackFilesForCapture({{folderID, relativePath, inode, isPackage, fileExtension, at}}).front();
}

std::vector<TrackedFile> VersionCatalog::trackFilesForCapture(const std::vector<FileToTrack>& files) {
    Guard guard(lock_);
    return database_.transaction([&] {
        std::vector<TrackedFile> tracked;
        tracked.reserve(files.size());
        for (const auto& file : files) tracked.push_back(trackLocked(file));
        return tracked;
    });
}

std::optional<TrackedFile> VersionCatalog::file(std::int64_t id) {
    Guard guard(lock_);
    auto files = queryFiles("SELECT " + fileColumns + " FROM files WHERE id = ?", {integer(id)});
    if (files.empty()) return std::nullopt;
    return files.front();
}

TrackedFile VersionCatalog::requireFile(std::int64_t id) {
    auto found = file(id);
    if (!found) throw CatalogError::fileNotFound(id);
    return *found;
}

std::optional<TrackedFile> VersionCatalog::fileAtPath(const std::string& folderID, const std::string& relativePath) {
    Guard guard(lock_);
    return fileAtPathLocked(folderID, relativePath);
}

std::optional<TrackedFile> VersionCatalog::liveFileWithInode(const std::string& folderID, std::uint64_t inode) {
    Guard guard(lock_);
    auto files = queryFiles("SELECT " + fileColumns + " FROM files" +
                                " WHERE folder_id = ? AND inode = ? AND deleted_at IS NULL",
                            {folderID, inodeValue(inode)});
    if (files.empty()) return std::nullopt;
    return files.front();
}

std::vector<TrackedFile> VersionCatalog::files(const std::string& folderID, bool liveOnly) {
    Guard guard(lock_);
    std::string sql = "SELECT " + fileColumns + " FROM files WHERE folder_id = ?";
    if (liveOnly) sql += " AND deleted_at IS NULL";
    sql += " ORDER BY rel_path";
    return queryFiles(sql, {folderID});
}

std::vector<TrackedFile> VersionCatalog::allFiles() {
    Guard guard(lock_);
    return queryFiles("SELECT " + fileColumns + " FROM files", {});
}

void VersionCatalog::setLastDigest(std::int64_t fileID, const std::string& digest) {
    Guard guard(lock_);
    database_.run("UPDATE files SET last_digest = ? WHERE id = ?", {digest, integer(fileID)});
}

void VersionCatalog::recordRename(std::int64_t fileID, const std::string& newPath,
                                  const std::optional<std::string>& newExtension, double at) {
    Guard guard(lock_);
    database_.transaction([&] {
        database_.run("UPDATE files SET rel_path = ?, ext = ?, deleted_at = NULL WHERE id = ?",
                      {newPath, optionalValue(newExtension), integer(fileID)});
        database_.run(
            "INSERT INTO file_events (file_id, folder_id, at, kind, path) SELECT id, folder_id, ?, 'renamed', ? "
            "FROM files WHERE id = ?",
            {at, newPath, integer(fileID)});
    });
}

void VersionCatalog::markDeleted(std::int64_t fileID, double at) {
    Guard guard(lock_);
    database_.transaction([&] {
        database_.run("UPDATE files SET deleted_at = ? WHERE id = ?", {at, integer(fileID)});
        database_.run(
            "INSERT INTO file_events (file_id, folder_id, at, kind) SELECT id, folder_id, ?, 'deleted' FROM files "
            "WHERE id = ?",
            {at, integer(fileID)});
    });
}

void VersionCatalog::markDeletedMany(const std::vector<std::int64_t>& fileIDs, double at) {
    if (fileIDs.empty()) return;
    Guard guard(lock_);
    database_.transaction([&] {
        for (std::int64_t id : fileIDs) {
            database_.run("UPDATE files SET deleted_at = ? WHERE id = ?", {at, integer(id)});
            database_.run(
                "INSERT INTO file_events (file_id, folder_id, at, kind) SELECT id, folder_id, ?, 'deleted' FROM files "
                "WHERE id = ?",
                {at, integer(id)});
        }
    });
}

std::vector<TrackedFile> VersionCatalog::liveFilesAtOrBelow(const std::string& folderID,
                                                            const std::string& relativePath) {
    Guard guard(lock_);
    return queryFiles("SELECT " + fileColumns +
                          " FROM files WHERE folder_id = ? AND deleted_at IS NULL AND (rel_path = ? OR "
                          "substr(rel_path, 1, ?) = ?) ORDER BY rel_path",
                      {folderID, relativePath, integer(std::int64_t(relativePath.size() + 1)), relativePath + "/"});
}

std::int64_t VersionCatalog::renameTree(const std::string& folderID, const std::string& from, const std::string& to,
                                        double at) {
    Guard guard(lock_);
    return database_.transaction([&] {
        auto moving = queryFiles("SELECT " + fileColumns +
                                     " FROM files WHERE folder_id = ? AND deleted_at IS NULL AND (rel_path = ? OR "
                                     "substr(rel_path, 1, ?) = ?)",
                                 {folderID, from, integer(std::int64_t(from.size() + 1)), from + "/"});
        std::int64_t moved = 0;
        for (const auto& file : moving) {
            const std::string newPath = to + file.relativePath.substr(from.size());
            if (fileAtPathLocked(folderID, newPath)) continue;  // taken: the caller captures what is there now
            std::optional<std::string> extension;
            if (auto text = pathExtension(newPath); !text.empty()) extension = text;
            database_.run("UPDATE files SET rel_path = ?, ext = ?, deleted_at = NULL WHERE id = ?",
                          {newPath, optionalValue(extension), integer(file.id)});
            database_.run(
                "INSERT INTO file_events (file_id, folder_id, at, kind, path) SELECT id, folder_id, ?, 'renamed', ? "
                "FROM files WHERE id = ?",
                {at, newPath, integer(file.id)});
            ++moved;
        }
        return moved;
    });
}

void VersionCatalog::markAppeared(std::int64_t fileID, double at) {
    Guard guard(lock_);
    database_.transaction([&] {
        database_.run("UPDATE files SET deleted_at = NULL WHERE id = ?", {integer(fileID)});
        database_.run(
            "INSERT INTO file_events (file_id, folder_id, at, kind) SELECT id, folder_id, ?, 'appeared' FROM files "
            "WHERE id = ?",
            {at, integer(fileID)});
    });
}

// --- Versions ----------------------------------------------------------------

std::vector<StoredVersion> VersionCatalog::queryVersions(const std::string& sql, const std::vector<Value>& values) {
    std::vector<StoredVersion> versions;
    database_.query(sql, values, [&](const DatabaseRow& row) { versions.push_back(readVersion(row)); });
    return versions;
}

std::int64_t VersionCatalog::insertVersionLocked(const NewVersion& version) {
    database_.run(
        "INSERT INTO versions (file_id, captured_at, digest, logical_bytes, slot, payload_name, method, verified, "
        "starred, source, batch_id, replaced, folder_id, rel_path) VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0, ?, ?, ?, "
        "(SELECT folder_id FROM files WHERE id = ?), (SELECT rel_path FROM files WHERE id = ?))",
        {integer(version.fileID), version.capturedAt, version.digest, integer(version.logicalBytes), version.slot,
         version.payloadName, std::string(toString(version.method)), boolean(version.isVerified),
         std::string(toString(version.source)), optionalValue(version.batchID), boolean(version.isReplacement),
         integer(version.fileID), integer(version.fileID)});
    return database_.lastInsertRowID();
}

std::int64_t VersionCatalog::insertVersion(const NewVersion& version) {
    Guard guard(lock_);
    return database_.transaction([&] { return insertVersionLocked(version); });
}

StoredVersion VersionCatalog::recordVersion(const NewVersion& version) { return recordVersions({version}).front(); }

std::vector<StoredVersion> VersionCatalog::recordVersions(const std::vector<NewVersion>& versions) {
    Guard guard(lock_);
    std::vector<std::int64_t> ids = database_.transaction([&] {
        std::vector<std::int64_t> inserted;
        inserted.reserve(versions.size());
        for (const auto& version : versions) {
            inserted.push_back(insertVersionLocked(version));
            database_.run("UPDATE files SET last_digest = ? WHERE id = ?", {version.digest, integer(version.fileID)});
        }
        return inserted;
    });
    // The rows are exactly what was inserted: build them rather than read each one back.
    std::vector<StoredVersion> stored;
    stored.reserve(versions.size());
    for (std::size_t i = 0; i < versions.size(); ++i) {
        const NewVersion& v = versions[i];
        stored.push_back({ids[i], v.fileID, v.capturedAt, v.digest, v.logicalBytes, v.slot, v.payloadName, v.method,
                          v.isVerified, false, v.source, v.batchID, v.isReplacement});
    }
    return stored;
}

std::optional<StoredVersion> VersionCatalog::versionLocked(std::int64_t id) {
    auto versions = queryVersions("SELECT " + versionColumns + " FROM versions WHERE id = ?", {integer(id)});
    if (versions.empty()) return std::nullopt;
    return versions.front();
}

std::optional<StoredVersion> VersionCatalog::version(std::int64_t id) {
    Guard guard(lock_);
    return versionLocked(id);
}

std::vector<StoredVersion> VersionCatalog::versionsOfFile(std::int64_t fileID, std::int64_t limit,
                                                          std::int64_t offset) {
    Guard guard(lock_);
    return queryVersions("SELECT " + versionColumns + " FROM versions" +
                             " WHERE file_id = ? ORDER BY captured_at DESC, id DESC LIMIT ? OFFSET ?",
                         {integer(fileID), integer(limit), integer(offset)});
}

std::optional<StoredVersion> VersionCatalog::newestVersion(std::int64_t fileID) {
    Guard guard(lock_);
    auto versions = queryVersions("SELECT " + versionColumns + " FROM versions" +
                                      " WHERE file_id = ? ORDER BY captured_at DESC, id DESC LIMIT 1",
                                  {integer(fileID)});
    if (versions.empty()) return std::nullopt;
    return versions.front();
}

std::vector<StoredVersion> VersionCatalog::allVersions(bool excludingStaged) {
    Guard guard(lock_);
    std::string sql = "SELECT " + versionColumns + " FROM versions";
    if (excludingStaged) {
        // The table may not exist yet on this connection.
        database_.execute("CREATE TEMP TABLE IF NOT EXISTS staged_ids (id INTEGER PRIMARY KEY)");
        sql += " WHERE 1 AND id NOT IN (SELECT id FROM staged_ids)";
    }
    return queryVersions(sql, {});
}

void VersionCatalog::setStarred(std::int64_t versionID, bool starred) {
    Guard guard(lock_);
    database_.run("UPDATE versions SET starred = ? WHERE id = ?", {boolean(starred), integer(versionID)});
}

bool VersionCatalog::wasEverReplaced(std::int64_t fileID) {
    Guard guard(lock_);
    return database_.scalar("SELECT 1 FROM versions WHERE file_id = ? AND replaced = 1 LIMIT 1", {integer(fileID)}) ==
           1;
}

std::vector<std::string> VersionCatalog::allSlots() {
    Guard guard(lock_);
    std::vector<std::string> slots;
    database_.query("SELECT slot FROM versions", {}, [&](const DatabaseRow& row) { slots.push_back(row.text(0)); });
    return slots;
}

std::vector<std::string> VersionCatalog::slotsOfFolderLocked(const std::string& folderID) {
    std::vector<std::string> slots;
    database_.query("SELECT v.slot FROM versions v JOIN files f ON f.id = v.file_id WHERE f.folder_id = ?",
                    {folderID}, [&](const DatabaseRow& row) { slots.push_back(row.text(0)); });
    return slots;
}

std::vector<std::string> VersionCatalog::slotsOfFolder(const std::string& folderID) {
    Guard guard(lock_);
    return slotsOfFolderLocked(folderID);
}

std::int64_t VersionCatalog::versionCount(std::int64_t fileID) {
    Guard guard(lock_);
    return database_.scalar("SELECT COUNT(*) FROM versions WHERE file_id = ?", {integer(fileID)});
}

std::vector<std::string> VersionCatalog::slotsOfFile(std::int64_t fileID) {
    Guard guard(lock_);
    std::vector<std::string> slots;
    database_.query("SELECT slot FROM versions WHERE file_id = ?", {integer(fileID)},
                    [&](const DatabaseRow& row) { slots.push_back(row.text(0)); });
    return slots;
}

std::vector<std::string> VersionCatalog::misfiledSlots() {
    Guard guard(lock_);
    std::vector<std::string> slots;
    database_.query(
        "SELECT slot FROM (SELECT slot, 'versions/' || printf('%02x', file_id & 255) || '/' || file_id || '/' AS home "
        "FROM versions) WHERE substr(slot, 1, length(home)) != home",
        {}, [&](const DatabaseRow& row) { slots.push_back(row.text(0)); });
    return slots;
}

void VersionCatalog::stageLocked(const std::vector<std::int64_t>& versionIDs) {
    database_.execute("CREATE TEMP TABLE IF NOT EXISTS staged_ids (id INTEGER PRIMARY KEY); DELETE FROM staged_ids;");
    for (std::int64_t id : versionIDs) database_.run("INSERT OR IGNORE INTO staged_ids (id) VALUES (?)", {integer(id)});
}

void VersionCatalog::stageVersionIDs(const std::vector<std::int64_t>& versionIDs) {
    Guard guard(lock_);
    database_.transaction([&] { stageLocked(versionIDs); });
}

void VersionCatalog::deleteVersions(const std::vector<std::int64_t>& versionIDs) {
    Guard guard(lock_);
    database_.transaction([&] {
        stageLocked(versionIDs);
        std::vector<std::int64_t> touchedFiles;
        database_.query("SELECT DISTINCT file_id FROM versions WHERE id IN (SELECT id FROM staged_ids)", {},
                        [&](const DatabaseRow& row) { touchedFiles.push_back(row.int64(0)); });
        database_.run("DELETE FROM versions WHERE id IN (SELECT id FROM staged_ids)");
        for (std::int64_t fileID : touchedFiles) {
            if (database_.scalar("SELECT COUNT(*) FROM versions WHERE file_id = ?", {integer(fileID)}) != 0) continue;
            // A live file keeps its row without versions; a deleted one leaves the catalog.
            database_.run("DELETE FROM file_events WHERE file_id = ?", {integer(fileID)});
            database_.run("DELETE FROM files WHERE id = ? AND deleted_at IS NOT NULL", {integer(fileID)});
        }
    });
}

void VersionCatalog::makeDurable() {
    // Only files are synced: committed frames are what they are, whoever writes next.
    database_.syncToDisk();
}

void VersionCatalog::checkpointAside() {
    Guard guard(asideLock_);
    if (!aside_) aside_ = std::make_unique<Database>(databasePath_);
    aside_->execute("PRAGMA wal_checkpoint(PASSIVE)");
    aside_->syncToDisk();
}

void VersionCatalog::setCheckpointPages(int pages) {
    Guard guard(lock_);
    database_.execute("PRAGMA wal_autocheckpoint = " + std::to_string(pages));
}

void VersionCatalog::deleteVersionsListed(const std::vector<std::int64_t>& versionIDs) {
    if (versionIDs.empty()) return;
    Guard guard(lock_);
    std::string sql = "DELETE FROM versions WHERE id IN (";
    std::vector<Value> values;
    for (std::size_t i = 0; i < versionIDs.size(); ++i) {
        sql += i == 0 ? "?" : ", ?";
        values.push_back(integer(versionIDs[i]));
    }
    sql += ")";
    database_.run(sql, values);
}

// --- History of a folder -----------------------------------------------------

std::vector<FileStateAt> VersionCatalog::stateAt(const std::string& folderID, double instant) {
    Guard guard(lock_);
    std::vector<FileStateAt> states;
    database_.query(
        "SELECT f.id, f.folder_id, COALESCE((SELECT path FROM file_events WHERE file_id = f.id AND kind = 'renamed' "
        "AND path IS NOT NULL AND at <= ? ORDER BY at DESC, rowid DESC LIMIT 1), v.rel_path, f.rel_path), f.inode, "
        "f.is_package, f.ext, f.last_digest, f.deleted_at, v.id, v.file_id, v.captured_at, v.digest, "
        "v.logical_bytes, v.slot, v.payload_name, v.method, v.verified, v.starred, v.source, v.batch_id, v.replaced "
        "FROM files f JOIN versions v ON v.id = (SELECT id FROM versions WHERE file_id = f.id AND captured_at <= ? "
        "ORDER BY captured_at DESC, id DESC LIMIT 1) WHERE f.folder_id = ? AND COALESCE((SELECT kind FROM "
        "file_events WHERE file_id = f.id AND at <= ? AND kind IN ('deleted', 'appeared') ORDER BY at DESC, rowid "
        "DESC LIMIT 1), 'appeared') = 'appeared'",
        {instant, instant, folderID, instant},
        [&](const DatabaseRow& row) { states.push_back({readFile(row, 0), readVersion(row, 8)}); });
    return states;
}

std::vector<ChangeRow> VersionCatalog::changeList(const std::string& folderID, std::int64_t limit) {
    Guard guard(lock_);
    std::vector<ChangeRow> rows;
    database_.query(
        "SELECT file_id, path, captured_at, logical_bytes, previous, source, batch_id, replaced FROM (SELECT "
        "v.file_id, COALESCE(v.rel_path, f.rel_path) AS path, v.captured_at, v.logical_bytes, LAG(v.logical_bytes) "
        "OVER (PARTITION BY v.file_id ORDER BY v.captured_at, v.id) AS previous, v.source, v.batch_id, v.replaced "
        "FROM versions v JOIN files f ON f.id = v.file_id WHERE v.folder_id = ?) ORDER BY captured_at DESC, "
        "file_id DESC LIMIT ?",
        {folderID, integer(limit)}, [&](const DatabaseRow& row) { rows.push_back(readChangeRow(row)); });
    return rows;
}

std::vector<ChangeRow> VersionCatalog::changeListBefore(const std::string& folderID, double before,
                                                        std::int64_t limit) {
    Guard guard(lock_);
    std::vector<ChangeRow> rows;
    // The size before each row is looked up for the rows kept alone, through the
    // file's index, rather than by a window over the whole folder on every page.
    database_.query(
        "SELECT v.file_id, COALESCE(v.rel_path, f.rel_path), v.captured_at, v.logical_bytes, (SELECT p.logical_bytes "
        "FROM versions p WHERE p.file_id = v.file_id AND (p.captured_at, p.id) < (v.captured_at, v.id) ORDER BY "
        "p.captured_at DESC, p.id DESC LIMIT 1), v.source, v.batch_id, v.replaced FROM versions v JOIN files f ON "
        "f.id = v.file_id WHERE v.folder_id = ? AND v.captured_at < ? ORDER BY v.captured_at DESC, v.file_id DESC, "
        "v.id DESC LIMIT ?",
        {folderID, before, integer(limit)}, [&](const DatabaseRow& row) { rows.push_back(readChangeRow(row)); });
    return rows;
}

std::vector<ChangeRow> VersionCatalog::newestRowsBefore(const std::vector<std::int64_t>& fileIDs, double before) {
    Guard guard(lock_);
    std::vector<ChangeRow> rows;
    if (fileIDs.empty()) return rows;
    std::ostringstream ids;
    ids << '[';
    for (std::size_t i = 0; i < fileIDs.size(); ++i) ids << (i ? "," : "") << fileIDs[i];
    ids << ']';
    database_.query(
        "SELECT v.file_id, COALESCE(v.rel_path, f.rel_path), v.captured_at, v.logical_bytes, NULL, v.source, "
        "v.batch_id, v.replaced FROM json_each(?) j JOIN versions v ON v.id = (SELECT id FROM versions WHERE file_id = "
        "j.value AND captured_at < ? ORDER BY captured_at DESC, id DESC LIMIT 1) JOIN files f ON f.id = v.file_id",
        {ids.str(), before}, [&](const DatabaseRow& row) { rows.push_back(readChangeRow(row)); });
    return rows;
}

std::vector<FileEventRow> VersionCatalog::eventsBetween(const std::string& folderID, double from, double before) {
    Guard guard(lock_);
    std::vector<FileEventRow> events;
    database_.query(
        "SELECT file_id, at, kind, path FROM file_events WHERE folder_id = ? AND at >= ? AND at < ? ORDER BY at DESC, "
        "rowid DESC",
        {folderID, from, before}, [&](const DatabaseRow& row) {
            auto kind = fileEventKindFromString(row.text(2));
            if (!kind) return;
            events.push_back({row.int64(0), row.real(1), *kind, row.optionalText(3)});
        });
    return events;
}

std::vector<HeldPath> VersionCatalog::heldPaths(const std::string& folderID) {
    Guard guard(lock_);
    std::vector<HeldPath> paths;
    database_.query(
        "SELECT p.path, p.file_id, f.deleted_at IS NOT NULL, (SELECT COUNT(*) FROM versions WHERE file_id = "
        "p.file_id) FROM (SELECT file_id, rel_path AS path FROM versions WHERE folder_id = ?1 AND rel_path IS NOT NULL "
        "UNION SELECT id, rel_path FROM files WHERE folder_id = ?1 UNION SELECT file_id, path FROM file_events WHERE "
        "folder_id = ?1 AND kind = 'renamed' AND path IS NOT NULL) p JOIN files f ON f.id = p.file_id ORDER BY p.path, "
        "p.file_id",
        {folderID}, [&](const DatabaseRow& row) {
            paths.push_back({row.text(0), row.int64(1), row.int64(2) != 0, row.int64(3)});
        });
    return paths;
}

std::vector<ChangeDay> VersionCatalog::changeDays(const std::string& folderID) {
    Guard guard(lock_);
    std::vector<ChangeDay> days;
    database_.query(
        "SELECT date(at, 'unixepoch', 'localtime') AS day, COUNT(*), MIN(at), MAX(at) FROM (SELECT captured_at AS at "
        "FROM versions WHERE folder_id = ?1 UNION ALL SELECT at FROM file_events WHERE folder_id = ?1 AND kind IN "
        "('deleted', 'renamed')) GROUP BY day ORDER BY day DESC",
        {folderID}, [&](const DatabaseRow& row) {
            days.push_back({row.text(0), row.int64(1), row.real(2), row.real(3)});
        });
    return days;
}

std::vector<FileEventRow> VersionCatalog::eventsSince(const std::string& folderID, double instant) {
    Guard guard(lock_);
    std::vector<FileEventRow> events;
    database_.query(
        "SELECT file_id, at, kind, path FROM file_events WHERE folder_id = ? AND at >= ? ORDER BY at DESC, rowid DESC",
        {folderID, instant}, [&](const DatabaseRow& row) {
            auto kind = fileEventKindFromString(row.text(2));
            if (!kind) return;  // a kind this build does not know says nothing it can use
            events.push_back({row.int64(0), row.real(1), *kind, row.optionalText(3)});
        });
    return events;
}

std::optional<double> VersionCatalog::newestChange(const std::string& folderID, double after, double upTo) {
    Guard guard(lock_);
    return database_.scalarReal(
        "SELECT MAX(at) FROM (SELECT captured_at AS at FROM versions WHERE folder_id = ? AND captured_at > ? AND "
        "captured_at <= ? UNION ALL SELECT at FROM file_events WHERE folder_id = ? AND at > ? AND at <= ? AND kind IN "
        "('deleted', 'renamed'))",
        {folderID, after, upTo, folderID, after, upTo});
}

std::int64_t VersionCatalog::countChanges(const std::string& folderID, double after, double upTo,
                                          const std::string& extraVersionCondition) {
    Guard guard(lock_);
    return database_.scalar(
        "SELECT (SELECT COUNT(*) FROM versions WHERE folder_id = ? AND captured_at > ? AND captured_at <= ?" +
            extraVersionCondition +
            ") + (SELECT COUNT(*) FROM file_events WHERE folder_id = ? AND at > ? AND at <= ? AND kind IN ('deleted', "
            "'renamed')" +
            ")",
        {folderID, after, upTo, folderID, after, upTo});
}

bool VersionCatalog::anythingAt(const std::string& folderID, double instant) {
    Guard guard(lock_);
    return database_.scalar(
               "SELECT EXISTS (SELECT 1 FROM versions WHERE folder_id = ? AND captured_at = ?) OR EXISTS (SELECT 1 "
               "FROM file_events WHERE folder_id = ? AND at = ? AND kind IN ('deleted', 'renamed'))",
               {folderID, instant, folderID, instant}) != 0;
}

std::vector<double> VersionCatalog::changeInstants(const std::string& folderID) {
    Guard guard(lock_);
    std::vector<double> instants;
    database_.query(
        "SELECT captured_at FROM versions WHERE folder_id = ? UNION SELECT at FROM file_events WHERE folder_id = ? AND "
        "kind IN ('deleted', 'renamed') ORDER BY 1 DESC",
        {folderID, folderID}, [&](const DatabaseRow& row) { instants.push_back(row.real(0)); });
    return instants;
}

std::vector<RecentFile> VersionCatalog::queryRecentFiles(const std::string& sql, const std::vector<Value>& values) {
    std::vector<RecentFile> files;
    database_.query(sql, values, [&](const DatabaseRow& row) {
        files.push_back({readFile(row, 0), row.int64(8), row.real(9), row.int64(10) != 0});
    });
    return files;
}

std::vector<RecentFile> VersionCatalog::recentFiles(const std::optional<std::string>& folderID, std::int64_t limit,
                                                    bool replacedOnly) {
    Guard guard(lock_);
    std::string sql =
        "SELECT f.id, f.folder_id, f.rel_path, f.inode, f.is_package, f.ext, f.last_digest, f.deleted_at, "
        "COUNT(v.id), MAX(v.captured_at), MAX(v.replaced) FROM files f JOIN versions v ON v.file_id = f.id";
    std::vector<Value> values;
    if (folderID) {
        sql += " WHERE f.folder_id = ?";
        values.push_back(*folderID);
    }
    sql += " GROUP BY f.id";
    if (replacedOnly) sql += " HAVING MAX(v.replaced) = 1";
    sql += " ORDER BY MAX(v.captured_at) DESC LIMIT ?";
    values.push_back(integer(limit));
    return queryRecentFiles(sql, values);
}

std::vector<RecentFile> VersionCatalog::filesByName(const std::string& folderID, const std::string& likePattern) {
    Guard guard(lock_);
    return queryRecentFiles(
        "SELECT f.id, f.folder_id, f.rel_path, f.inode, f.is_package, f.ext, f.last_digest, f.deleted_at, "
        "COUNT(v.id), MAX(v.captured_at), MAX(v.replaced) FROM files f JOIN versions v ON v.file_id = f.id WHERE "
        "f.folder_id = ? AND f.rel_path LIKE ? ESCAPE '\\' GROUP BY f.id",
        {folderID, likePattern});
}

std::string VersionCatalog::containsPattern(const std::string& text) {
    std::string pattern = "%";
    for (char c : text) {
        if (c == '%' || c == '_' || c == '\\') pattern += '\\';
        pattern += c;
    }
    return pattern + "%";
}

std::vector<std::pair<std::string, double>> VersionCatalog::liveFilesWithNewestCapture(const std::string& folderID) {
    Guard guard(lock_);
    std::vector<std::pair<std::string, double>> files;
    database_.query(
        "SELECT f.rel_path, MAX(v.captured_at) FROM files f JOIN versions v ON v.file_id = f.id WHERE f.folder_id = "
        "? AND f.deleted_at IS NULL GROUP BY f.id",
        {folderID}, [&](const DatabaseRow& row) { files.emplace_back(row.text(0), row.real(1)); });
    return files;
}

std::unordered_map<std::int64_t, NewestVersionSummary> VersionCatalog::newestVersionSummaries(
    const std::string& folderID) {
    Guard guard(lock_);
    std::unordered_map<std::int64_t, NewestVersionSummary> summaries;
    database_.query(
        "SELECT file_id, captured_at, logical_bytes FROM (SELECT file_id, captured_at, logical_bytes, ROW_NUMBER() "
        "OVER (PARTITION BY file_id ORDER BY captured_at DESC, id DESC) AS n FROM versions WHERE folder_id = ?) "
        "WHERE n = 1",
        {folderID}, [&](const DatabaseRow& row) { summaries[row.int64(0)] = {row.real(1), row.int64(2)}; });
    return summaries;
}

// --- Aggregates --------------------------------------------------------------

std::int64_t VersionCatalog::folderBytes(const std::string& folderID) {
    Guard guard(lock_);
    return database_.scalar(
        "SELECT COALESCE(SUM(v.logical_bytes), 0) FROM versions v JOIN files f ON f.id = v.file_id WHERE "
        "f.folder_id = ?",
        {folderID});
}

std::int64_t VersionCatalog::folderVersionCount(const std::string& folderID) {
    Guard guard(lock_);
    return database_.scalar("SELECT COUNT(*) FROM versions v JOIN files f ON f.id = v.file_id WHERE f.folder_id = ?",
                            {folderID});
}

std::int64_t VersionCatalog::folderReplacedFileCount(const std::string& folderID) {
    Guard guard(lock_);
    return database_.scalar("SELECT COUNT(DISTINCT v.file_id) FROM versions v WHERE v.folder_id = ? AND v.replaced = 1",
                            {folderID});
}

std::int64_t VersionCatalog::folderDeletedFileCount(const std::string& folderID) {
    Guard guard(lock_);
    return database_.scalar("SELECT COUNT(*) FROM files WHERE folder_id = ? AND deleted_at IS NOT NULL", {folderID});
}

CatalogTotals VersionCatalog::totals() {
    Guard guard(lock_);
    CatalogTotals totals;
    database_.query("SELECT COUNT(*), COUNT(*) - COUNT(deleted_at) FROM files", {}, [&](const DatabaseRow& row) {
        totals.files = row.int64(0);
        totals.liveFiles = row.int64(1);
    });
    database_.query("SELECT COUNT(*), COALESCE(SUM(logical_bytes), 0) FROM versions", {}, [&](const DatabaseRow& row) {
        totals.versions = row.int64(0);
        totals.logicalBytes = row.int64(1);
    });
    return totals;
}

// --- Content index -----------------------------------------------------------

std::int64_t VersionCatalog::highestVersionID() {
    Guard guard(lock_);
    return database_.scalar("SELECT COALESCE(MAX(id), 0) FROM versions");
}

std::vector<PendingContent> VersionCatalog::nextBatchToIndex(std::int64_t below, std::int64_t above,
                                                             std::int64_t limit) {
    Guard guard(lock_);
    std::vector<PendingContent> batch;
    database_.query(
        "SELECT v.id, v.digest, v.slot, v.payload_name, f.is_package FROM versions v JOIN files f ON f.id = "
        "v.file_id WHERE v.id < ? AND v.id > ? AND NOT EXISTS (SELECT 1 FROM content_texts c WHERE c.digest = "
        "v.digest) ORDER BY v.id DESC LIMIT ?",
        {integer(below), integer(above), integer(limit)}, [&](const DatabaseRow& row) {
            batch.push_back({row.int64(0), row.text(1), row.text(2), row.text(3), row.int64(4) != 0});
        });
    return batch;
}

bool VersionCatalog::digestInUse(const std::string& digest) {
    Guard guard(lock_);
    return database_.scalar("SELECT EXISTS (SELECT 1 FROM versions WHERE digest = ?)", {digest}) != 0;
}

bool VersionCatalog::storeContentResult(const std::string& digest, ContentState state, double at,
                                        std::int64_t textBytes, const std::optional<std::string>& text) {
    Guard guard(lock_);
    bool stored = false;
    database_.transaction([&] {
        if (database_.scalar("SELECT EXISTS (SELECT 1 FROM versions WHERE digest = ?)", {digest}) == 0) return;
        database_.run(
            "INSERT INTO content_texts (digest, state, indexed_at, text_bytes) VALUES (?, ?, ?, ?) ON "
            "CONFLICT(digest) DO NOTHING",
            {digest, integer(static_cast<std::int64_t>(state)), at, integer(textBytes)});
        stored = database_.changes() == 1;
        if (stored && text) {
            database_.run("INSERT INTO content_fts (rowid, body) VALUES (last_insert_rowid(), ?)", {*text});
        }
    });
    return stored;
}

std::int64_t VersionCatalog::digestsToIndexCount() {
    Guard guard(lock_);
    return database_.scalar(
        "SELECT COUNT(DISTINCT v.digest) FROM versions v LEFT JOIN content_texts c ON c.digest = v.digest WHERE "
        "c.id IS NULL");
}

std::int64_t VersionCatalog::storedTextBytes() {
    Guard guard(lock_);
    return database_.scalar("SELECT COALESCE(SUM(text_bytes), 0) FROM content_texts");
}

ContentIndexCounts VersionCatalog::contentIndexCounts() {
    Guard guard(lock_);
    ContentIndexCounts counts;
    database_.query("SELECT state, COUNT(*) FROM content_texts GROUP BY state", {}, [&](const DatabaseRow& row) {
        switch (row.int64(0)) {
            case std::int64_t(ContentState::indexed): counts.indexed = row.int64(1); break;
            case std::int64_t(ContentState::noText): counts.withoutText = row.int64(1); break;
            case std::int64_t(ContentState::failed): counts.failed = row.int64(1); break;
            default: break;
        }
    });
    return counts;
}

void VersionCatalog::clearContentIndex() {
    Guard guard(lock_);
    database_.transaction([&] {
        database_.run("DELETE FROM content_fts");
        database_.run("DELETE FROM content_texts");
    });
}

std::vector<ContentMatch> VersionCatalog::searchContents(const std::string& startMarker, const std::string& endMarker,
                                                       const std::string& matchExpression,
                                                       const std::string& folderID, std::int64_t limit) {
    Guard guard(lock_);
    std::vector<ContentMatch> hits;
    // The kept versions are found first, from the full-text side, and snippets are made for
    // those alone: the plain join walked every version of the folder and made a snippet for
    // every match before the limit cut them. Same rows, same order (a property test holds
    // this statement to the plain join).
    database_.query(
        "SELECT f.id, f.folder_id, f.rel_path, f.inode, f.is_package, f.ext, f.last_digest, f.deleted_at, "
        "kept.version_id, kept.captured_at, snippet(content_fts, 0, ?1, ?2, '…', 12) FROM content_fts CROSS JOIN "
        "(SELECT c.id AS text_id, v.id AS version_id, v.captured_at AS captured_at, v.file_id AS file_id FROM "
        "content_fts JOIN content_texts c ON c.id = content_fts.rowid JOIN versions v ON v.digest = c.digest WHERE "
        "content_fts MATCH ?3 AND v.folder_id = ?4 ORDER BY v.captured_at DESC, v.id DESC LIMIT ?5) AS kept CROSS "
        "JOIN files f WHERE content_fts MATCH ?3 AND kept.text_id = content_fts.rowid AND f.id = kept.file_id ORDER "
        "BY kept.captured_at DESC, kept.version_id DESC",
        {startMarker, endMarker, matchExpression, folderID, integer(limit)}, [&](const DatabaseRow& row) {
            hits.push_back({readFile(row, 0), {row.int64(8), row.real(9), row.text(10)}});
        });
    return hits;
}

// --- Moment marks --------------------------------------------------------------

namespace {
const char* const recordMarkSql =
    "INSERT INTO moment_marks (folder_id, at, name, kind, target_at) VALUES (?, ?, ?, ?, ?) ON "
    "CONFLICT(folder_id, at) DO UPDATE SET name = COALESCE(excluded.name, name), kind = CASE WHEN "
    "moment_marks.kind = 'named' OR excluded.kind = 'named' THEN 'named' WHEN moment_marks.kind = 'beforeRewind' "
    "OR excluded.kind = 'beforeRewind' THEN 'beforeRewind' ELSE excluded.kind END, target_at = "
    "COALESCE(excluded.target_at, target_at)";
}  // namespace

void VersionCatalog::recordMark(const MomentMark& mark) {
    Guard guard(lock_);
    database_.run(recordMarkSql, markValues(mark));
}

void VersionCatalog::moveMark(const MomentMark& mark, double to) {
    Guard guard(lock_);
    MomentMark moved = mark;
    moved.at = to;
    database_.transaction([&] {
        database_.run("DELETE FROM moment_marks WHERE folder_id = ? AND at = ?", {mark.folderID, mark.at});
        database_.run(recordMarkSql, markValues(moved));
    });
}

void VersionCatalog::restoreMark(const MomentMark& mark) {
    Guard guard(lock_);
    database_.run(
        "INSERT INTO moment_marks (folder_id, at, name, kind, target_at) VALUES (?, ?, ?, ?, ?) ON "
        "CONFLICT(folder_id, at) DO UPDATE SET name = COALESCE(excluded.name, name), kind = CASE WHEN "
        "moment_marks.kind = 'beforeRewind' THEN 'beforeRewind' ELSE excluded.kind END, target_at = "
        "COALESCE(target_at, excluded.target_at)",
        markValues(mark));
}

std::vector<MomentMark> VersionCatalog::marks(const std::string& folderID) {
    Guard guard(lock_);
    std::vector<MomentMark> marks;
    database_.query("SELECT folder_id, at, name, kind, target_at FROM moment_marks WHERE folder_id = ? ORDER BY at DESC",
                    {folderID}, [&](const DatabaseRow& row) { marks.push_back(readMark(row)); });
    return marks;
}

void VersionCatalog::clearMarkName(const std::string& folderID, double at) {
    Guard guard(lock_);
    database_.run("UPDATE moment_marks SET name = NULL WHERE folder_id = ? AND at = ?", {folderID, at});
}

void VersionCatalog::deleteMark(const std::string& folderID, double at) {
    Guard guard(lock_);
    database_.run("DELETE FROM moment_marks WHERE folder_id = ? AND at = ?", {folderID, at});
}

// --- Watch state -------------------------------------------------------------

std::optional<WatchState> VersionCatalog::watchState(const std::string& folderID) {
    Guard guard(lock_);
    std::optional<WatchState> state;
    database_.query(
        "SELECT folder_id, last_event_id, last_crawl_at, baseline_done, volume_id FROM watch_state WHERE folder_id = ?",
        {folderID}, [&](const DatabaseRow& row) {
            state = WatchState{row.text(0), row.optionalInt64(1), row.optionalReal(2), row.int64(3) != 0,
                               row.optionalText(4)};
        });
    return state;
}

void VersionCatalog::writeWatchState(const WatchState& state) {
    Guard guard(lock_);
    database_.run(
        "INSERT INTO watch_state (folder_id, last_event_id, last_crawl_at, baseline_done, volume_id) VALUES (?, ?, ?, "
        "?, ?) ON CONFLICT(folder_id) DO UPDATE SET last_event_id = excluded.last_event_id, last_crawl_at = "
        "excluded.last_crawl_at, baseline_done = excluded.baseline_done, volume_id = excluded.volume_id",
        {state.folderID, optionalValue(state.lastEventID), optionalValue(state.lastCrawlAt),
         boolean(state.baselineDone), optionalValue(state.volumeID)});
}

namespace {

// Kept in the key-value table as "COUNT HEX HEX...": names are bytes, newlines and all.
std::string unreadableKey(const std::string& folderID) { return "unreadable:" + folderID; }

}  // namespace

UnreadableItems VersionCatalog::unreadableItems(const std::string& folderID) {
    Guard guard(lock_);
    UnreadableItems items;
    database_.query("SELECT value FROM meta WHERE key = ?", {unreadableKey(folderID)}, [&](const DatabaseRow& row) {
        std::istringstream words(row.text(0));
        words >> items.count;
        for (std::string hex; words >> hex;) {
            std::string path;
            for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
                path += char(std::stoi(hex.substr(i, 2), nullptr, 16));
            items.paths.push_back(std::move(path));
        }
    });
    return items;
}

void VersionCatalog::recordUnreadable(const std::string& folderID, const UnreadableItems& items) {
    Guard guard(lock_);
    if (items.count == 0) {
        database_.run("DELETE FROM meta WHERE key = ?", {unreadableKey(folderID)});
        return;
    }
    std::string value = std::to_string(items.count);
    static const char digits[] = "0123456789abcdef";
    for (const auto& path : items.paths) {
        value += ' ';
        for (unsigned char c : path) {
            value += digits[c >> 4];
            value += digits[c & 15];
        }
    }
    database_.run("INSERT INTO meta (key, value) VALUES (?, ?) ON CONFLICT(key) DO UPDATE SET value = excluded.value",
                  {unreadableKey(folderID), value});
}

std::vector<std::string> VersionCatalog::forgetFolder(const std::string& folderID) {
    Guard guard(lock_);
    return database_.transaction([&] {
        std::vector<std::string> slots = slotsOfFolderLocked(folderID);
        database_.run("DELETE FROM versions WHERE file_id IN (SELECT id FROM files WHERE folder_id = ?)", {folderID});
        database_.run("DELETE FROM files WHERE folder_id = ?", {folderID});
        database_.run("DELETE FROM watch_state WHERE folder_id = ?", {folderID});
        database_.run("DELETE FROM meta WHERE key = ?", {unreadableKey(folderID)});
        database_.run("DELETE FROM moment_marks WHERE folder_id = ?", {folderID});
        database_.run("DELETE FROM file_events WHERE folder_id = ?", {folderID});
        return slots;
    });
}

// --- Checking and rebuilding --------------------------------------------------

std::vector<PlacedVersion> VersionCatalog::placedVersions(const std::optional<std::string>& folderID) {
    Guard guard(lock_);
    std::string columns = "v." + versionColumns;
    for (std::size_t at = columns.find(", "); at != std::string::npos; at = columns.find(", ", at + 2))
        columns.insert(at + 2, "v.");
    std::string sql = "SELECT " + columns + ", COALESCE(v.folder_id, f.folder_id), v.rel_path FROM versions v "
                      "LEFT JOIN files f ON f.id = v.file_id";
    std::vector<Value> values;
    if (folderID) {
        sql += " WHERE COALESCE(v.folder_id, f.folder_id) = ?";
        values.push_back(*folderID);
    }
    sql += " ORDER BY v.id";
    std::vector<PlacedVersion> placed;
    database_.query(sql, values, [&](const DatabaseRow& row) {
        placed.push_back({readVersion(row), row.optionalText(13), row.optionalText(14)});
    });
    return placed;
}

void VersionCatalog::insertRecovered(const RecoveredHistory& history) {
    Guard guard(lock_);
    database_.transaction([&] {
        for (const auto& file : history.files) {
            database_.run(
                "INSERT INTO files (id, folder_id, rel_path, inode, is_package, ext, deleted_at) "
                "VALUES (?, ?, ?, ?, ?, ?, ?)",
                {integer(file.id), file.folderID, file.relativePath, inodeValue(file.inode), boolean(file.isPackage),
                 optionalValue(file.fileExtension), optionalValue(file.deletedAt)});
            if (file.deletedAt)
                database_.run("INSERT INTO file_events (file_id, folder_id, at, kind) VALUES (?, ?, ?, 'deleted')",
                              {integer(file.id), file.folderID, *file.deletedAt});
            database_.run(
                "INSERT INTO watch_state (folder_id, baseline_done) VALUES (?, 1) "
                "ON CONFLICT(folder_id) DO UPDATE SET baseline_done = 1",
                {file.folderID});
        }
        for (const auto& version : history.versions) {
            database_.run(
                "INSERT INTO versions (file_id, captured_at, digest, logical_bytes, slot, payload_name, method, "
                "verified, starred, source, batch_id, replaced, folder_id, rel_path) VALUES (?, ?, ?, ?, ?, ?, ?, ?, "
                "0, ?, NULL, 0, (SELECT folder_id FROM files WHERE id = ?), ?)",
                {integer(version.fileID), version.capturedAt, version.digest, integer(version.logicalBytes),
                 version.slot, version.payloadName, std::string(toString(version.method)),
                 boolean(version.isVerified), std::string(toString(version.source)), integer(version.fileID),
                 version.relativePath});
        }
        // The dedupe gate: each file's newest contents.
        database_.run(
            "UPDATE files SET last_digest = (SELECT digest FROM versions WHERE file_id = files.id "
            "ORDER BY captured_at DESC, id DESC LIMIT 1)");
    });
}

}  // namespace vosklin

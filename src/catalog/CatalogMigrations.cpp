#include "catalog/CatalogMigrations.h"

#include "catalog/CatalogError.h"

namespace vosklin {

const std::vector<std::string>& CatalogMigrations::standard() {
    static const std::vector<std::string> migrations = {
        // 1: files, versions, watch state, meta.
        R"sql(
CREATE TABLE files (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    folder_id TEXT NOT NULL,
    rel_path TEXT NOT NULL,
    inode INTEGER,
    is_package INTEGER NOT NULL DEFAULT 0,
    ext TEXT,
    last_digest TEXT,
    deleted_at REAL,
    UNIQUE (folder_id, rel_path)
);
CREATE INDEX files_by_inode ON files (folder_id, inode);
CREATE INDEX files_by_folder ON files (folder_id, deleted_at);
CREATE TABLE versions (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    file_id INTEGER NOT NULL REFERENCES files(id) ON DELETE CASCADE,
    captured_at REAL NOT NULL,
    digest TEXT NOT NULL,
    logical_bytes INTEGER NOT NULL,
    slot TEXT NOT NULL,
    payload_name TEXT NOT NULL,
    method TEXT NOT NULL,
    verified INTEGER NOT NULL DEFAULT 1,
    starred INTEGER NOT NULL DEFAULT 0,
    source TEXT NOT NULL,
    batch_id TEXT
);
CREATE INDEX versions_by_file ON versions (file_id, captured_at DESC);
CREATE INDEX versions_by_time ON versions (captured_at);
CREATE TABLE watch_state (
    folder_id TEXT PRIMARY KEY NOT NULL,
    last_event_id INTEGER,
    last_crawl_at REAL,
    baseline_done INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE meta (
    key TEXT PRIMARY KEY NOT NULL,
    value TEXT NOT NULL
);
)sql",
        // 2: each version knows its folder; file events; moment marks.
        R"sql(
ALTER TABLE versions ADD COLUMN folder_id TEXT;
UPDATE versions SET folder_id = (SELECT files.folder_id FROM files WHERE files.id = versions.file_id);
CREATE INDEX versions_by_folder_time ON versions (folder_id, captured_at DESC);
CREATE TABLE file_events (
    file_id INTEGER NOT NULL REFERENCES files(id) ON DELETE CASCADE,
    folder_id TEXT NOT NULL,
    at REAL NOT NULL,
    kind TEXT NOT NULL
);
CREATE INDEX file_events_by_file ON file_events (file_id, at DESC);
CREATE TABLE moment_marks (
    folder_id TEXT NOT NULL,
    at REAL NOT NULL,
    name TEXT,
    kind TEXT NOT NULL,
    PRIMARY KEY (folder_id, at)
);
)sql",
        // 3: the volume an event id was recorded on.
        R"sql(
ALTER TABLE watch_state ADD COLUMN volume_id TEXT;
)sql",
        // 4: each version keeps the path it was taken under; renames record where they went.
        R"sql(
ALTER TABLE versions ADD COLUMN rel_path TEXT;
UPDATE versions SET rel_path = (SELECT files.rel_path FROM files WHERE files.id = versions.file_id);
ALTER TABLE file_events ADD COLUMN path TEXT;
)sql",
        // 5: before-rewind marks know their target; the retired "rewind" marks carry none and go.
        R"sql(
ALTER TABLE moment_marks ADD COLUMN target_at REAL;
DELETE FROM moment_marks WHERE kind = 'rewind';
)sql",
        // 6: the replacement flag.
        R"sql(
ALTER TABLE versions ADD COLUMN replaced INTEGER NOT NULL DEFAULT 0;
)sql",
        // 7: content search: extracted texts live exactly as long as a version with their digest.
        R"sql(
CREATE INDEX versions_by_digest ON versions (digest);
CREATE TABLE content_texts (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    digest TEXT UNIQUE NOT NULL,
    state INTEGER NOT NULL,
    indexed_at REAL
);
CREATE VIRTUAL TABLE content_fts USING fts5(body, tokenize = 'unicode61 remove_diacritics 2');
CREATE TRIGGER versions_drop_text AFTER DELETE ON versions
WHEN NOT EXISTS (SELECT 1 FROM versions WHERE digest = OLD.digest)
BEGIN
    DELETE FROM content_fts WHERE rowid IN (SELECT id FROM content_texts WHERE digest = OLD.digest);
    DELETE FROM content_texts WHERE digest = OLD.digest;
END;
)sql",
        // 8: how much extracted text each digest stores.
        R"sql(
ALTER TABLE content_texts ADD COLUMN text_bytes INTEGER NOT NULL DEFAULT 0;
)sql",
    };
    return migrations;
}

void CatalogMigrations::migrate(Database& database, const std::vector<std::string>& migrations,
                                const std::function<void(std::int32_t)>& onApplied) {
    const auto newest = std::int32_t(migrations.size());
    const std::int32_t version = database.userVersion();
    if (version > newest) throw CatalogError::storeIsNewerThanTheApp(version, newest);
    // No build ever writes a negative version: the header was overwritten.
    if (version < 0) throw CatalogError::damaged("schema version " + std::to_string(version));
    for (std::int32_t next = version + 1; next <= newest; ++next) {
        database.transaction([&] { database.execute(migrations[std::size_t(next - 1)]); });
        // Deliberately after the commit and outside the transaction; its failure is dropped.
        try {
            database.execute("PRAGMA user_version = " + std::to_string(next));
        } catch (const DatabaseError&) {
        }
        if (onApplied) onApplied(next);
    }
}

}  // namespace vosklin

#include "support/StoreAudit.h"

#include <sqlite3.h>

#include <filesystem>
#include <set>
#include <stdexcept>

#include "platform/PosixFileSystem.h"
#include "store/PayloadDigest.h"
#include "store/VersionSidecar.h"

namespace vosklin::test {
namespace {

namespace fs = std::filesystem;

// One read-only connection; closed on every way out.
class ReadOnlyCatalog {
public:
    explicit ReadOnlyCatalog(const std::string& path) {
        if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
            throw std::runtime_error("cannot open " + path + ": " + (db_ ? sqlite3_errmsg(db_) : "no memory"));
    }
    ~ReadOnlyCatalog() { sqlite3_close(db_); }
    ReadOnlyCatalog(const ReadOnlyCatalog&) = delete;
    ReadOnlyCatalog& operator=(const ReadOnlyCatalog&) = delete;

    // Every row of `sql`, each column as text ("" for NULL).
    std::vector<std::vector<std::string>> rows(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(db_));
        std::vector<std::vector<std::string>> result;
        int step;
        while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
            std::vector<std::string> row;
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                auto text = sqlite3_column_text(statement, i);
                row.push_back(text ? reinterpret_cast<const char*>(text) : "");
            }
            result.push_back(std::move(row));
        }
        const std::string error = step == SQLITE_DONE ? "" : sqlite3_errmsg(db_);
        sqlite3_finalize(statement);
        if (!error.empty()) throw std::runtime_error(sql + ": " + error);
        return result;
    }

private:
    sqlite3* db_ = nullptr;
};

}  // namespace

StoreAudit StoreAudit::of(const std::string& storeRoot) {
    StoreAudit audit;
    PosixFileSystem fileSystem;
    PayloadDigest digests(fileSystem);
    std::set<std::string> referenced;
    try {
        ReadOnlyCatalog catalog(storeRoot + "/index.sqlite");
        auto integrity = catalog.rows("PRAGMA integrity_check");
        if (integrity.size() != 1 || integrity[0][0] != "ok")
            audit.problems.push_back("PRAGMA integrity_check: " + (integrity.empty() ? "" : integrity[0][0]));
        auto versions = catalog.rows(
            "SELECT v.id, v.slot, v.payload_name, v.digest, v.logical_bytes, f.is_package, f.id "
            "FROM versions v LEFT JOIN files f ON f.id = v.file_id ORDER BY v.id");
        for (const auto& row : versions) {
            ++audit.versions;
            const std::string& id = row[0];
            const std::string slot = storeRoot + "/" + row[1];
            const std::string payload = slot + "/" + row[2];
            referenced.insert(fs::path(slot).lexically_normal().string());
            if (row[6].empty()) audit.problems.push_back("version " + id + " has no file row");
            if (!fs::exists(slot + "/" + std::string(VersionSidecar::fileName)))
                audit.problems.push_back("version " + id + " has no sidecar in " + row[1]);
            audit.digests.insert(row[3]);
            std::string digest;
            try {
                digest = row[5] == "1" ? digests.packageDigest(payload) : digests.fileDigest(payload);
            } catch (const std::exception& error) {
                digest = std::string("unreadable (") + error.what() + ")";
            }
            if (digest != row[3]) {
                audit.problems.push_back("version " + id + ": payload " + row[1] + "/" + row[2] + " is " + digest +
                                         ", its row says " + row[3]);
                audit.damagedBytes += std::stoll(row[4]);
            }
        }
        auto live = catalog.rows(
            "SELECT f.rel_path, f.last_digest, v.digest, v.logical_bytes FROM files f "
            "LEFT JOIN versions v ON v.id = (SELECT id FROM versions WHERE file_id = f.id "
            "ORDER BY captured_at DESC, id DESC LIMIT 1) WHERE f.deleted_at IS NULL");
        for (const auto& row : live) {
            if (row[1] != row[2])
                audit.problems.push_back(row[0] + ": last_digest " + row[1] + " but the newest version is " +
                                         (row[2].empty() ? "none" : row[2]));
            if (!row[2].empty()) audit.newestByPath[row[0]] = {row[2], std::stoll(row[3])};
        }
    } catch (const std::exception& error) {
        audit.problems.push_back(std::string("catalog: ") + error.what());
    }

    // versions/<low byte>/<file id>/<slot>/
    const fs::path versionsRoot = fs::path(storeRoot) / "versions";
    if (!fs::is_directory(versionsRoot)) return audit;
    for (const auto& group : fs::directory_iterator(versionsRoot)) {
        if (!group.is_directory()) continue;
        for (const auto& file : fs::directory_iterator(group.path())) {
            if (!file.is_directory()) continue;
            if (fs::is_empty(file.path())) audit.emptyDirectories.push_back(file.path().string());
            for (const auto& slot : fs::directory_iterator(file.path())) {
                const std::string path = slot.path().lexically_normal().string();
                if (slot.is_directory() && fs::is_empty(slot.path())) audit.emptyDirectories.push_back(path);
                else if (!referenced.count(path)) audit.orphanSlots.push_back(path);
            }
        }
    }
    return audit;
}

std::string StoreAudit::summary() const {
    std::string text;
    for (const auto& problem : problems) text += problem + "\n";
    for (const auto& directory : emptyDirectories) text += "empty: " + directory + "\n";
    return text;
}

}  // namespace vosklin::test

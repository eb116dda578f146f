#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vosklin::test {

// A store read from outside, the way a checker would see it: the catalog
// opened read-only with SQLite itself (not through VersionCatalog, whose
// faults it is meant to catch) and every payload hashed again. Nothing is
// written. A catalog that cannot be opened is one of the problems, not an
// exception. Meant for a store with one watched folder (paths are keyed by
// their relative path alone).
struct StoreAudit {
    struct Newest {
        std::string digest;
        std::int64_t logicalBytes = 0;
    };

    // Each a one-line description: "PRAGMA integrity_check" not "ok", a row
    // whose payload is missing or does not match its digest, a missing
    // sidecar, a file whose last_digest is not its newest version's.
    std::vector<std::string> problems;
    // Directories under "versions" (slots, or a file's folder of slots) with nothing in them.
    std::vector<std::string> emptyDirectories;
    // Slots with content that no version row references: harmless leftovers of an interrupted capture.
    std::vector<std::string> orphanSlots;
    std::int64_t versions = 0;
    // Logical bytes of the rows whose payload is missing or damaged.
    std::int64_t damagedBytes = 0;
    // The newest version of every live (not tombstoned) file, by relative path.
    std::map<std::string, Newest> newestByPath;
    // The digest of every version, whatever its file.
    std::set<std::string> digests;

    static StoreAudit of(const std::string& storeRoot);
    // Problems and empty directories, one per line: for a failure message.
    std::string summary() const;
};

}  // namespace vosklin::test

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Builds a new catalog from the sidecars of the slots under "versions", for a
// store whose catalog is lost or damaged.
//
// What comes back: each file (under the id its slots are filed by, at the
// path of its newest version), each version with its digest, size, method,
// verification flag, payload name, instant (whole seconds, as sidecars keep
// it) and the path it was taken under. A file whose path is gone now is marked
// deleted at the rebuild's instant. Sidecars do not record why a capture
// happened, so every version's source is "crawl" (a version found, cause
// unknown); names of moments, stars, batches and rename events are not in
// the store and are not recovered.
//
// Slots that cannot be taken are reported and left where they are: no sidecar,
// an unreadable one, a missing payload, or an originalPath inside none of the
// given folders. Nothing is ever deleted: the old catalog (and its -wal and
// -shm companions) is renamed to "index.sqlite.damaged-<stamp>", and the new one
// is built beside it under another name and renamed into place only when
// complete, so an interruption leaves either the old state or the new one.
// Failures of the file system or SQLite are thrown. Not thread-safe; the caller
// makes sure no daemon has the store open.
class CatalogRebuilder {
public:
    struct Skipped {
        std::string slot;
        std::string reason;  // one line; may hold path bytes that are not UTF-8
    };
    struct Report {
        std::int64_t slots = 0;
        std::int64_t files = 0;
        std::int64_t versions = 0;
        std::vector<Skipped> skipped;
        std::optional<std::string> setAsideAs;  // the old catalog's new name, when there was one
    };
    using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

    // `folderRoots` maps each folder id to its root; a sidecar is given to the folder whose root holds it.
    CatalogRebuilder(const VersionStoreLayout& layout, FileSystem& fileSystem, Clock& clock,
                     std::map<std::string, std::string> folderRoots);

    Report rebuild(const Progress& progress = nullptr);

private:
    std::optional<std::string> setAsideOldCatalog();

    const VersionStoreLayout& layout_;
    FileSystem& fileSystem_;
    Clock& clock_;
    std::map<std::string, std::string> folderRoots_;
};

}  // namespace vosklin

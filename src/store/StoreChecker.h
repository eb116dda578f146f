#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "catalog/VersionCatalog.h"
#include "store/PayloadDigest.h"
#include "store/StoreProblem.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Proves that every version the catalog holds can be given back as recorded:
// its slot, payload and sidecar are there, the sidecar agrees with the row, and
// (when asked to read the data) the payload still hashes to the row's digest.
//
// Read-only: it changes neither the catalog nor the store. Holds references to
// its collaborators, which must outlive it. What it finds is returned, never
// thrown; failures of the catalog itself (DatabaseError) are thrown. Not
// thread-safe; run one check at a time.
class StoreChecker {
public:
    struct Options {
        std::optional<std::string> folderID;  // only this folder's versions (orphans are then not looked for)
        bool readData = false;                // re-hash every payload
    };
    struct Report {
        std::int64_t versionsChecked = 0;
        std::vector<StoreProblem> problems;
        std::vector<StoreProblem> notes;
    };
    using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

    // `folderRoots` maps folder ids to their roots, to compare a sidecar's
    // originalPath with the root plus the path at capture; folders not in it are not compared.
    StoreChecker(VersionCatalog& catalog, const VersionStoreLayout& layout, FileSystem& fileSystem,
                 PayloadDigest& digest, std::map<std::string, std::string> folderRoots);

    Report check(const Options& options, const Progress& progress = nullptr);

private:
    void checkVersion(const PlacedVersion& placed, bool readData, std::vector<StoreProblem>& problems);

    VersionCatalog& catalog_;
    const VersionStoreLayout& layout_;
    FileSystem& fileSystem_;
    PayloadDigest& digest_;
    std::map<std::string, std::string> folderRoots_;
};

}  // namespace vosklin

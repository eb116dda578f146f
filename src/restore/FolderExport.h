#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>

#include "bridge/WatchedFolder.h"
#include "catalog/VersionCatalog.h"
#include "platform/FileSystem.h"
#include "store/PayloadCloner.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Why an export was refused or failed; nothing is left at the destination.
class ExportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writes a watched folder as it was at an instant into a new directory: every
// file that existed then, with the bytes of its version then, cloned from the
// store where the file system allows (a copy elsewhere), mode, times and
// extended attributes included.
//
// Never overwrites: the destination must not exist, and is created with
// mkdir, which fails if anything got there first; every file is created with
// O_EXCL inside it. Refused: a destination inside Vosklin's store or inside
// the folder being exported, a parent that does not exist, a stored copy the
// catalog places outside the store, a relative path that climbs out. On any
// failure or when stopped, what this export created is removed and
// ExportError thrown; the folder and its history are only read.
// Not thread-safe; the collaborators are.
class FolderExport {
public:
    struct Report {
        std::string destination;
        std::int64_t fileCount = 0;
        std::int64_t clonedCount = 0;  // the rest were copied
        std::int64_t logicalBytes = 0;
    };
    // Called after each file with (done, total).
    using Progress = std::function<void(std::int64_t, std::int64_t)>;

    FolderExport(VersionCatalog& catalog, const VersionStoreLayout& layout, PayloadCloner& cloner,
                 FileSystem& fileSystem);

    Report run(const WatchedFolder& folder, double instant, const std::string& destination,
               const Progress& progress = {}, std::stop_token stop = {});

private:
    std::string checkedDestination(const WatchedFolder& folder, const std::string& destination);
    void exportFiles(const WatchedFolder& folder, double instant, const std::string& root, Report& report,
                     const Progress& progress, std::stop_token stop);

    VersionCatalog& catalog_;
    const VersionStoreLayout& layout_;
    PayloadCloner& cloner_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

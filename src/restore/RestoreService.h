#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "bridge/FolderList.h"
#include "capture/CaptureService.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "restore/RestoreError.h"
#include "restore/RestoreJournal.h"
#include "restore/SafePlacement.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

struct RestoreReport {
    RestoreMode mode = RestoreMode::copyBeside;
    std::string restoredPath;
    std::optional<std::int64_t> preRestoreVersionID;
};

// Puts one stored version back into its folder: as a copy beside the file
// ("Report (restored).txt") or over it.
//
// Invariants:
//  1. Nothing is written before the path policy has passed.
//  2. Content that an in-place restore overwrites is captured first (source
//     "preRestore"), so it stays in history.
//  3. The journal is on disk before the first write into the folder and is
//     removed only after the manifest records the end.
//  4. The destination holds the old content or the new, whole, at every
//     instant (SafePlacement: scratch copy, then an atomic swap).
//  5. A scratch item is removed on failure, or by launch-time recovery.
// States: not started -> journaled -> scratch made -> swapped -> finished
// (manifest written, journal removed). A crash leaves the journal; recovery
// sweeps the scratch item and any half-written journal temporaries, and
// writes the manifest with `recoveredAt`.
//
// Restores through one instance run one at a time. `beforeWrite` hears the
// paths about to be written, so the engine does not capture Vosklin's own writes.
class RestoreService {
public:
    struct Collaborators {
        VersionCatalog& catalog;
        VersionStoreLayout& layout;
        CaptureService& capture;
        FolderList& folders;
        FileSystem& fileSystem;
        PayloadCloner& cloner;
        Clock& clock;
        Logger& logger;
    };

    explicit RestoreService(Collaborators collaborators);

    std::function<void(const std::vector<std::string>& paths)> beforeWrite;

    RestoreReport restore(std::int64_t versionID, RestoreMode mode);
    // The version before the file's newest one, restored in place.
    RestoreReport restorePrevious(const std::string& folderID, const std::string& relativePath);
    std::vector<RestoreJournal::Interrupted> recoverInterrupted();

    // The copy-beside name: "stem (word).ext", then "stem (word 2).ext" ... 999, then a UUID.
    static std::string copyName(const std::string& name, int attempt, const std::string& word);

private:
    Collaborators c_;
    std::mutex lock_;
};

}  // namespace vosklin

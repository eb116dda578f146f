#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge/WatchedFolder.h"
#include "capture/ExcludeRules.h"
#include "capture/PackageKinds.h"
#include "restore/RestoreService.h"
#include "restore/RewindJournal.h"
#include "restore/RewindPlan.h"
#include "store/StoredPayload.h"

namespace vosklin {

class RewindError : public std::runtime_error {
public:
    // `captureFailed`: what the rewind would overwrite or remove could not be
    // kept first, so it stopped before writing anything.
    enum class Kind {
        blockedBySafetyPolicy,  // a destination outside the watched folder
        payloadOutsideStore,    // a stored copy the catalog places outside the store
        payloadMissing,
        nothingToDo,
        folderUnreadable,
        captureFailed,
    };
    RewindError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
    Kind kind() const { return kind_; }
    // The key of the user-facing text ("rewind.error.*").
    std::string textKey() const;

private:
    Kind kind_;
};

struct RewindReport {
    double target = 0;
    double beforeRewindAt = 0;
    std::int64_t revertedCount = 0;
    std::int64_t restoredCount = 0;
    std::int64_t removedCount = 0;
    std::vector<std::string> failedPaths;
};

// Puts a whole watched folder back to its state at a moment, undoably.
//
// Invariants:
//  1. The checks that can fail (nothing to do, a path refused by the policy,
//     a payload gone) run before anything is written.
//  2. Before the first write, whatever stands at a path the rewind will
//     overwrite or remove is captured (source "preRewind"), walked or not (a
//     name excluded since its capture is still overwritten), and a
//     "beforeRewind" mark is put on that instant: rewinding to that moment
//     undoes the rewind, even after a crash. If any of it cannot be kept, the
//     rewind stops there (captureFailed) and writes nothing. What no version
//     can hold (a folder where a file goes, a link) fails that path and is
//     left as it is.
//  3. The journal names every write (with its scratch path) before the first one.
//  4. Each file is placed atomically (SafePlacement); a failed path is logged
//     and skipped, the others go on. Scratch items left by failed writes are
//     removed at the end; one that cannot be stays named by the journal,
//     which is then kept beside the manifest for recovery to finish.
//  5. Afterwards the written files are captured ("rewound"), removed ones
//     tombstoned, a "rewind" mark records the target, emptied folders are
//     swept, and the manifest is written before the journal is removed.
// Recovery removes every scratch item a journal names, finished or not.
// States: not started -> journaled -> writing -> written -> finished.
class RewindService {
public:
    RewindService(RestoreService::Collaborators collaborators, ExcludeRules excludes, PackageKinds packages);

    std::function<void(const std::vector<std::string>& paths)> beforeWrite;

    // The plan for rewinding `folder` to `target`: the catalog's state then
    // against the folder now (walked by the capture rules; digests computed
    // where the catalog's cannot be trusted).
    RewindPlan plan(const WatchedFolder& folder, double target);
    RewindReport rewind(const WatchedFolder& folder, const RewindPlan& plan);
    std::vector<RewindJournal::Interrupted> recoverInterrupted();

    // The instant undoing the latest rewind goes back to: its before-rewind mark.
    // Both marks of one rewind carry its target; naming a moment turns a mark's
    // kind to `named` but keeps that target, so the pair is found by the target
    // rather than by kind alone. `marks` newest first; none when there is no
    // rewind to undo (or its before-rewind mark is gone).
    static std::optional<double> undoTarget(const std::vector<MomentMark>& marks);

private:
    // A step with everything its write needs, checked before anything is written.
    struct ResolvedStep {
        const RewindPlan::Step* step;
        std::string destination;
        std::string payload;
        std::string scratchName;  // empty for a removal
        std::optional<StoredPayload> stored;  // what a write puts back, checked once staged
    };
    void failPath(RewindReport& report, const RewindPlan::Step& step, const std::string& why);
    // Whether what stands at `path` has the content `digest` names (file or package).
    bool isWrittenAs(const std::string& path, const FileStatus& standing, const std::string& digest);
    // Removes the scratch items still in the folder; false when one could not be removed.
    bool removeScratch(const WatchedFolder& folder, const std::vector<ResolvedStep>& resolved);

    RestoreService::Collaborators c_;
    ExcludeRules excludes_;
    PackageKinds packages_;
    std::mutex lock_;
};

}  // namespace vosklin

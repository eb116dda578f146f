#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/FileStateAt.h"

namespace vosklin {

// What rewinding a folder to an instant would do: the target state (each file
// as it was then, with the version holding its content) against the live
// folder. Steps are sorted by path (plain byte order).
struct RewindPlan {
    struct Step {
        enum class Action { revert, restoreDeleted, removeAdded };

        std::string relativePath;
        Action action = Action::revert;
        std::optional<std::int64_t> versionID;  // the version put back (revert, restoreDeleted)
        std::optional<std::int64_t> fileID;
        bool isPackage = false;
        std::optional<std::int64_t> currentBytes;   // none when absent now
        std::optional<std::int64_t> restoredBytes;  // none for a removal

        bool operator==(const Step&) const = default;
    };

    // One item present in the folder now.
    struct LiveFile {
        std::string relativePath;
        std::int64_t bytes = 0;
        std::optional<std::string> digest;  // when known; else the catalog's last digest is trusted
        std::optional<double> modifiedAt;
        bool isPackage = false;
    };

    std::vector<Step> steps;
    double target = 0;

    // A live file whose digest (its own, else the tracked file's last one)
    // equals the target version's is unchanged; with no digest at all it is reverted.
    static RewindPlan make(const std::vector<FileStateAt>& targetStates, const std::vector<LiveFile>& liveFiles,
                           double target);

    std::int64_t count(Step::Action action) const;

    // SHA-256 over the target instant and the ordered steps (action, path,
    // version put back): two plans with the same fingerprint do the same
    // writes. It lets a plan shown to the user be told from the plan about to run.
    std::string fingerprint() const;
};

std::string_view toString(RewindPlan::Step::Action action);

}  // namespace vosklin

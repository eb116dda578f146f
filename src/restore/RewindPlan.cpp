#include "restore/RewindPlan.h"

#include <algorithm>
#include <unordered_map>

#include "store/Sha256.h"

namespace vosklin {

std::string_view toString(RewindPlan::Step::Action action) {
    switch (action) {
        case RewindPlan::Step::Action::revert: return "revert";
        case RewindPlan::Step::Action::restoreDeleted: return "restoreDeleted";
        case RewindPlan::Step::Action::removeAdded: return "removeAdded";
    }
    return "";
}

RewindPlan RewindPlan::make(const std::vector<FileStateAt>& targetStates, const std::vector<LiveFile>& liveFiles,
                            double target) {
    using Action = Step::Action;
    std::unordered_map<std::string, const LiveFile*> live;
    for (const auto& file : liveFiles) live[file.relativePath] = &file;
    RewindPlan plan;
    plan.target = target;
    for (const auto& state : targetStates) {
        auto found = live.find(state.file.relativePath);
        if (found == live.end()) {
            plan.steps.push_back({state.file.relativePath, Action::restoreDeleted, state.version.id, state.file.id,
                                  state.file.isPackage, std::nullopt, state.version.logicalBytes});
            continue;
        }
        const LiveFile& now = *found->second;
        const auto digest = now.digest ? now.digest : state.file.lastDigest;
        if (!digest || *digest != state.version.digest)
            plan.steps.push_back({state.file.relativePath, Action::revert, state.version.id, state.file.id,
                                  state.file.isPackage, now.bytes, state.version.logicalBytes});
        live.erase(found);
    }
    for (const auto& [path, file] : live)
        plan.steps.push_back({path, Action::removeAdded, std::nullopt, std::nullopt, file->isPackage, file->bytes,
                              std::nullopt});
    std::sort(plan.steps.begin(), plan.steps.end(),
              [](const Step& a, const Step& b) { return a.relativePath < b.relativePath; });
    return plan;
}

std::string RewindPlan::fingerprint() const {
    Sha256 hash;
    // The exact bits of the instant: printed text would round it.
    hash.update(&target, sizeof target);
    for (const auto& step : steps) {
        // NUL cannot occur in a path, so the fields cannot run into each other.
        const std::string version = step.versionID ? std::to_string(*step.versionID) : "-";
        hash.update(toString(step.action));
        hash.update(std::string_view("\0", 1));
        hash.update(step.relativePath);
        hash.update(std::string_view("\0", 1));
        hash.update(version);
        hash.update(std::string_view("\0", 1));
    }
    return hash.hex();
}

std::int64_t RewindPlan::count(Step::Action action) const {
    return std::count_if(steps.begin(), steps.end(), [&](const Step& step) { return step.action == action; });
}

}  // namespace vosklin

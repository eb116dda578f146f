#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vosklin {

// Which paths inside a watched folder are never captured.
//
// Each pattern is an fnmatch(3) glob with no flags, matched against one path
// component at a time (never across "/"), at every depth: "node_modules"
// excludes a/node_modules/b/c.js, "*.mov" excludes every .mov file and every
// folder whose name ends in .mov. Vosklin's own scratch items (restore and
// rewind write beside the destination first, then swap) are excluded by every
// rule set, patterns or none: they are never watched, walked or tracked, so
// the swap that puts a file back is not taken for a move of it. A value type.
class ExcludeRules {
public:
    // Restore and rewind name their scratch items with this prefix and a UUID.
    static constexpr std::string_view ownScratchPrefix = ".vosklin-restore-";

    explicit ExcludeRules(std::vector<std::string> patterns = {}) : patterns_(std::move(patterns)) {}

    // The sixteen built-in patterns followed by the user's ("vosklin.excludePatterns").
    static ExcludeRules standard(const std::vector<std::string>& userPatterns);
    static const std::vector<std::string>& builtInPatterns();
    // The built-in patterns and the user's "vosklin.excludePatterns", read now.
    static ExcludeRules fromSettings(class Settings& settings);

    // `relativePath` is relative to the watched root, "/"-separated.
    bool excludes(std::string_view relativePath) const;
    bool excludesName(const std::string& name) const;
    const std::vector<std::string>& patterns() const { return patterns_; }

    bool operator==(const ExcludeRules&) const = default;

private:
    std::vector<std::string> patterns_;
};

}  // namespace vosklin

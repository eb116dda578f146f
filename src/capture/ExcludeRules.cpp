#include "capture/ExcludeRules.h"

#include <fnmatch.h>

#include "platform/Settings.h"

namespace vosklin {

const std::vector<std::string>& ExcludeRules::builtInPatterns() {
    static const std::vector<std::string> patterns = {
        "node_modules", ".git",          ".svn",          ".hg",           "DerivedData",    ".build",
        ".next",        ".venv",         "__pycache__",   "*.xcodeproj",   "*.xcworkspace",  "*.photoslibrary",
        "*.fcpbundle",  "*.logicx",      "*.aplibrary",   "*.tmbundle",
    };
    return patterns;
}

ExcludeRules ExcludeRules::standard(const std::vector<std::string>& userPatterns) {
    std::vector<std::string> patterns = builtInPatterns();
    patterns.insert(patterns.end(), userPatterns.begin(), userPatterns.end());
    return ExcludeRules(std::move(patterns));
}

ExcludeRules ExcludeRules::fromSettings(Settings& settings) {
    return standard(settings.strings("vosklin.excludePatterns").value_or(std::vector<std::string>{}));
}

bool ExcludeRules::excludesName(const std::string& name) const {
    if (name.starts_with(ownScratchPrefix)) return true;
    for (const auto& pattern : patterns_)
        if (::fnmatch(pattern.c_str(), name.c_str(), 0) == 0) return true;
    return false;
}

bool ExcludeRules::excludes(std::string_view relativePath) const {
    std::size_t start = 0;
    while (start <= relativePath.size()) {
        std::size_t end = relativePath.find('/', start);
        if (end == std::string_view::npos) end = relativePath.size();
        if (end > start && excludesName(std::string(relativePath.substr(start, end - start)))) return true;
        start = end + 1;
    }
    return false;
}

}  // namespace vosklin

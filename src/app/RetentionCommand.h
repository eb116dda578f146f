#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin prune`, `vosklin delete` and `vosklin usage`: what history takes and
// giving space back. Prune and delete go through the daemon when one runs (so
// they never interleave with its captures' bookkeeping or a rewind), in this
// process otherwise; usage only reads.
class RetentionCommand {
public:
    RetentionCommand(AppContext& context, std::ostream& out, std::ostream& err);
    int prune(bool dryRun, bool json);
    // Either `versionIDs` or `wholeHistoryOf` (a file's path).
    int erase(const std::vector<std::string>& versionIDs, const std::optional<std::string>& wholeHistoryOf,
              bool dryRun, bool yes, bool json);
    int usage(const std::optional<std::string>& folderName, bool json);

private:
    nlohmann::json call(const std::string& name, const nlohmann::json& request);
    void printSheet(const nlohmann::json& preview);

    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

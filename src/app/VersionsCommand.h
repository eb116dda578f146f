#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin versions PATH` (a file's versions, newest first) and
// `vosklin cat VERSION [-o FILE]` (a version's bytes).
class VersionsCommand {
public:
    VersionsCommand(AppContext& context, std::ostream& out);

    int versions(const std::string& path, bool json);
    int cat(const std::string& version, const std::optional<std::string>& output);

private:
    AppContext& context_;
    std::ostream& out_;
};

}  // namespace vosklin

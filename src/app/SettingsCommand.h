#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin settings [KEY [VALUE...]] [--reset] [--json]`: lists the settings
// with their meaning and default, shows one, or sets it (after checking the
// value; unknown keys and bad values are refused and nothing is written).
// Settings are read on use, so a running daemon follows without a restart.
class SettingsCommand {
public:
    SettingsCommand(AppContext& context, std::ostream& out);
    int run(const std::optional<std::string>& key, const std::vector<std::string>& values, bool reset, bool json);

private:
    AppContext& context_;
    std::ostream& out_;
};

}  // namespace vosklin

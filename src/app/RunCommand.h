#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin run [FOLDER...] [--background]`: the daemon. Takes the home's
// single-instance lock, adds the folders given (if not yet watched), opens
// the store, starts the capture engine and the local API, and records until
// SIGINT or SIGTERM, when it captures what has settled, writes its last
// checkpoint and withdraws its endpoint files.
class RunCommand {
public:
    RunCommand(AppContext& context, std::ostream& out, std::ostream& err);

    int run(const std::vector<std::string>& folders, bool background);

private:
    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

// `vosklin autostart on|off`: a systemd user unit that runs `vosklin run --background` at login.
class AutostartCommand {
public:
    AutostartCommand(const std::optional<std::string>& homeOption, std::ostream& out, std::ostream& err);

    int run(const std::string& state);

private:
    std::optional<std::string> homeOption_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "app/AppContext.h"
#include "app/DaemonEndpoint.h"

namespace vosklin {

// `vosklin ui [--no-open]`: the window. Starts the daemon when none runs for this
// home (`vosklin run --background`, detached, with the same --home) and waits for
// it, asks it over the command line's socket for a one-time login code, prints
// the login URL as the only line on standard output, and opens it with xdg-open
// unless told not to (without xdg-open that is a note on standard error).
class UiCommand {
public:
    // How long a daemon started here may take to come up.
    static constexpr double startTimeout = 15;

    UiCommand(AppContext& context, const std::optional<std::string>& homeOption, std::ostream& out,
              std::ostream& err);

    int run(bool open);

private:
    DaemonEndpoint startDaemon();

    AppContext& context_;
    std::optional<std::string> homeOption_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

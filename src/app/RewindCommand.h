#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin rewind FOLDER MOMENT [--dry-run] [--yes] [--json]` and `vosklin undo-rewind FOLDER`.
// Shows the plan, asks on a terminal unless --yes, then rewinds (through the
// daemon when one runs).
class RewindCommand {
public:
    RewindCommand(AppContext& context, std::ostream& out, std::ostream& err);

    // With `json`, the plan (--dry-run) or the report is printed as JSON, and nothing is asked.
    int rewind(const std::string& folder, const std::string& moment, bool dryRun, bool yes, bool json = false);
    int undo(const std::string& folder, bool dryRun, bool yes, bool json = false);

private:
    int rewindTo(const WatchedFolder& folder, double target, bool dryRun, bool yes, bool json);
    void printPlan(const RewindPlan& plan);

    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

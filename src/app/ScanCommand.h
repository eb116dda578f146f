#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin scan FOLDER` (a reconciliation crawl now; the baseline on a new
// folder) and `vosklin snapshot FOLDER` (every unit, source manual, one batch).
// Ctrl-C stops either between two files, keeping what was captured.
class ScanCommand {
public:
    ScanCommand(AppContext& context, std::ostream& out, std::ostream& err);

    int scan(const std::string& folder, bool json);
    int snapshot(const std::string& folder, bool json);

private:
    CrawlReport run(const WatchedFolder& folder, const std::string& reason, const CrawlOptions& options, bool json);

    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

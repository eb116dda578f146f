#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin export FOLDER MOMENT DEST`: the folder as it was at a moment, written
// into a new folder DEST (see FolderExport). Ctrl-C stops it and removes what
// it wrote. Reads the catalog only, so it works whether or not the daemon runs.
class ExportCommand {
public:
    ExportCommand(AppContext& context, std::ostream& out, std::ostream& err);
    int run(const std::string& folder, const std::string& moment, const std::string& destination, bool json);

private:
    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

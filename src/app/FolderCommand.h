#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin folder ...`: the list of watched folders.
class FolderCommand {
public:
    FolderCommand(AppContext& context, std::ostream& out);

    int add(const std::string& path, bool manual, bool json);
    int list(bool json);
    int remove(const std::string& folder, bool forgetHistory);
    int setPaused(const std::string& folder, bool paused);
    int setMode(const std::string& folder, const std::string& mode);
    int setBudget(const std::string& folder, const std::string& budget);

private:
    AppContext& context_;
    std::ostream& out_;
};

}  // namespace vosklin

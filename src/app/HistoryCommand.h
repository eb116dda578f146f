#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// Reading history: `history`, `show`, and marking it: `name`, `unname`, `star`, `unstar`.
class HistoryCommand {
public:
    HistoryCommand(AppContext& context, std::ostream& out);

    int history(const std::string& folder, bool json, bool all);
    int show(const std::string& folder, const std::string& at, bool json);
    int name(const std::string& folder, const std::string& moment, const std::optional<std::string>& name);
    int star(const std::string& version, bool starred);
    int restore(const std::string& version, bool inPlace, const std::optional<std::string>& previous);

private:
    AppContext& context_;
    std::ostream& out_;
};

}  // namespace vosklin

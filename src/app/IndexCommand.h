#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin index`: how far the search index has read the history, and the two
// things a user may ask of it: forget everything read (--clear) and read what
// is still pending now (--now). Goes through the daemon when it runs, so its
// indexer is the one that works; in this process otherwise.
class IndexCommand {
public:
    enum class Action { status, clear, now };

    IndexCommand(AppContext& context, std::ostream& out, std::ostream& err);
    int run(Action action, bool json);

private:
    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

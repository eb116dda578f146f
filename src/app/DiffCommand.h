#pragma once

#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin diff OLD NEW`: OLD and NEW are version numbers, or a version number
// and the path of a live file. Prints a unified-style difference with both
// line numbers (coloured on a terminal, three lines of context around each
// change), the summary of a large comparison, or that the versions are not text.
class DiffCommand {
public:
    DiffCommand(AppContext& context, std::ostream& out, int outputFd);

    int run(const std::string& older, const std::string& newer, bool json);

private:
    struct Side {
        std::string label;
        std::string bytes;
    };
    Side load(const std::string& versionOrPath);

    AppContext& context_;
    std::ostream& out_;
    bool colour_;
};

}  // namespace vosklin

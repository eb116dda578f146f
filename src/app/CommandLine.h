#pragma once

#include <ostream>

namespace vosklin {

// The `vosklin` command: parses arguments, builds the collaborators each
// subcommand needs and runs it. Returns the process exit status: 0 on
// success, 1 when the command failed, 2 for a usage error.
class CommandLine {
public:
    CommandLine(std::ostream& out, std::ostream& err);
    int run(int argc, char** argv);

private:
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin

#pragma once

#include <map>
#include <string>
#include <vector>

namespace vosklin::test {

struct CommandResult {
    int exitStatus = -1;
    std::string out;
    std::string err;
};

// Runs the built `vosklin` binary with `arguments`, and the extra environment
// variables given, and collects what it printed.
CommandResult runVosklin(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment = {});

}  // namespace vosklin::test

#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vosklin::test {

struct CommandResult {
    int exitStatus = -1;
    std::string out;
    std::string err;
};

// Runs the built `vosklin` binary with `arguments`, and the extra environment
// variables given, and collects what it printed. A `launcher` (a program and
// its arguments, such as setpriv dropping to another user) runs the binary.
CommandResult runVosklin(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment = {},
                         const std::vector<std::string>& launcher = {});

// Runs `vosklin --home HOME ...`; `json` runs a command that must succeed with
// --json and parses its output (a failure or non-JSON output fails the test).
CommandResult runInHome(const std::string& home, std::vector<std::string> arguments);
nlohmann::json jsonInHome(const std::string& home, std::vector<std::string> arguments);

// A failed command: exit status 1 and one line on stderr, "vosklin: ...", that contains `because`.
void expectRefused(const CommandResult& result, const std::string& because);

}  // namespace vosklin::test

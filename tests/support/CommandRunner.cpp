#include "support/CommandRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "support/TempDirectory.h"

namespace vosklin::test {

CommandResult runVosklin(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const std::vector<std::string>& launcher) {
    TempDirectory capture;
    const std::string outPath = capture / "out", errPath = capture / "err";
    pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) {
        int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int in = ::open("/dev/null", O_RDONLY);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::dup2(in, 0);
        ::unsetenv("VOSKLIN_HOME");
        for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv;
        std::string binary = VOSKLIN_BINARY;
        std::vector<std::string> copies = launcher;
        copies.push_back(binary);
        copies.insert(copies.end(), arguments.begin(), arguments.end());
        for (auto& argument : copies) argv.push_back(argument.data());
        argv.push_back(nullptr);
        ::execv(argv.front(), argv.data());
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
    }
    CommandResult result;
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

CommandResult runInHome(const std::string& home, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--home", home});
    return runVosklin(arguments);
}

nlohmann::json jsonInHome(const std::string& home, std::vector<std::string> arguments) {
    arguments.push_back("--json");
    auto result = runInHome(home, arguments);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    try {
        return nlohmann::json::parse(result.out);
    } catch (const nlohmann::json::exception& error) {
        ADD_FAILURE() << "not JSON (" << error.what() << "): " << result.out;
        return nlohmann::json::object();
    }
}

void expectRefused(const CommandResult& result, const std::string& because) {
    EXPECT_EQ(result.exitStatus, 1) << result.out;
    EXPECT_TRUE(result.err.starts_with("vosklin: ")) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_NE(result.err.find(because), std::string::npos) << result.err;
}

}  // namespace vosklin::test

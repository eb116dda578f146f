#include "app/UiCommand.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "platform/PathNames.h"

extern char** environ;

namespace vosklin {
namespace {

// Starts `arguments` in a session of its own with standard input and output on /dev/null
// (and standard error too unless `keepErrors`): nothing it prints mixes with ours, and it
// outlives this process. Returns its pid, or the errno of a failed start.
std::pair<pid_t, int> spawnDetached(const std::vector<std::string>& arguments, bool searchPath, bool keepErrors) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (!keepErrors) posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int error = searchPath ? ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ)
                                 : ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return {error == 0 ? pid : -1, error};
}

}  // namespace

UiCommand::UiCommand(AppContext& context, const std::optional<std::string>& homeOption, std::ostream& out,
                     std::ostream& err)
    : context_(context), homeOption_(homeOption), out_(out), err_(err) {}

DaemonEndpoint UiCommand::startDaemon() {
    auto& fileSystem = context_.fileSystem();
    const std::string container = context_.locator().containerRoot();
    pid_t child = -1;
    // A daemon holding the lock is on its way up: it is waited for, not raced.
    if (DaemonEndpoint::lock(fileSystem, container)) {
        std::vector<std::string> command = {fileSystem.resolvedPath("/proc/self/exe"), "run", "--background"};
        if (homeOption_) command.insert(command.end(), {"--home", absolutePath(*homeOption_)});
        const auto [pid, error] = spawnDetached(command, false, false);
        if (pid < 0) throw CommandError(std::string("The Vosklin daemon could not be started: ") + std::strerror(error));
        child = pid;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(startTimeout);
    std::optional<int> exitStatus;
    for (;;) {
        if (auto endpoint = DaemonEndpoint::find(fileSystem, container)) return *endpoint;
        int status = 0;
        if (child > 0 && !exitStatus && ::waitpid(child, &status, WNOHANG) == child)
            exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        // It gave up, and no other daemon is starting in its place.
        if (exitStatus && DaemonEndpoint::lock(fileSystem, container))
            throw CommandError("The Vosklin daemon stopped as it started (exit status " + std::to_string(*exitStatus) +
                               "); run 'vosklin run' to see why");
        if (std::chrono::steady_clock::now() >= deadline)
            throw CommandError("The Vosklin daemon did not come up within " +
                               std::to_string(int(startTimeout)) + " s; run 'vosklin run' to see why");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

int UiCommand::run(bool open) {
    auto endpoint = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot());
    if (!endpoint) endpoint = startDaemon();
    // Over the socket only this user can reach: the daemon hands codes to no one else.
    const auto answer = DaemonClient(*endpoint).call("logincode", nlohmann::json::object(), 30);
    const std::string code = answer.value("code", std::string());
    if (code.empty()) throw CommandError("The Vosklin daemon gave no login code");
    const std::string url = "http://127.0.0.1:" + std::to_string(endpoint->port) + "/login?code=" + code;
    out_ << url << "\n" << std::flush;
    if (!open) return 0;
    const auto [pid, error] = spawnDetached({"xdg-open", url}, true, true);
    if (pid < 0) {
        err_ << "vosklin: could not open a browser (xdg-open: " << std::strerror(error)
             << "); open the address above in one. It works once, within two minutes.\n";
    }
    return 0;
}

}  // namespace vosklin

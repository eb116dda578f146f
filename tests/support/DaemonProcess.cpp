#include "support/DaemonProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

namespace vosklin::test {
namespace {

using Steady = std::chrono::steady_clock;
constexpr auto pollStep = std::chrono::milliseconds(20);

std::string readIfThere(const std::string& path) {
    try {
        return readFile(path);
    } catch (const std::exception&) {
        return "";
    }
}

std::string describeStatus(int status) {
    return status >= 128 ? "was killed by signal " + std::to_string(status - 128)
                         : "exited with status " + std::to_string(status);
}

}  // namespace

DaemonProcess::DaemonProcess(std::string home, std::vector<std::string> folders)
    : home_(std::move(home)), folders_(std::move(folders)) {}

DaemonProcess::~DaemonProcess() {
    if (pid_ > 0 && !exitStatus_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
}

void DaemonProcess::launch() {
    if (pid_ > 0) throw std::logic_error("DaemonProcess launched twice");
    const std::string outPath = output_ / "out", errPath = output_ / "err";
    std::vector<std::string> arguments = {VOSKLIN_BINARY, "--home", home_, "run"};
    arguments.insert(arguments.end(), folders_.begin(), folders_.end());
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();

    pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) {
        // A crashed test must not leave a daemon running.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int in = ::open("/dev/null", O_RDONLY);
        if (out < 0 || err < 0 || in < 0) ::_exit(127);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::close_range(3, ~0U, 0);
        // The daemon takes its stop signals with sigwait; start it as a shell would.
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(signal, SIG_DFL);
        ::unsetenv("VOSKLIN_HOME");
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    pid_ = child;
}

void DaemonProcess::reap(int status) {
    exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool DaemonProcess::isRunning() {
    if (pid_ <= 0 || exitStatus_) return false;
    int status = 0;
    pid_t done = ::waitpid(pid_, &status, WNOHANG);
    if (done == pid_) {
        reap(status);
        return false;
    }
    return true;
}

std::optional<int> DaemonProcess::waitForExit(double timeoutSeconds) {
    const auto deadline = Steady::now() + std::chrono::duration<double>(timeoutSeconds);
    while (isRunning()) {
        if (Steady::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(pollStep);
    }
    return exitStatus_;
}

::testing::AssertionResult DaemonProcess::start(double timeoutSeconds) {
    launch();
    const std::string endpointPath = home_ + "/daemon.json";
    const auto deadline = Steady::now() + std::chrono::duration<double>(timeoutSeconds);
    for (;;) {
        if (!isRunning()) {
            return ::testing::AssertionFailure() << "the daemon " << describeStatus(*exitStatus_)
                                                 << " before publishing daemon.json; it printed:\n"
                                                 << standardError() << standardOutput();
        }
        // A daemon.json left by an earlier daemon names another pid.
        auto endpoint = nlohmann::json::parse(readIfThere(endpointPath), nullptr, false);
        if (endpoint.is_object() && endpoint.value("pid", 0) == pid_) {
            port_ = endpoint.value("port", 0);
            socketPath_ = endpoint.value("socket", "");
            token_ = readIfThere(home_ + "/api-token");
            while (!token_.empty() && token_.back() == '\n') token_.pop_back();
            return ::testing::AssertionSuccess();
        }
        if (Steady::now() >= deadline) {
            return ::testing::AssertionFailure() << "no daemon.json naming pid " << pid_ << " after "
                                                 << timeoutSeconds << " s; the daemon printed:\n"
                                                 << standardError() << standardOutput();
        }
        std::this_thread::sleep_for(pollStep);
    }
}

int DaemonProcess::stop(double timeoutSeconds) {
    if (pid_ <= 0) throw std::logic_error("DaemonProcess stopped before it was started");
    if (isRunning()) ::kill(pid_, SIGTERM);
    if (auto status = waitForExit(timeoutSeconds)) return *status;
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reap(status);
    ADD_FAILURE() << "the daemon did not stop within " << timeoutSeconds << " s of SIGTERM; it printed:\n"
                  << standardError();
    return *exitStatus_;
}

std::string DaemonProcess::standardOutput() const { return readIfThere(output_ / "out"); }

std::string DaemonProcess::standardError() const { return readIfThere(output_ / "err"); }

}  // namespace vosklin::test

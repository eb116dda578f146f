#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "support/TempDirectory.h"

namespace vosklin::test {

// `vosklin --home HOME run [FOLDER...]` as a child process, for tests of the
// live daemon. Its standard output and error go to files of its own, its
// standard input is /dev/null. Whatever happens in the test, the destructor
// leaves no daemon behind (SIGKILL if it still runs).
class DaemonProcess {
public:
    DaemonProcess(std::string home, std::vector<std::string> folders = {});
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    // Starts the daemon and waits until HOME/daemon.json names its pid (the
    // API is up by then). Fails, with what the daemon printed, when it exits
    // first or the file does not appear within `timeoutSeconds`.
    ::testing::AssertionResult start(double timeoutSeconds = 15);
    // Starts it without waiting for anything: for a daemon expected to refuse.
    void launch();
    // The exit status once it has exited (128 + signal when killed), or nothing after `timeoutSeconds`.
    std::optional<int> waitForExit(double timeoutSeconds);
    // SIGTERM, then waits (at most `timeoutSeconds`, then SIGKILL) for it to exit; returns its exit status.
    int stop(double timeoutSeconds = 15);

    bool isRunning();
    pid_t pid() const { return pid_; }
    // From daemon.json and api-token, as read by start().
    int port() const { return port_; }
    const std::string& socketPath() const { return socketPath_; }
    const std::string& token() const { return token_; }
    std::string standardOutput() const;
    std::string standardError() const;

private:
    void reap(int status);

    std::string home_;
    std::vector<std::string> folders_;
    TempDirectory output_;
    pid_t pid_ = -1;
    std::optional<int> exitStatus_;
    int port_ = 0;
    std::string socketPath_;
    std::string token_;
};

}  // namespace vosklin::test

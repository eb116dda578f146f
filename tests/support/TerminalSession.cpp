#include "support/TerminalSession.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace vosklin::test {

TerminalSession::TerminalSession(const std::vector<std::string>& arguments) {
    terminal_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal_ < 0 || ::grantpt(terminal_) != 0 || ::unlockpt(terminal_) != 0)
        throw std::runtime_error("no pseudo-terminal");
    const std::string follower = ::ptsname(terminal_);
    const std::string errPath = files_ / "err";
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        ::setsid();
        int tty = ::open(follower.c_str(), O_RDWR);  // becomes the controlling terminal
        int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (tty < 0 || err < 0) ::_exit(126);
        termios mode {};
        ::tcgetattr(tty, &mode);
        mode.c_lflag &= ~tcflag_t(ECHO);  // what the test types is not part of the output
        ::tcsetattr(tty, TCSANOW, &mode);
        ::dup2(tty, 0);
        ::dup2(tty, 1);
        ::dup2(err, 2);
        ::unsetenv("VOSKLIN_HOME");
        std::vector<std::string> copies = arguments;
        std::string binary = VOSKLIN_BINARY;
        std::vector<char*> argv{binary.data()};
        for (auto& argument : copies) argv.push_back(argument.data());
        argv.push_back(nullptr);
        ::execv(binary.c_str(), argv.data());
        ::_exit(127);
    }
}

TerminalSession::~TerminalSession() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    if (terminal_ >= 0) ::close(terminal_);
}

bool TerminalSession::readUntil(const std::string& text) {
    char buffer[4096];
    while (output_.find(text) == std::string::npos) {
        const ssize_t count = ::read(terminal_, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;  // EIO once the command has closed its side
        output_.append(buffer, std::size_t(count));
    }
    return true;
}

void TerminalSession::type(const std::string& text) {
    if (::write(terminal_, text.data(), text.size()) != ssize_t(text.size()))
        throw std::runtime_error("could not type into the terminal");
}

int TerminalSession::finish() {
    readUntil(std::string(1, '\0'));  // never printed: reads to the end
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string TerminalSession::errorOutput() const { return readFile(files_ / "err"); }

}  // namespace vosklin::test

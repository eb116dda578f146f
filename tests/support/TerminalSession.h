#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/TempDirectory.h"

namespace vosklin::test {

// `vosklin ARGS...` with a pseudo-terminal for its standard input and output
// (standard error goes to a file): for commands that ask before acting. The
// test reads what it printed until a prompt, does what it must, and answers.
// Reads block until the text shows or the command closes the terminal; no
// waiting on a clock. The destructor kills a command still running.
class TerminalSession {
public:
    explicit TerminalSession(const std::vector<std::string>& arguments);
    ~TerminalSession();
    TerminalSession(const TerminalSession&) = delete;
    TerminalSession& operator=(const TerminalSession&) = delete;

    // Reads until `text` has been printed (true) or the command has closed the terminal (false).
    bool readUntil(const std::string& text);
    void type(const std::string& text);
    // Reads the rest, waits for the command to exit and returns its status.
    int finish();

    const std::string& output() const { return output_; }
    std::string errorOutput() const;

private:
    TempDirectory files_;
    int terminal_ = -1;
    pid_t pid_ = -1;
    std::string output_;
};

}  // namespace vosklin::test

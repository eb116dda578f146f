#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace vosklin {

// "2025-03-01 15:32:05": an instant in the local time zone, as people read it.
std::string formatLocalTime(double instant);

// Asks `question` with "? [y/N]" on the terminal and reads the answer from
// standard input: true for "y" or "yes". Without a terminal to ask on it throws
// CommandError with `withoutTerminal` (which says how to go on without one).
bool confirmOnTerminal(std::ostream& out, const std::string& question, const std::string& withoutTerminal);

// A one-line progress bar redrawn in place on a terminal; silent when the
// stream is not a terminal, so logs and pipes stay clean.
class ProgressBar {
public:
    ProgressBar(std::ostream& out, int fd, std::string label);
    ~ProgressBar();
    void update(std::int64_t done, std::int64_t total);
    void finish();

private:
    std::ostream& out_;
    bool enabled_;
    std::string label_;
    bool drawn_ = false;
    std::int64_t lastDrawnPercent_ = -1;
};

}  // namespace vosklin

#include "app/TerminalOutput.h"

#include "app/CommandError.h"

#include <unistd.h>

#include <cmath>
#include <iostream>
#include <ctime>

namespace vosklin {

std::string formatLocalTime(double instant) {
    std::time_t seconds = std::time_t(std::floor(instant));
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

bool confirmOnTerminal(std::ostream& out, const std::string& question, const std::string& withoutTerminal) {
    if (::isatty(0) != 1) throw CommandError(withoutTerminal);
    out << question << "? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

ProgressBar::ProgressBar(std::ostream& out, int fd, std::string label)
    : out_(out), enabled_(::isatty(fd) == 1), label_(std::move(label)) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(std::int64_t done, std::int64_t total) {
    if (!enabled_ || total <= 0) return;
    const std::int64_t percent = std::min<std::int64_t>(100, done * 100 / total);
    if (percent == lastDrawnPercent_) return;
    lastDrawnPercent_ = percent;
    constexpr int width = 30;
    const int filled = int(percent * width / 100);
    out_ << "\r" << label_ << " [" << std::string(std::size_t(filled), '#') << std::string(std::size_t(width - filled), ' ')
         << "] " << done << "/" << total << " " << std::flush;
    drawn_ = true;
}

void ProgressBar::finish() {
    if (drawn_) out_ << "\r\033[K" << std::flush;
    drawn_ = false;
}

}  // namespace vosklin

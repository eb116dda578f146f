#pragma once

#include <mutex>
#include <string>

namespace vosklin {

enum class LogLevel { debug, info, error };

// Where the program's log sentences go. One instance is made by the entry
// point and handed to every service that logs; tests pass a recording one.
// Implementations must be safe to call from any thread.
class Logger {
public:
    virtual ~Logger() = default;
    virtual void log(LogLevel level, const std::string& message) = 0;

    void debug(const std::string& message) { log(LogLevel::debug, message); }
    void info(const std::string& message) { log(LogLevel::info, message); }
    void error(const std::string& message) { log(LogLevel::error, message); }
};

// The systemd journal when one is listening, else standard error. On
// standard error only messages at `standardErrorLevel` or above appear, so a
// command-line run shows its failures but not its routine sentences.
class SystemLogger final : public Logger {
public:
    explicit SystemLogger(LogLevel standardErrorLevel = LogLevel::info, bool useJournal = true);
    void log(LogLevel level, const std::string& message) override;

private:
    LogLevel standardErrorLevel_;
    bool useJournal_;
    std::mutex standardErrorLock_;
};

}  // namespace vosklin

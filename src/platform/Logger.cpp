#include "platform/Logger.h"

#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdio>

namespace vosklin {

SystemLogger::SystemLogger(LogLevel standardErrorLevel, bool useJournal)
    : standardErrorLevel_(standardErrorLevel),
      useJournal_(useJournal && ::access("/run/systemd/journal/socket", W_OK) == 0) {}

void SystemLogger::log(LogLevel level, const std::string& message) {
    int priority = level == LogLevel::error ? LOG_ERR : level == LogLevel::info ? LOG_INFO : LOG_DEBUG;
    if (useJournal_ &&
        sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%i", priority, "SYSLOG_IDENTIFIER=vosklin",
                        nullptr) >= 0) {
        return;
    }
    if (level < standardErrorLevel_) return;
    std::lock_guard guard(standardErrorLock_);
    std::fprintf(stderr, "vosklin: %s\n", message.c_str());
}

}  // namespace vosklin

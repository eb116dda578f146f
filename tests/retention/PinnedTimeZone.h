#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace vosklin::test {

// Sets TZ until destroyed, then puts back what was there, so calendar bucket
// keys do not depend on the machine the tests run on.
class PinnedTimeZone {
public:
    explicit PinnedTimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) previous_ = old;
        pin(zone);
    }
    ~PinnedTimeZone() {
        if (previous_) setenv("TZ", previous_->c_str(), 1);
        else unsetenv("TZ");
        tzset();
    }
    PinnedTimeZone(const PinnedTimeZone&) = delete;
    PinnedTimeZone& operator=(const PinnedTimeZone&) = delete;
    void pin(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

private:
    std::optional<std::string> previous_;
};

// Central Europe: +1 in winter, +2 from the last Sunday of March to the last of October.
inline constexpr const char* centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

// "2025-03-30 01:30" read as UTC, in seconds since 1970.
inline double utc(const char* text) {
    std::tm parts{};
    strptime(text, "%Y-%m-%d %H:%M", &parts);
    return double(timegm(&parts));
}

}  // namespace vosklin::test

#include "platform/Instant.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <ctime>

namespace vosklin {
namespace {

std::string formatWholeSeconds(std::int64_t seconds) {
    std::time_t t = std::time_t(seconds);
    std::tm parts{};
    ::gmtime_r(&t, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

bool digits(std::string_view text, std::size_t at, std::size_t count, int& value) {
    if (at + count > text.size()) return false;
    value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

constexpr const char* monthNames[] = {"January", "February", "March",     "April",   "May",      "June",
                                      "July",    "August",   "September", "October", "November", "December"};

int daysInMonth(int year, int month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

}  // namespace

std::string formatInstantSeconds(double instant) {
    return formatWholeSeconds(std::int64_t(std::floor(instant))) + "Z";
}

std::string formatInstant(double instant) {
    double whole = std::floor(instant);
    auto micros = std::int64_t(std::llround((instant - whole) * 1e6));
    if (micros >= 1000000) {
        whole += 1;
        micros -= 1000000;
    }
    std::string text = formatWholeSeconds(std::int64_t(whole));
    if (micros > 0) {
        char fraction[24];
        std::snprintf(fraction, sizeof fraction, ".%06lld", static_cast<long long>(micros));
        std::string f = fraction;
        while (f.back() == '0') f.pop_back();
        text += f;
    }
    return text + "Z";
}

InstantReading readInstant(std::string_view text, bool localWithoutOffset) {
    auto refused = [](std::string problem) { return InstantReading{std::nullopt, std::move(problem)}; };
    int year, month, day;
    if (!digits(text, 0, 4, year) || text.size() < 5 || text[4] != '-' || !digits(text, 5, 2, month) ||
        text.size() < 8 || text[7] != '-' || !digits(text, 8, 2, day))
        return refused(text.empty() ? "is empty" : "does not start with a date YYYY-MM-DD");
    if (month < 1 || month > 12) return refused("has no month " + std::to_string(month) + " (months run from 01 to 12)");
    if (day < 1 || day > daysInMonth(year, month))
        return refused("has no day " + std::to_string(day) + " in " + monthNames[month - 1] + " " +
                       std::to_string(year));
    int hour = 0, minute = 0, second = 0;
    double fraction = 0;
    std::size_t at = 10;
    const bool hasTime = at < text.size() && (text[at] == 'T' || text[at] == ' ');
    if (hasTime) {
        if (!digits(text, 11, 2, hour) || text.size() < 14 || text[13] != ':' || !digits(text, 14, 2, minute))
            return refused("does not have a time HH:MM after its date");
        at = 16;
        if (at < text.size() && text[at] == ':') {
            if (!digits(text, 17, 2, second)) return refused("does not have two digits of seconds");
            at = 19;
            if (at < text.size() && (text[at] == '.' || text[at] == ',')) {
                const std::size_t start = ++at;
                while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
                if (at == start) return refused("has a decimal point with no digits after it");
                // Correctly rounded, rather than summed digit by digit.
                fraction = std::strtod(("0." + std::string(text.substr(start, at - start))).c_str(), nullptr);
            }
        }
        if (hour > 23) return refused("has hour " + std::to_string(hour) + " (hours run from 00 to 23)");
        if (minute > 59) return refused("has minute " + std::to_string(minute) + " (minutes run from 00 to 59)");
        if (second > 59) return refused("has second " + std::to_string(second) + " (seconds run from 00 to 59)");
    }
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    if (at == text.size()) {
        if (!localWithoutOffset) return refused("has no offset from UTC (such as Z or +01:00)");
        parts.tm_isdst = -1;  // let the time zone rules say
        std::tm asked = parts;
        const std::time_t local = std::mktime(&parts);
        // mktime moves a time the clocks skipped; read back, it is not the time asked for.
        if (local == -1 || parts.tm_year != asked.tm_year || parts.tm_mon != asked.tm_mon ||
            parts.tm_mday != asked.tm_mday || parts.tm_hour != asked.tm_hour || parts.tm_min != asked.tm_min ||
            parts.tm_sec != asked.tm_sec)
            return refused("is a local time that does not exist here (the clocks skipped it)");
        return {double(local) + fraction, ""};
    }
    if (!hasTime) return refused("has something other than a time after its date");
    int offsetSeconds = 0;
    if (text[at] == 'Z') {
        ++at;
    } else if (text[at] == '+' || text[at] == '-') {
        const int sign = text[at] == '-' ? -1 : 1;
        int offsetHours, offsetMinutes;
        std::size_t next = at + 3;
        if (next < text.size() && text[next] == ':') ++next;
        if (!digits(text, at + 1, 2, offsetHours) || !digits(text, next, 2, offsetMinutes))
            return refused("has an offset that is not +HH:MM or -HH:MM");
        if (offsetHours > 23 || offsetMinutes > 59)
            return refused("has an offset beyond 23 hours 59 minutes");
        offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
        at = next + 2;
    } else {
        return refused("has something other than an offset after its time");
    }
    if (at != text.size()) return refused("has something after its offset");
    const std::time_t utc = ::timegm(&parts);
    return {double(utc - offsetSeconds) + fraction, ""};
}

std::optional<double> parseInstant(std::string_view text) { return readInstant(text, false).instant; }

}  // namespace vosklin

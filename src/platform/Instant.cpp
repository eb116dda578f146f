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

std::optional<double> parseInstant(std::string_view text) {
    int year, month, day, hour, minute, second;
    if (text.size() < 19 || !digits(text, 0, 4, year) || text[4] != '-' || !digits(text, 5, 2, month) ||
        text[7] != '-' || !digits(text, 8, 2, day) || (text[10] != 'T' && text[10] != ' ') ||
        !digits(text, 11, 2, hour) || text[13] != ':' || !digits(text, 14, 2, minute) || text[16] != ':' ||
        !digits(text, 17, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return std::nullopt;
    std::size_t at = 19;
    double fraction = 0;
    if (at < text.size() && (text[at] == '.' || text[at] == ',')) {
        ++at;
        std::size_t start = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
        if (at == start) return std::nullopt;
        // Correctly rounded, rather than summed digit by digit.
        fraction = std::strtod(("0." + std::string(text.substr(start, at - start))).c_str(), nullptr);
    }
    int offsetSeconds = 0;
    if (at < text.size() && text[at] == 'Z') {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int sign = text[at] == '-' ? -1 : 1;
        int offsetHours, offsetMinutes;
        if (!digits(text, at + 1, 2, offsetHours)) return std::nullopt;
        std::size_t next = at + 3;
        if (next < text.size() && text[next] == ':') ++next;
        if (!digits(text, next, 2, offsetMinutes)) return std::nullopt;
        offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
        at = next + 2;
    } else {
        return std::nullopt;
    }
    if (at != text.size()) return std::nullopt;
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    std::time_t utc = ::timegm(&parts);
    return double(utc - offsetSeconds) + fraction;
}

}  // namespace vosklin

#include "app/ByteCount.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vosklin {

std::string formatByteCount(std::int64_t bytes) {
    if (bytes == 1) return "1 byte";
    if (bytes < 1000 && bytes > -1000) return std::to_string(bytes) + " bytes";
    static const char* units[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    double value = double(bytes);
    int unit = -1;
    while ((value >= 1000 || value <= -1000) && unit < 5) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    if (value < 10 && value > -10) std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    else std::snprintf(text, sizeof text, "%.0f %s", value, units[unit]);
    return text;
}

std::optional<std::int64_t> parseByteCount(const std::string& text) {
    const char* start = text.c_str();
    char* end = nullptr;
    double value = std::strtod(start, &end);
    if (end == start || value < 0 || !std::isfinite(value)) return std::nullopt;
    std::string unit;
    for (const char* c = end; *c; ++c)
        if (!std::isspace(static_cast<unsigned char>(*c))) unit += char(std::tolower(static_cast<unsigned char>(*c)));
    static const std::pair<const char*, double> units[] = {
        {"", 1},           {"b", 1},          {"k", 1e3},         {"kb", 1e3},         {"m", 1e6},
        {"mb", 1e6},       {"g", 1e9},        {"gb", 1e9},        {"t", 1e12},         {"tb", 1e12},
        {"kib", 1024.0},   {"mib", 1048576.0}, {"gib", 1073741824.0}, {"tib", 1099511627776.0},
    };
    for (const auto& [name, factor] : units)
        if (unit == name) return std::int64_t(std::llround(value * factor));
    return std::nullopt;
}

}  // namespace vosklin

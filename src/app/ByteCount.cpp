#include "app/ByteCount.h"

#include <cstdio>

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

}  // namespace vosklin

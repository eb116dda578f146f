#include "app/UserInstant.h"

#include <ctime>
#include <cstring>

#include "platform/Instant.h"

namespace vosklin {

std::optional<double> parseUserInstant(const std::string& text) {
    if (auto instant = parseInstant(text)) return instant;
    for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M",
                               "%Y-%m-%d"}) {
        std::tm parts{};
        const char* end = ::strptime(text.c_str(), format, &parts);
        if (!end || *end != '\0') continue;
        parts.tm_isdst = -1;  // let the time zone rules say
        std::time_t local = std::mktime(&parts);
        if (local == -1) continue;
        return double(local);
    }
    return std::nullopt;
}

}  // namespace vosklin

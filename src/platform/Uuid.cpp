#include "platform/Uuid.h"

#include <sys/random.h>

#include <cctype>
#include <cstdio>

namespace vosklin {

std::string makeUuid() {
    unsigned char bytes[16];
    std::size_t filled = 0;
    while (filled < sizeof bytes) {
        ssize_t got = ::getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got > 0) filled += std::size_t(got);
    }
    bytes[6] = (bytes[6] & 0x0F) | 0x40;
    bytes[8] = (bytes[8] & 0x3F) | 0x80;
    char text[37];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0],
                  bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                  bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

bool isUuid(const std::string& text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    return true;
}

}  // namespace vosklin

#include "platform/Utf8.h"

namespace vosklin {

void appendUtf8(std::string& text, char32_t code) {
    if (code < 0x80) {
        text += char(code);
    } else if (code < 0x800) {
        text += char(0xC0 | (code >> 6));
        text += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        text += char(0xE0 | (code >> 12));
        text += char(0x80 | ((code >> 6) & 0x3F));
        text += char(0x80 | (code & 0x3F));
    } else {
        text += char(0xF0 | (code >> 18));
        text += char(0x80 | ((code >> 12) & 0x3F));
        text += char(0x80 | ((code >> 6) & 0x3F));
        text += char(0x80 | (code & 0x3F));
    }
}

}  // namespace vosklin

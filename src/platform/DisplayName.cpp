#include "platform/DisplayName.h"

#include "platform/PathJson.h"

namespace vosklin {
namespace {

bool isControl(unsigned char byte) { return byte < 0x20 || byte == 0x7F; }

// C1 controls (U+0080 to U+009F) are two bytes in UTF-8; some terminals obey them as ESC sequences.
bool isC1Control(std::string_view text, std::size_t at, std::size_t length) {
    return length == 2 && static_cast<unsigned char>(text[at]) == 0xC2 &&
           static_cast<unsigned char>(text[at + 1]) <= 0x9F;
}

void appendOctal(std::string& out, unsigned char byte) {
    out += '\\';
    out += char('0' + (byte >> 6));
    out += char('0' + ((byte >> 3) & 7));
    out += char('0' + (byte & 7));
}

void appendEscaped(std::string& out, unsigned char byte) {
    switch (byte) {
        case '\a': out += "\\a"; return;
        case '\b': out += "\\b"; return;
        case '\t': out += "\\t"; return;
        case '\n': out += "\\n"; return;
        case '\v': out += "\\v"; return;
        case '\f': out += "\\f"; return;
        case '\r': out += "\\r"; return;
        default: appendOctal(out, byte);
    }
}

}  // namespace

bool DisplayName::needsQuoting(std::string_view name) {
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t length = validSequenceLength(name, at);
        if (length == 0 || isControl(static_cast<unsigned char>(name[at])) || isC1Control(name, at, length))
            return true;
        at += length;
    }
    return false;
}

std::string DisplayName::of(std::string_view name) {
    if (!needsQuoting(name)) return std::string(name);
    std::string shown = "$'";
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t length = validSequenceLength(name, at);
        const auto byte = static_cast<unsigned char>(name[at]);
        if (length == 0 || isControl(byte)) {
            appendEscaped(shown, byte);
            ++at;
        } else if (isC1Control(name, at, length)) {
            appendOctal(shown, byte);
            appendOctal(shown, static_cast<unsigned char>(name[at + 1]));
            at += 2;
        } else {
            if (byte == '\\' || byte == '\'') shown += '\\';
            shown.append(name.substr(at, length));
            at += length;
        }
    }
    return shown + "'";
}

}  // namespace vosklin

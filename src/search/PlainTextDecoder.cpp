#include "search/PlainTextDecoder.h"

#include <cstdint>

#include "platform/PathJson.h"
#include "platform/Utf8.h"

namespace vosklin {

namespace {

// `units` is what follows the byte-order mark.
std::optional<std::string> decodeUtf16(std::string_view units, bool bigEndian) {
    if (units.size() % 2 != 0) return std::nullopt;
    auto unit = [&](std::size_t at) -> std::uint32_t {
        const auto first = std::uint32_t(static_cast<unsigned char>(units[at]));
        const auto second = std::uint32_t(static_cast<unsigned char>(units[at + 1]));
        return bigEndian ? (first << 8 | second) : (second << 8 | first);
    };
    std::string text;
    text.reserve(units.size() + units.size() / 2);
    for (std::size_t at = 0; at < units.size(); at += 2) {
        std::uint32_t code = unit(at);
        if (code >= 0xDC00 && code <= 0xDFFF) return std::nullopt;  // a low surrogate with no high one
        if (code >= 0xD800 && code <= 0xDBFF) {
            if (at + 2 >= units.size()) return std::nullopt;
            const std::uint32_t low = unit(at + 2);
            if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            at += 2;
        }
        appendUtf8(text, code);
    }
    if (text.empty()) return std::nullopt;
    return text;
}

}  // namespace

std::optional<std::string> PlainTextDecoder::decode(std::string_view bytes) {
    if (bytes.starts_with("\xFF\xFE")) return decodeUtf16(bytes.substr(2), false);
    if (bytes.starts_with("\xFE\xFF")) return decodeUtf16(bytes.substr(2), true);
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    if (bytes.empty() || !isValidUtf8(bytes)) return std::nullopt;
    return std::string(bytes);
}

}  // namespace vosklin

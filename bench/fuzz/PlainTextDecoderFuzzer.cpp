// Plain text of any encoding a payload may claim. What decodes must be valid
// UTF-8 and, written back in the input's own encoding, give the input again:
// valid UTF-8 comes back unchanged (less a byte-order mark), UTF-16 re-encodes
// to the same code units. Seeds in bench/fuzz/seeds/PlainTextDecoder are
// written by hand (UTF-8, UTF-16 either way round, a lone surrogate).
#include "FuzzSupport.h"
#include "platform/PathJson.h"
#include "search/PlainTextDecoder.h"

namespace {

// `text` (valid UTF-8) as UTF-16 code units in the given byte order.
std::string utf16(std::string_view text, bool bigEndian) {
    std::string out;
    auto unit = [&](std::uint32_t value) {
        const char high = char(value >> 8), low = char(value & 0xFF);
        out += bigEndian ? high : low;
        out += bigEndian ? low : high;
    };
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = vosklin::validSequenceLength(text, at);
        auto byte = [&](std::size_t i) { return std::uint32_t(static_cast<unsigned char>(text[at + i])); };
        std::uint32_t code = length == 1   ? byte(0)
                             : length == 2 ? (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F)
                             : length == 3 ? (byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F)
                                           : (byte(0) & 0x07) << 18 | (byte(1) & 0x3F) << 12 |
                                                 (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
        if (code >= 0x10000) {
            code -= 0x10000;
            unit(0xD800 + (code >> 10));
            unit(0xDC00 + (code & 0x3FF));
        } else {
            unit(code);
        }
        at += length;
    }
    return out;
}

// Non-empty, whole code units, every surrogate in a high-low pair.
bool wellFormed(std::string_view units, bool bigEndian) {
    if (units.empty() || units.size() % 2 != 0) return false;
    bool expectLow = false;
    for (std::size_t at = 0; at < units.size(); at += 2) {
        const auto value = static_cast<unsigned char>(units[at + (bigEndian ? 0 : 1)]);
        const bool high = value >= 0xD8 && value <= 0xDB, low = value >= 0xDC && value <= 0xDF;
        if (low != expectLow) return false;
        expectLow = high;
    }
    return !expectLow;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    const auto input = fuzz::bytes(data, size);
    std::optional<std::string> text;
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { text = PlainTextDecoder::decode(input); });
    const bool little = input.starts_with("\xFF\xFE"), big = input.starts_with("\xFE\xFF");
    if (!little && !big) {
        auto utf8 = input;
        if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
        const bool expected = !utf8.empty() && isValidUtf8(utf8);
        fuzz::require(text.has_value() == expected, "valid UTF-8 is refused, or invalid UTF-8 accepted");
        if (text) fuzz::require(*text == utf8, "valid UTF-8 does not come back unchanged");
        return 0;
    }
    if (!text) {
        fuzz::require(!wellFormed(input.substr(2), big), "well-formed UTF-16 is refused");
        return 0;
    }
    fuzz::require(!text->empty(), "an empty text is returned");
    fuzz::require(isValidUtf8(*text), "decoded UTF-16 is not valid UTF-8");
    fuzz::require(text->size() <= input.size() * 3 / 2, "the text is longer than promised");
    fuzz::require(utf16(*text, big) == input.substr(2), "decoded UTF-16 does not re-encode to the input");
    return 0;
}

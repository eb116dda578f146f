#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// The text of a file with no document structure, as UTF-8.
//
// A file that begins with a UTF-16 byte-order mark (FF FE little-endian,
// FE FF big-endian) is decoded as UTF-16; an odd length or an unpaired
// surrogate means it has no text. Anything else must be strictly valid UTF-8
// (no overlong forms, no surrogates, nothing past U+10FFFF); a leading UTF-8
// byte-order mark is dropped. Empty input, or input that decodes to nothing,
// has no text. Pure; thread-safe; the output is at most 3/2 of the input.
namespace PlainTextDecoder {
std::optional<std::string> decode(std::string_view bytes);
}

}  // namespace vosklin

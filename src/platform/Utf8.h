#pragma once

#include <string>

namespace vosklin {

// Appends the UTF-8 form of `code`, a Unicode scalar value (callers map
// surrogates and values past U+10FFFF to U+FFFD before).
void appendUtf8(std::string& text, char32_t code);

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// "0 bytes", "1 byte", "532 bytes", "1.2 kB", "3.4 MB", "12 GB": decimal units, as file managers show them.
std::string formatByteCount(std::int64_t bytes);

// A size as people type it: a whole or decimal number ("500", "1.5"), then,
// optionally after one space, a unit: B, kB, MB, GB, TB (powers of 1000) or
// KiB, MiB, GiB, TiB (powers of 1024), in any letter case. A fraction is rounded
// to the nearest byte. No sign, exponent, other unit or surrounding space; a
// value beyond a signed 64-bit count is out of range rather than wrapped.
// Pure functions: no state, safe from any thread.
struct ByteCountReading {
    std::optional<std::int64_t> bytes;
    std::string problem;  // when there are no bytes: why, as a phrase ("has no number")
};
ByteCountReading readByteCount(const std::string& text);
// The same, without the reason: nothing when the text is not a size.
std::optional<std::int64_t> parseByteCount(const std::string& text);

}  // namespace vosklin

#include "app/ByteCount.h"

#include <cstdio>
#include <limits>
#include <utility>

namespace vosklin {
namespace {

__extension__ using Wide = __int128;  // exact products of a count and a unit

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

bool isDigit(char c) { return c >= '0' && c <= '9'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

std::optional<std::int64_t> unitFactor(const std::string& unit) {
    std::string name;
    for (char c : unit) name += lower(c);
    static const std::pair<const char*, std::int64_t> units[] = {
        {"", 1},
        {"b", 1},
        {"kb", 1'000},
        {"mb", 1'000'000},
        {"gb", 1'000'000'000},
        {"tb", 1'000'000'000'000},
        {"kib", std::int64_t(1) << 10},
        {"mib", std::int64_t(1) << 20},
        {"gib", std::int64_t(1) << 30},
        {"tib", std::int64_t(1) << 40},
    };
    for (const auto& [known, factor] : units)
        if (name == known) return factor;
    return std::nullopt;
}

ByteCountReading refused(std::string problem) { return {std::nullopt, std::move(problem)}; }

}  // namespace

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

ByteCountReading readByteCount(const std::string& text) {
    std::size_t at = 0;
    // Whole part, exactly: anything that does not fit is out of range, never wrapped.
    std::int64_t whole = 0;
    bool wholeTooLarge = false;
    const std::size_t wholeStart = at;
    for (; at < text.size() && isDigit(text[at]); ++at) {
        const int digit = text[at] - '0';
        if (whole > (largest - digit) / 10) wholeTooLarge = true;
        else whole = whole * 10 + digit;
    }
    const bool hasWhole = at > wholeStart;
    // Fraction: up to 18 digits count (far below a byte at any unit); more are refused.
    std::int64_t fraction = 0, fractionScale = 1;
    bool hasFraction = false;
    if (at < text.size() && text[at] == '.') {
        ++at;
        const std::size_t fractionStart = at;
        for (; at < text.size() && isDigit(text[at]); ++at) {
            if (at - fractionStart >= 18) return refused("has more decimals than a size needs");
            fraction = fraction * 10 + (text[at] - '0');
            fractionScale *= 10;
        }
        hasFraction = at > fractionStart;
        if (!hasFraction) return refused("has a decimal point with no digits after it");
    }
    if (!hasWhole && !hasFraction) return refused(text.empty() ? "is empty" : "does not start with a number");
    if (at < text.size() && text[at] == ' ') ++at;
    const std::string unit = text.substr(at);
    const auto factor = unitFactor(unit);
    if (!factor) {
        if (!unit.empty() && unit[0] == ' ') return refused("has more than one space before its unit");
        if (!unit.empty() && (isDigit(unit[0]) || unit[0] == '.')) return refused("is not one number");
        return refused("has no unit '" + unit + "' (use B, kB, MB, GB, TB, KiB, MiB, GiB or TiB)");
    }
    const char* tooLarge = "is more bytes than can be counted (at most 9.2 EB)";
    if (wholeTooLarge || whole > largest / *factor) return refused(tooLarge);
    // The fraction rounded to the nearest byte; below 10^18 times 2^40, well inside 128 bits.
    const Wide part = (Wide(fraction) * *factor * 2 + fractionScale) / (Wide(fractionScale) * 2);
    const Wide total = Wide(whole) * *factor + part;
    if (total > largest) return refused(tooLarge);
    return {std::int64_t(total), ""};
}

std::optional<std::int64_t> parseByteCount(const std::string& text) { return readByteCount(text).bytes; }

}  // namespace vosklin

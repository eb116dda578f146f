#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosklin {

// Compares two versions of a text file, given as bytes: a line-by-line
// difference for ordinary sizes, a positional summary for large ones, or
// "not text". Pure: no state, no file access.
//
// Decoding: UTF-8, else ISO Latin-1. Latin-1 accepts every byte, so here a
// byte that no text file holds (NUL and the C0 controls other than tab, line
// breaks, form feed and escape, and DEL) makes an input "not text".
// Lines are split at every newline character, each on its own (LF, VT, FF,
// CR, NEL, LS, PS): CRLF gives an empty line between, and a final line break
// a final empty line. Lines are compared by 64-bit FNV-1a hashes; the common
// prefix and suffix are set aside and the middle is compared with Myers'
// shortest edit script (linear-space form). Gates: more than 5 MiB on either
// side, more than 50,000 lines, or a middle of more than 5,000 lines give the
// summary, which compares position by position without realigning.
namespace TextDiff {

constexpr std::size_t byteLimit = 5 * 1024 * 1024;
constexpr std::size_t lineLimit = 50'000;
constexpr std::size_t middleLimit = 5'000;

struct Line {
    enum class Kind { context, added, removed };
    Kind kind = Kind::context;
    std::string text;  // without its line break, as UTF-8
    std::optional<int> oldNumber;
    std::optional<int> newNumber;

    bool operator==(const Line&) const = default;
};

struct Region {
    int startLine = 0;  // 1-based
    int length = 0;

    bool operator==(const Region&) const = default;
};

struct Result {
    enum class Kind { lines, summary, notText };
    Kind kind = Kind::notText;
    std::vector<Line> lines;  // lines
    int newerDiffering = 0;   // summary
    int olderDiffering = 0;   // summary
    std::vector<Region> regions;  // summary

    // A lines result with nothing added or removed.
    bool isIdentical() const;
    bool operator==(const Result&) const = default;
};

Result compare(std::string_view older, std::string_view newer);

// The pieces, for tests and for callers that need them.
std::optional<std::string> decode(std::string_view bytes);
std::vector<std::string> splitLines(std::string_view text);
std::uint64_t lineHash(std::string_view line);

}  // namespace TextDiff
}  // namespace vosklin

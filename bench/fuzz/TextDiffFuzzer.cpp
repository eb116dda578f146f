// Two texts compared line by line. The first two bytes say where the input is
// cut into the older and the newer text. The result is checked against the
// texts themselves: both sides must be rebuilt from it, numbered in order, and
// for small texts the kept lines must be as many as the longest common
// subsequence (computed here the slow, obvious way).
#include <algorithm>
#include <vector>

#include "FuzzSupport.h"
#include "compare/TextDiff.h"

namespace {

using vosklin::TextDiff::Line;

std::size_t longestCommonSubsequence(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    std::vector<std::size_t> row(b.size() + 1, 0), previous(b.size() + 1, 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::swap(row, previous);
        for (std::size_t j = 1; j <= b.size(); ++j)
            row[j] = a[i - 1] == b[j - 1] ? previous[j - 1] + 1 : std::max(previous[j], row[j - 1]);
    }
    return row[b.size()];
}

void checkLines(const std::vector<Line>& lines, const std::vector<std::string>& older,
                const std::vector<std::string>& newer) {
    using vosklin::fuzz::require;
    std::vector<std::string> rebuiltOld, rebuiltNew;
    std::size_t kept = 0;
    for (const auto& line : lines) {
        const bool inOld = line.kind != Line::Kind::added, inNew = line.kind != Line::Kind::removed;
        require(line.oldNumber.has_value() == inOld && line.newNumber.has_value() == inNew,
                "a line is numbered on a side it is not on");
        if (inOld) {
            rebuiltOld.push_back(line.text);
            require(*line.oldNumber == int(rebuiltOld.size()), "older lines are not numbered in order");
        }
        if (inNew) {
            rebuiltNew.push_back(line.text);
            require(*line.newNumber == int(rebuiltNew.size()), "newer lines are not numbered in order");
        }
        if (inOld && inNew) ++kept;
    }
    require(rebuiltOld == older, "the older text is not what the difference's older side reads");
    require(rebuiltNew == newer, "the newer text is not what the difference's newer side reads");
    if (older.size() <= 300 && newer.size() <= 300)
        require(kept == longestCommonSubsequence(older, newer), "the difference is not a shortest one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    if (size < 2 || size > 64 * 1024) return 0;  // large inputs only make runs slow
    const std::size_t cut = std::min<std::size_t>(data[0] | (std::size_t(data[1]) << 8), size - 2);
    const auto text = fuzz::bytes(data + 2, size - 2);
    const auto older = text.substr(0, cut), newer = text.substr(cut);

    TextDiff::Result result;
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { result = TextDiff::compare(older, newer); });
    const auto olderText = TextDiff::decode(older), newerText = TextDiff::decode(newer);
    fuzz::require((result.kind == TextDiff::Result::Kind::notText) == (!olderText || !newerText),
                  "'not text' does not match what the decoder says");
    if (result.kind == TextDiff::Result::Kind::lines)
        checkLines(result.lines, TextDiff::splitLines(*olderText), TextDiff::splitLines(*newerText));
    return 0;
}

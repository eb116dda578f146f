#include "compare/TextDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace vosklin {
namespace {

using TextDiff::Line;
using TextDiff::Result;

std::string numberedLines(int count, const std::string& prefix = "line ") {
    std::string text;
    for (int i = 1; i <= count; ++i) text += prefix + std::to_string(i) + "\n";
    return text;
}

// Rebuilds the newer text from the older one and the line result: the property every diff must have.
std::vector<std::string> rebuildNewer(const std::vector<std::string>& older, const std::vector<Line>& lines) {
    std::vector<std::string> rebuilt;
    std::size_t at = 0;
    for (const auto& line : lines) {
        if (line.kind == Line::Kind::added) {
            rebuilt.push_back(line.text);
            continue;
        }
        EXPECT_LT(at, older.size());
        EXPECT_EQ(*line.oldNumber, int(at) + 1) << "old numbers count the older side";
        if (line.kind == Line::Kind::context) {
            EXPECT_EQ(older[at], line.text);
            rebuilt.push_back(line.text);
        }
        ++at;
    }
    EXPECT_EQ(at, older.size()) << "every old line is accounted for";
    return rebuilt;
}

int countOf(const std::vector<Line>& lines, Line::Kind kind) {
    return int(std::count_if(lines.begin(), lines.end(), [&](const Line& line) { return line.kind == kind; }));
}

TEST(TextDiffTest, LinesCarryTheNumbersOfTheirSide) {
    auto same = TextDiff::compare("a\nb\nc", "a\nb\nc");
    ASSERT_EQ(same.kind, Result::Kind::lines);
    EXPECT_TRUE(same.isIdentical()) << "identical inputs are only context";
    ASSERT_EQ(same.lines.size(), 3u);
    EXPECT_EQ(same.lines[2], (Line{Line::Kind::context, "c", 3, 3}));

    auto result = TextDiff::compare("one\ntwo\nthree\n", "one\n2\nthree\nfour\n");
    ASSERT_EQ(result.kind, Result::Kind::lines);
    std::vector<Line> expected = {
        {Line::Kind::context, "one", 1, 1},    {Line::Kind::removed, "two", 2, std::nullopt},
        {Line::Kind::added, "2", std::nullopt, 2}, {Line::Kind::context, "three", 3, 3},
        {Line::Kind::added, "four", std::nullopt, 4}, {Line::Kind::context, "", 4, 5},
    };
    EXPECT_EQ(result.lines, expected) << "a final line break gives a final empty line";
}

TEST(TextDiffTest, EachLineBreakCharacterSplitsOnItsOwn) {
    EXPECT_EQ(TextDiff::splitLines("a\r\nb"), (std::vector<std::string>{"a", "", "b"})) << "CRLF";
    EXPECT_EQ(TextDiff::splitLines("a\xC2\x85" "b\xE2\x80\xA8" "c\xE2\x80\xA9" "d\fe\vf"),
              (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}));
    EXPECT_EQ(TextDiff::splitLines(""), std::vector<std::string>{""});
    auto result = TextDiff::compare("x\r\ny\r\n", "x\r\ny\r\n");
    EXPECT_EQ(result.lines.size(), 5u) << "an empty line after each real line";
}

TEST(TextDiffTest, Latin1IsTextAndBinaryIsNot) {
    auto latin = TextDiff::compare("caf\xe9\n", "caf\xe9 au lait\n");
    ASSERT_EQ(latin.kind, Result::Kind::lines);
    EXPECT_EQ(latin.lines[0].text, "caf\xC3\xA9") << "decoded and shown as UTF-8";
    EXPECT_EQ(TextDiff::compare(std::string("PK\x03\x04\x00\x00\xff", 7), "text").kind, Result::Kind::notText);
    EXPECT_EQ(TextDiff::lineHash(""), 0xcbf29ce484222325ULL);
    EXPECT_EQ(TextDiff::lineHash("a"), 0xaf63dc4c8601ec8cULL);
}

TEST(TextDiffTest, SizeAndLineGatesGiveTheSummary) {
    const std::string big(6 * 1024 * 1024, 'x');
    auto huge = TextDiff::compare(big, big + "\ny");
    ASSERT_EQ(huge.kind, Result::Kind::summary) << "6 MiB is never a line list";
    EXPECT_EQ(huge.newerDiffering, 1);
    EXPECT_EQ(huge.regions, (std::vector<TextDiff::Region>{{2, 1}}));

    // 50,000 lines (49,999 breaks) are compared line by line; 50,001 are not.
    std::string fifty = numberedLines(49'999) + "last";
    EXPECT_EQ(TextDiff::compare(fifty, fifty + " changed").kind, Result::Kind::lines);
    EXPECT_EQ(TextDiff::compare(fifty, fifty + "\nextra").kind, Result::Kind::summary);
}

TEST(TextDiffTest, AMiddleUnderTheGateIsDiffedInFullAndOneOverItIsSummarised) {
    const std::string shared = numberedLines(10'000, "shared ");
    auto result = TextDiff::compare(shared + numberedLines(4'000, "old "), shared + numberedLines(4'000, "new "));
    ASSERT_EQ(result.kind, Result::Kind::lines);
    EXPECT_EQ(countOf(result.lines, Line::Kind::added), 4'000);
    EXPECT_EQ(countOf(result.lines, Line::Kind::removed), 4'000);

    auto over = TextDiff::compare(shared + numberedLines(5'001, "old "), shared + numberedLines(5'001, "new "));
    ASSERT_EQ(over.kind, Result::Kind::summary);
    EXPECT_EQ(over.newerDiffering, 5'001);
    EXPECT_EQ(over.olderDiffering, 5'001);
    EXPECT_EQ(over.regions, (std::vector<TextDiff::Region>{{10'001, 5'001}}));
}

TEST(TextDiffTest, ThePositionalSummaryDoesNotRealign) {
    std::string older = numberedLines(60'000);
    std::string newer = "inserted\n" + older;
    auto result = TextDiff::compare(older, newer);
    ASSERT_EQ(result.kind, Result::Kind::summary);
    // 60,001 and 60,002 lines (each text ends with a line break): after the
    // inserted line every position differs, to the end of both sides.
    EXPECT_EQ(result.newerDiffering, 60'002);
    EXPECT_EQ(result.olderDiffering, 60'001);
    EXPECT_EQ(result.regions, (std::vector<TextDiff::Region>{{1, 60'002}}));
}

TEST(TextDiffTest, ApplyingTheLinesToTheOldTextGivesTheNewOne) {
    std::mt19937 random(7);
    const std::vector<std::string> alphabet = {"alpha", "beta", "gamma", "delta", "", "epsilon"};
    for (int round = 0; round < 300; ++round) {
        auto make = [&](int count) {
            std::string text;
            for (int i = 0; i < count; ++i) {
                text += alphabet[random() % alphabet.size()];
                if (i + 1 < count || random() % 2) text += (random() % 5 == 0) ? "\r\n" : "\n";
            }
            return text;
        };
        const std::string older = make(int(random() % 40)), newer = make(int(random() % 40));
        auto result = TextDiff::compare(older, newer);
        ASSERT_EQ(result.kind, Result::Kind::lines);
        EXPECT_EQ(rebuildNewer(TextDiff::splitLines(older), result.lines), TextDiff::splitLines(newer))
            << "round " << round;
        int expectedNew = 0;
        for (const auto& line : result.lines)
            if (line.kind != Line::Kind::removed) {
                EXPECT_EQ(*line.newNumber, ++expectedNew);
            }
    }
}

TEST(TextDiffTest, TheEditScriptIsShortest) {
    // One line changed in the middle of 1,000: exactly one removal and one addition.
    std::string older = numberedLines(1'000);
    std::string newer = older;
    newer.replace(newer.find("line 500\n"), 9, "line five hundred\n");
    auto result = TextDiff::compare(older, newer);
    EXPECT_EQ(result.lines.size() - countOf(result.lines, Line::Kind::context), 2u);
    // Interleaved changes (no shared prefix or suffix to trim): edit distance 4.
    auto interleaved = TextDiff::compare("a\nb\nc\nd\ne", "x\nb\nc\ny\ne\nz");
    EXPECT_EQ(interleaved.lines.size() - countOf(interleaved.lines, Line::Kind::context), 5u);
}

}  // namespace
}  // namespace vosklin

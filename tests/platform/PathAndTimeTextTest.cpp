#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"

namespace vosklin {
namespace {

struct ShownName {
    const char* label;
    std::string name;
    std::string shown;
};

// What bash makes of `text` as one word: the quoted form must give the name's bytes back.
std::string shellWord(const std::string& text) {
    char script[] = "/tmp/vosklin-word-XXXXXX";
    const int fd = ::mkstemp(script);
    const std::string command = "printf %s " + text;
    if (fd < 0 || ::write(fd, command.data(), command.size()) != ssize_t(command.size())) return "(no script)";
    ::close(fd);
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(("bash " + std::string(script)).c_str(), "r"), ::pclose);
    std::string bytes;
    char buffer[512];
    while (std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe.get())) bytes.append(buffer, got);
    pipe.reset();
    ::unlink(script);
    return bytes;
}

TEST(DisplayNameTest, ControlBytesAndInvalidUtf8AreQuotedAsTheShellReadsThemBack) {
    const ShownName cases[] = {
        {"plain", "notes.txt", "notes.txt"},
        {"spacesAndQuotesStayReadable", "it's a \\ \"name\"", "it's a \\ \"name\""},
        {"utf8", "caf\xC3\xA9 \xE6\x97\xA5", "caf\xC3\xA9 \xE6\x97\xA5"},
        {"leadingDash", "-rf", "-rf"},
        {"escapeSequence", "a\033[2Kb", "$'a\\033[2Kb'"},
        {"newline", "line\nbreak", "$'line\\nbreak'"},
        {"tabAndReturn", "t\tab\r", "$'t\\tab\\r'"},
        {"deleteAndBell", "x\x7F\a", "$'x\\177\\a'"},
        {"quoteAndBackslashBesideAControl", "q'\\\x01", "$'q\\'\\\\\\001'"},
        {"invalidUtf8", "\xFF\xFElatin", "$'\\377\\376latin'"},
        {"truncatedSequence", "ab\xE6\x97", "$'ab\\346\\227'"},
        {"c1Control", "csi\xC2\x9B" "2J", "$'csi\\302\\2332J'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(DisplayName::of(c.name), c.shown);
        EXPECT_EQ(DisplayName::needsQuoting(c.name), c.name != c.shown);
        if (c.name != c.shown) {
            EXPECT_EQ(shellWord(c.shown), c.name);
        }
    }
}

TEST(PathNamesTest, ComponentsParentsAndExtensions) {
    EXPECT_EQ(joinPath("/a/", "/b"), "/a/b");
    EXPECT_EQ(parentPath("/a/b/c/"), "/a/b");
    EXPECT_EQ(parentPath("/a"), "/");
    EXPECT_EQ(parentPath("a"), ".");
    EXPECT_EQ(lastComponent("/a/Book.pages/"), "Book.pages");
    EXPECT_EQ(pathExtension("archive.tar.gz"), "gz");
    EXPECT_EQ(pathExtension(".bashrc"), "");
    EXPECT_EQ(pathExtension("dir.d/README"), "");
    EXPECT_EQ(lexicallyNormal("//home/./ana//docs/"), "/home/ana/docs");
    std::string relative;
    EXPECT_TRUE(relativeTo("/home/ana/", "/home/ana/docs/a.txt", relative));
    EXPECT_EQ(relative, "docs/a.txt");
    EXPECT_FALSE(relativeTo("/home/ana", "/home/ana", relative)) << "the root itself is not below the root";
    EXPECT_FALSE(relativeTo("/home/ana", "/home/anabel/x", relative)) << "a shared prefix is not a parent";
}

TEST(InstantTest, FormatsAndParsesIso8601Utc) {
    EXPECT_EQ(formatInstantSeconds(1'740'839'525.9), "2025-03-01T14:32:05Z");
    EXPECT_EQ(formatInstant(1'740'839'525.25), "2025-03-01T14:32:05.25Z");
    EXPECT_EQ(formatInstant(1'740'839'525), "2025-03-01T14:32:05Z");
    EXPECT_EQ(parseInstant("2025-03-01T14:32:05Z"), 1'740'839'525.0);
    EXPECT_EQ(parseInstant("2025-03-01T15:32:05+01:00"), 1'740'839'525.0);
    EXPECT_DOUBLE_EQ(*parseInstant("2025-03-01T14:32:05.25Z"), 1'740'839'525.25);
    EXPECT_FALSE(parseInstant("2025-03-01T14:32:05").has_value()) << "no offset: ambiguous";
    EXPECT_EQ(parseInstant("2024-02-29T23:59:59-00:30"), 1'709'252'999.0) << "a leap day, and an offset's minutes";
    EXPECT_FALSE(parseInstant("yesterday").has_value());
}

// Impossible dates and times are refused with the reason, never rolled over into
// the next day or minute; the same with or without local times allowed.
TEST(InstantTest, ImpossibleDatesAndTimesAreRefusedWithTheReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"2025-02-30", "no day 30 in February 2025"},
        {"2025-04-31T10:00:00Z", "no day 31 in April 2025"},
        {"2025-02-29 12:00", "no day 29 in February 2025"},
        {"2100-02-29", "no day 29 in February 2100"},
        {"2025-00-10", "no month 0"},
        {"2025-13-01T14:32:05Z", "no month 13"},
        {"2025-03-01 24:00", "hour 24"},
        {"2025-03-01T12:60Z", "minute 60"},
        {"2025-03-01T23:59:60Z", "second 60"},
        {"2025-03-01T12:00:00+24:00", "offset beyond"},
        {"2025-03-01T12:00:00+05:60", "offset beyond"},
        {"2025-03-01T12:00:00+5", "offset that is not"},
        {"2025-03-01T12:00:00Zulu", "after its offset"},
        {"2025-3-1", "does not start with a date"},
        {"", "is empty"},
    };
    for (const auto& [text, problem] : cases) {
        for (const bool local : {false, true}) {
            SCOPED_TRACE(std::string(text) + (local ? " (local allowed)" : ""));
            const auto reading = readInstant(text, local);
            EXPECT_FALSE(reading.instant.has_value()) << formatInstant(reading.instant.value_or(0));
            EXPECT_NE(reading.problem.find(problem), std::string::npos) << reading.problem;
        }
    }
    EXPECT_TRUE(readInstant("2000-02-29", true).instant.has_value()) << "a leap day is a day";
    EXPECT_TRUE(readInstant("2025-04-30 23:59:59", true).instant.has_value());
}

TEST(PathJsonTest, ValidUtf8IsWrittenPlainAndAnythingElseKeepsItsBytes) {
    nlohmann::json object;
    putPath(object, "path", "Dokumente/Übersicht.txt");
    EXPECT_EQ(object.size(), 1u);
    EXPECT_EQ(getPath(object, "path"), "Dokumente/Übersicht.txt");

    const std::string raw = std::string("a\xff") + "b\xc3";  // a stray byte and a truncated sequence
    putPath(object, "other", raw);
    EXPECT_EQ(object["other"], "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
    EXPECT_EQ(object["otherBytes"], "61ff62c3");
    EXPECT_EQ(getPath(nlohmann::json::parse(object.dump()), "other"), raw);
    EXPECT_FALSE(isValidUtf8("\xed\xa0\x80")) << "an encoded surrogate is not UTF-8";
    EXPECT_FALSE(isValidUtf8("\xc0\xaf")) << "overlong";
    EXPECT_TRUE(isValidUtf8("日本 😀"));
}

}  // namespace
}  // namespace vosklin

TEST(StringTableTest, CountedTextsTakeTheirNumberOnlyWhereTheFormHasAPlace) {
    struct Row {
        const char* key;
        long long number;
        std::vector<std::string> more;
        const char* expected;
    };
    const Row rows[] = {
        {"rewind.banner.done %lld %@", 1, {"noon"}, "1 change made: the folder is as it was at noon."},
        {"rewind.banner.done %lld %@", 3, {"noon"}, "3 changes made: the folder is as it was at noon."},
        {"rewind.moment.files %lld", 1, {}, "1 file changed"},
        {"rewind.moment.files %lld", 0, {}, "0 files changed"},
        {"no.such.key %lld", 1, {}, "no.such.key %lld"},
    };
    for (const auto& row : rows) EXPECT_EQ(StringTable::count(row.key, row.number, row.more), row.expected) << row.key;
}

// history, show, name, star and diff through the built binary, over a history
// made by real captures at chosen instants.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/RecordedFolder.h"
#include "platform/Instant.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::t0;

class HistoryCommandsTest : public test::RecordedFolder, public ::testing::Test {
protected:
    HistoryCommandsTest() : RecordedFolder("A0000000-0000-4000-8000-000000000001") {}
};

TEST_F(HistoryCommandsTest, HistoryShowsSessionsOfMomentsNewestFirst) {
    capture("a.txt", "first", t0);
    capture("a.txt", "first, edited", t0 + 30);       // same moment: added, with the later size
    capture("b.txt", "bee", t0 + 1000);               // a second moment, same session
    const auto c = capture("c.txt", "sea", t0 + 5000);  // a new session
    stack.catalog.recordRename(c.fileID, "renamed.txt", std::string("txt"), t0 + 5010);

    auto history = jsonOf({"history", root});
    ASSERT_EQ(history["sessions"].size(), 2u);
    const auto& newest = history["sessions"][0];
    EXPECT_EQ(newest["end"], formatInstant(t0 + 5010));
    ASSERT_EQ(newest["moments"].size(), 1u);
    const auto& moment = newest["moments"][0];
    EXPECT_EQ(moment["instantCount"], 2);
    ASSERT_EQ(moment["changes"].size(), 1u);
    EXPECT_EQ(moment["changes"][0]["kind"], "renamed");
    EXPECT_EQ(moment["changes"][0]["relativePath"], "renamed.txt");

    const auto& older = history["sessions"][1];
    ASSERT_EQ(older["moments"].size(), 2u);
    EXPECT_EQ(older["moments"][1]["at"], formatInstant(t0 + 30));
    EXPECT_EQ(older["moments"][1]["changes"][0]["kind"], "added");
    EXPECT_EQ(older["moments"][1]["changes"][0]["bytes"], 13);
    EXPECT_EQ(older["moments"][1]["headline"], "1 file changed");

    auto text = vosklin({"history", root});
    EXPECT_NE(text.out.find("[" + formatInstant(t0 + 1000) + "]"), std::string::npos) << text.out;
}

TEST_F(HistoryCommandsTest, LongMomentsAreFoldedUnlessAllIsAsked) {
    for (int i = 0; i < 12; ++i) capture("f" + std::to_string(i) + ".txt", std::string(std::size_t(i + 1), 'x'), t0 + i);
    auto folded = vosklin({"history", root});
    EXPECT_NE(folded.out.find("and 2 more"), std::string::npos) << folded.out;
    auto all = vosklin({"history", root, "--all"});
    EXPECT_EQ(all.out.find("more"), std::string::npos);
    EXPECT_NE(all.out.find("f0.txt"), std::string::npos) << "the lightest change comes last, and is shown";
}

TEST_F(HistoryCommandsTest, AMomentCanBeNamedAndUnnamedByItsPrintedInstant) {
    capture("a.txt", "one", t0 + 0.123456789);  // printed rounded to the microsecond
    capture("b.txt", "two", t0 + 10);
    const std::string moment = newestMoment();
    ASSERT_EQ(vosklin({"name", root, moment, "Before the big edit"}).exitStatus, 0);
    EXPECT_EQ(jsonOf({"history", root})["sessions"][0]["moments"][0]["headline"], "Before the big edit");
    auto marks = stack.catalog.marks(folder.id);
    ASSERT_EQ(marks.size(), 1u);
    EXPECT_EQ(marks[0].at, t0 + 10) << "the mark sits on the moment's exact instant";
    ASSERT_EQ(vosklin({"unname", root, moment}).exitStatus, 0);
    EXPECT_EQ(jsonOf({"history", root})["sessions"][0]["moments"][0]["headline"], "2 files changed");
    EXPECT_TRUE(stack.catalog.marks(folder.id).empty());

    test::expectRefused(vosklin({"name", root, formatInstant(t0 + 500), "x"}), "no moment");
}

TEST_F(HistoryCommandsTest, ShowGivesTheFolderAsItWasAtAnInstant) {
    const auto first = capture("a.txt", "v1", t0);
    capture("a.txt", "version two", t0 + 100);
    const auto b = capture("b.txt", "b", t0 + 200);
    stack.catalog.markDeleted(b.fileID, t0 + 300);

    auto early = jsonOf({"show", root, "--at", formatInstant(t0 + 50)});
    ASSERT_EQ(early["files"].size(), 1u);
    EXPECT_EQ(early["files"][0]["versionID"], first.id);
    EXPECT_EQ(jsonOf({"show", root, "--at", formatInstant(t0 + 250)})["files"].size(), 2u);
    EXPECT_EQ(jsonOf({"show", root, "--at", formatInstant(t0 + 300)})["files"].size(), 1u) << "deleted by then";
    // A local date-time works too (the test runs with the machine's zone).
    EXPECT_EQ(vosklin({"show", root, "--at", "2025-03-01"}).exitStatus, 0);
    test::expectRefused(vosklin({"show", root, "--at", "soon"}), "not an instant");
}

// Every command that takes an instant refuses an impossible one by name, rather
// than rolling it over into the next day (a rewind to 1 May for "April 31").
TEST_F(HistoryCommandsTest, ImpossibleInstantsAreRefusedByEveryCommandThatTakesOne) {
    capture("a.txt", "v1", t0);
    test::writeFile(root + "/a.txt", "changed since");
    const std::pair<std::string, std::string> cases[] = {
        {"2025-02-30", "no day 30 in February 2025"},
        {"2025-04-31", "no day 31 in April 2025"},
        {"2025-02-29 10:00", "no day 29 in February 2025"},
        {"2025-03-01 24:00", "hour 24"},
        {"2025-03-01T12:60:00Z", "minute 60"},
        {"2025-03-01T12:00:00+25:00", "offset beyond"},
    };
    for (const auto& [instant, because] : cases) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"show", root, "--at", instant},
              std::vector<std::string>{"rewind", root, instant, "--dry-run"},
              std::vector<std::string>{"name", root, instant, "a name"}}) {
            SCOPED_TRACE(arguments[0] + " " + instant);
            const auto result = vosklin(arguments);
            test::expectRefused(result, "'" + instant + "' is not an instant: it ");
            test::expectRefused(result, because);
        }
    }
    // A local time the clocks skipped (Berlin went from 02:00 to 03:00 that night) is not moved to 03:30.
    if (fs::exists("/usr/share/zoneinfo/Europe/Berlin")) {
        const auto skipped = test::runVosklin({"--home", home.path(), "show", root, "--at", "2025-03-30 02:30"},
                                              {{"TZ", "Europe/Berlin"}});
        test::expectRefused(skipped, "'2025-03-30 02:30' is not an instant: it is a local time that does not exist");
        EXPECT_EQ(test::runVosklin({"--home", home.path(), "show", root, "--at", "2025-03-30 03:30"},
                                   {{"TZ", "Europe/Berlin"}})
                      .exitStatus,
                  0);
    }
    EXPECT_EQ(test::readFile(root + "/a.txt"), "changed since");
    EXPECT_TRUE(stack.catalog.marks(folder.id).empty()) << "nothing named";
}

TEST_F(HistoryCommandsTest, DiffComparesVersionsAndLiveFiles) {
    const auto v1 = capture("notes.txt", "alpha\nbeta\ngamma\n", t0);
    const auto v2 = capture("notes.txt", "alpha\nBETA\ngamma\ndelta\n", t0 + 100);
    auto text = vosklin({"diff", std::to_string(v1.id), std::to_string(v2.id)});
    ASSERT_EQ(text.exitStatus, 0) << text.err;
    EXPECT_NE(text.out.find("     2        - beta"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("            2 + BETA"), std::string::npos) << text.out;
    EXPECT_EQ(text.out.find("\033["), std::string::npos) << "no colour when not on a terminal";

    auto lines = jsonOf({"diff", std::to_string(v2.id), root + "/notes.txt"});
    EXPECT_EQ(lines["kind"], "lines");
    EXPECT_EQ(vosklin({"diff", std::to_string(v2.id), root + "/notes.txt"}).out, "The two versions are identical.\n");

    test::writeFile(place / "image.bin", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    EXPECT_EQ(jsonOf({"diff", std::to_string(v1.id), place / "image.bin"})["kind"], "notText");
    EXPECT_EQ(vosklin({"diff", "999", std::to_string(v1.id)}).exitStatus, 1);
}

TEST_F(HistoryCommandsTest, StarsAreKeptOnVersions) {
    const auto v = capture("a.txt", "a", t0);
    ASSERT_EQ(vosklin({"star", std::to_string(v.id)}).exitStatus, 0);
    EXPECT_TRUE(jsonOf({"versions", root + "/a.txt"})["versions"][0]["isStarred"]);
    ASSERT_EQ(vosklin({"unstar", std::to_string(v.id)}).exitStatus, 0);
    EXPECT_FALSE(jsonOf({"versions", root + "/a.txt"})["versions"][0]["isStarred"]);
    test::expectRefused(vosklin({"star", "12345"}), "no version 12345");
}

TEST_F(HistoryCommandsTest, RewindAndUndoByThePrintedInstantOfAMoment) {
    // An instant that does not print exactly: the rewind must still read the
    // state at the moment itself, not a hair before it.
    const double then = t0 + 0.7594000123;
    capture("a.txt", "one", then);
    capture("keep.txt", "kept", then);
    const std::string moment = newestMoment();
    test::writeFile(root + "/a.txt", "two");
    test::writeFile(root + "/b.txt", "added later");
    // Captured seconds later, the changes join that moment, which then no longer ends at the
    // printed instant: the instant still stands for the state at it.
    capture("c.txt", "captured three seconds later", then + 3);
    fs::remove(root + "/c.txt");

    auto dryRun = vosklin({"rewind", root, moment, "--dry-run"});
    ASSERT_EQ(dryRun.exitStatus, 0) << dryRun.err;
    EXPECT_NE(dryRun.out.find("revert   a.txt"), std::string::npos) << dryRun.out;
    EXPECT_EQ(dryRun.out.find("keep.txt"), std::string::npos) << "unchanged files are not touched";
    EXPECT_EQ(test::readFile(root + "/a.txt"), "two") << "a dry run writes nothing";
    EXPECT_EQ(vosklin({"rewind", root, moment}).exitStatus, 1) << "no terminal to confirm on, no --yes";

    auto rewound = vosklin({"rewind", root, moment, "--yes"});
    ASSERT_EQ(rewound.exitStatus, 0) << rewound.err;
    EXPECT_EQ(test::readFile(root + "/a.txt"), "one");
    EXPECT_EQ(test::readFile(root + "/keep.txt"), "kept");
    EXPECT_FALSE(fs::exists(root + "/b.txt"));
    EXPECT_FALSE(fs::exists(root + "/c.txt")) << "it came after the instant";

    ASSERT_EQ(vosklin({"undo-rewind", root, "--yes"}).exitStatus, 0);
    EXPECT_EQ(test::readFile(root + "/a.txt"), "two");
    EXPECT_EQ(test::readFile(root + "/b.txt"), "added later");
    auto nothing = vosklin({"rewind", root, moment, "--yes"});
    EXPECT_EQ(nothing.exitStatus, 0) << "after undo the rewind has work again: " << nothing.err;
}

// Naming a moment turns its mark's kind to "named": undo must still find the
// moment before the latest rewind.
struct NamingAfterRewind {
    const char* name;
    bool twoRewinds;                                        // a.txt edited to "three" and rewound again
    std::vector<std::pair<MomentMark::Kind, bool>> marks;   // which mark of the latest rewind, named (true) or named and unnamed
    std::string aAfterUndo;
    bool bAfterUndo;
};

void PrintTo(const NamingAfterRewind& row, std::ostream* out) { *out << row.name; }

class UndoAfterNamingTest : public HistoryCommandsTest, public ::testing::WithParamInterface<NamingAfterRewind> {};

TEST_P(UndoAfterNamingTest, UndoGoesBackToJustBeforeTheLatestRewind) {
    const auto& row = GetParam();
    capture("a.txt", "one", t0);
    const std::string moment = newestMoment();
    test::writeFile(root + "/a.txt", "two");
    test::writeFile(root + "/b.txt", "added later");
    ASSERT_EQ(vosklin({"rewind", root, moment, "--yes"}).exitStatus, 0);
    if (row.twoRewinds) {
        test::writeFile(root + "/a.txt", "three");
        ASSERT_EQ(vosklin({"rewind", root, moment, "--yes"}).exitStatus, 0);
    }
    const auto marks = stack.catalog.marks(folder.id);  // newest first: the latest rewind's two marks lead
    ASSERT_GE(marks.size(), 2u);
    for (const auto& [kind, keepName] : row.marks) {
        const auto& mark = marks[kind == MomentMark::Kind::rewind ? 0 : 1];
        ASSERT_EQ(mark.kind, kind);
        const std::string instant = formatInstant(mark.at);
        ASSERT_EQ(vosklin({"name", root, instant, "Worth keeping"}).exitStatus, 0) << instant;
        if (!keepName) {
            ASSERT_EQ(vosklin({"unname", root, instant}).exitStatus, 0) << instant;
        }
    }

    auto undone = vosklin({"undo-rewind", root, "--yes"});
    ASSERT_EQ(undone.exitStatus, 0) << undone.err;
    EXPECT_EQ(test::readFile(root + "/a.txt"), row.aAfterUndo);
    EXPECT_EQ(fs::exists(root + "/b.txt"), row.bAfterUndo);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UndoAfterNamingTest,
    ::testing::Values(
        NamingAfterRewind{"BeforeRewindNamed", false, {{MomentMark::Kind::beforeRewind, true}}, "two", true},
        NamingAfterRewind{"BeforeRewindNamedThenUnnamed", false, {{MomentMark::Kind::beforeRewind, false}}, "two",
                          true},
        NamingAfterRewind{"RewindNamed", false, {{MomentMark::Kind::rewind, true}}, "two", true},
        NamingAfterRewind{"BothNamed", false,
                          {{MomentMark::Kind::rewind, true}, {MomentMark::Kind::beforeRewind, true}}, "two", true},
        // An older, unnamed before-rewind moment is not the one to go back to.
        NamingAfterRewind{"SecondRewindsBeforeNamed", true, {{MomentMark::Kind::beforeRewind, true}}, "three",
                          false}),
    [](const auto& entry) { return std::string(entry.param.name); });

}  // namespace
}  // namespace vosklin

// A rewind asks on a terminal, and the running daemon writes: what it writes
// must be the plan the user confirmed. Each case changes the folder while the
// question is on screen, then answers yes.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>

#include "app/LiveDaemonTest.h"
#include "support/DaemonProcess.h"
#include "support/TerminalSession.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;

struct ChangeWhileAsked {
    const char* name;
    bool undo;                                        // undo-rewind (after a rewind) rather than rewind
    std::function<void(const std::string& root)> change;
    bool refused;
    std::map<std::string, std::string> expected;     // path -> contents afterwards ("" = absent)
};

void PrintTo(const ChangeWhileAsked& row, std::ostream* out) { *out << row.name; }

class RewindConfirmationTest : public test::LiveDaemonTest, public ::testing::WithParamInterface<ChangeWhileAsked> {};

TEST_P(RewindConfirmationTest, TheDaemonRunsOnlyThePlanThatWasConfirmed) {
    const auto& row = GetParam();
    watched.write("a.txt", "one");
    watched.write("keep.txt", "kept");
    test::DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    const std::string moment = jsonOf({"history", root})["sessions"][0]["moments"][0]["at"];
    watched.write("a.txt", "two");
    settle();
    std::vector<std::string> command = {"--home", home.path(), "rewind", root, moment};
    if (row.undo) {
        ASSERT_EQ(vosklin({"rewind", root, moment, "--yes"}).exitStatus, 0);
        settle();
        command = {"--home", home.path(), "undo-rewind", root};
    }

    test::TerminalSession session(command);
    ASSERT_TRUE(session.readUntil("[y/N]")) << session.output() << session.errorOutput();
    row.change(root);
    settle();
    session.type("y\n");
    const int status = session.finish();

    if (row.refused) {
        EXPECT_EQ(status, 1) << session.output();
        EXPECT_NE(session.errorOutput().find("changed since the plan was shown"), std::string::npos)
            << session.errorOutput();
    } else {
        EXPECT_EQ(status, 0) << session.errorOutput();
    }
    for (const auto& [path, contents] : row.expected) {
        const std::string file = root + "/" + path;
        EXPECT_EQ(fs::exists(file) ? test::readFile(file) : "", contents) << path << " (\"\" = absent)";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RewindConfirmationTest,
    ::testing::Values(
        ChangeWhileAsked{"FileAddedWouldBeRemovedUnseen", false,
                         [](const std::string& root) { test::writeFile(root + "/b.txt", "new"); }, true,
                         {{"a.txt", "two"}, {"b.txt", "new"}}},
        ChangeWhileAsked{"FileDeletedTurnsARevertIntoARestore", false,
                         [](const std::string& root) { fs::remove(root + "/a.txt"); }, true, {{"a.txt", ""}}},
        ChangeWhileAsked{"EditThatLeavesThePlanAsItWasGoesAhead", false,
                         [](const std::string& root) { test::writeFile(root + "/a.txt", "three"); }, false,
                         {{"a.txt", "one"}, {"keep.txt", "kept"}}},
        ChangeWhileAsked{"UndoRefusedToo", true,
                         [](const std::string& root) { test::writeFile(root + "/c.txt", "made after"); }, true,
                         {{"a.txt", "one"}, {"c.txt", "made after"}}}),
    [](const auto& entry) { return std::string(entry.param.name); });

}  // namespace
}  // namespace vosklin

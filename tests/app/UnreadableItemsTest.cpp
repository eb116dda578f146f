// What a scan cannot read is said, never skipped in silence: scan and status
// name it, exit with 3, and do not take what it holds for deleted. Root reads
// everything, so as root the commands run as "nobody" (setpriv), over a home
// and a folder that user owns.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "app/VosklinHomeTest.h"
#include "platform/DisplayName.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Unreadable {
    const char* label;
    std::string folder;  // holds one file, and is then given this mode
    mode_t mode;
    std::vector<std::string> named;  // what scan and status must name
};

void PrintTo(const Unreadable& row, std::ostream* out) { *out << row.label; }

constexpr uid_t nobody = 65534;

class UnreadableItemsTest : public test::VosklinHomeTest, public ::testing::WithParamInterface<Unreadable> {
protected:
    void SetUp() override {
        if (::geteuid() != 0) return;
        if (::access("/usr/bin/setpriv", X_OK) != 0) GTEST_SKIP() << "as root this needs setpriv, which is missing";
        launcher = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    }
    // Hands the home and the folder to the user the commands run as.
    void giveAway() {
        if (launcher.empty()) return;
        for (const std::string& top : {home.path(), root})
            for (const auto& entry : fs::recursive_directory_iterator(top))
                ASSERT_EQ(::lchown(entry.path().c_str(), nobody, nobody), 0) << entry.path();
        ASSERT_EQ(::chown(home.path().c_str(), nobody, nobody), 0);
        ASSERT_EQ(::chown(root.c_str(), nobody, nobody), 0);
    }
    test::CommandResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--home", home.path()});
        return test::runVosklin(arguments, {}, launcher);
    }
    std::vector<std::string> launcher;
};

TEST_P(UnreadableItemsTest, ScanAndStatusNameWhatCouldNotBeReadAndExitWith3) {
    const auto& row = GetParam();
    watched.write("open.txt", "readable");
    watched.write(row.folder + "/inside.txt", "recorded while it could be read");
    giveAway();
    ASSERT_EQ(run({"folder", "add", root}).exitStatus, 0);
    ASSERT_EQ(run({"scan", root}).exitStatus, 0);
    const std::string locked = root + "/" + row.folder;
    ASSERT_EQ(::chmod(locked.c_str(), row.mode), 0);

    for (const std::string command : {"scan", "snapshot"}) {
        const auto text = run({command, root});
        EXPECT_EQ(text.exitStatus, 3) << command << ": " << text.out << text.err;
        for (const auto& path : row.named)
            EXPECT_NE(text.out.find("    " + DisplayName::of(path) + "\n"), std::string::npos) << text.out;
        const auto asJson = run({command, root, "--json"});
        EXPECT_EQ(asJson.exitStatus, 3) << command;
        const json report = json::parse(asJson.out);
        EXPECT_EQ(report.value("unreadableCount", 0), std::int64_t(row.named.size())) << asJson.out;
        EXPECT_EQ(report["unreadablePaths"], json(row.named)) << command;
        EXPECT_EQ(report.value("tombstoned", -1), 0) << command << ": what could not be read is not deleted";
    }

    const auto status = run({"status"});
    EXPECT_EQ(status.exitStatus, 3) << status.out << status.err;
    for (const auto& path : row.named) EXPECT_NE(status.out.find(" " + DisplayName::of(path)), std::string::npos) << status.out;
    const auto statusJson = run({"status", "--json"});
    EXPECT_EQ(statusJson.exitStatus, 3);
    const json folder = json::parse(statusJson.out)["folders"][0];
    EXPECT_EQ(folder.value("unreadableCount", 0), std::int64_t(row.named.size())) << statusJson.out;
    EXPECT_EQ(folder["unreadablePaths"], json(row.named));

    const json history = json::parse(run({"history", root, "--json"}).out);
    test::expectRefused(run({"rewind", root, history["sessions"][0]["moments"][0]["at"], "--yes"}), "could not be read");

    // Readable again: the next scan says nothing more, and status forgets it.
    ASSERT_EQ(::chmod(locked.c_str(), 0755), 0);
    EXPECT_EQ(run({"scan", root}).exitStatus, 0);
    EXPECT_EQ(run({"status"}).exitStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnreadableItemsTest,
    ::testing::Values(Unreadable{"FolderThatCannotBeListed", "locked", 0, {"locked"}},
                      Unreadable{"FolderWhoseItemsCannotBeLookedAt", "locked", 0644, {"locked/inside.txt"}},
                      Unreadable{"ControlBytesInTheName", "lo\033[2Kcked", 0, {"lo\033[2Kcked"}}),
    [](const auto& entry) { return std::string(entry.param.label); });

}  // namespace
}  // namespace vosklin

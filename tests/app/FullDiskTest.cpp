// The commands through the built binary when the disk holding the home (store,
// catalog, folder list) and the watched folder is full: every read works, and
// every write is refused with one line naming that disk, leaving things as they were.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;

// A small tmpfs over a temporary folder, unmounted on destruction.
class SmallTmpfs {
public:
    explicit SmallTmpfs(const std::string& at) : at_(at) {
        if (::mount("tmpfs", at.c_str(), "tmpfs", 0, "size=4m") != 0) whyNot_ = std::strerror(errno);
    }
    ~SmallTmpfs() {
        if (whyNot_.empty()) ::umount2(at_.c_str(), MNT_DETACH);
    }
    const std::string& whyNot() const { return whyNot_; }

    // Writes zeros until the file system says it is full (again, after anything was freed).
    void fill() const {
        std::ofstream filler(at_ + "/filler", std::ios::binary | std::ios::app);
        const std::string chunk(64 * 1024, '\0');
        while (filler.write(chunk.data(), std::streamsize(chunk.size())) && filler.flush()) {
        }
    }

private:
    std::string at_;
    std::string whyNot_;
};

class FullDiskTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!disk.whyNot().empty()) GTEST_SKIP() << "cannot mount a tmpfs here (" << disk.whyNot() << ")";
        fs::create_directories(root);
        test::writeFile(root + "/a.txt", "as it was\n");
        ASSERT_EQ(vosklin({"folder", "add", root}).exitStatus, 0);
        ASSERT_EQ(vosklin({"scan", root}).exitStatus, 0);
        test::writeFile(root + "/a.txt", "as it is\n");
        ASSERT_EQ(vosklin({"scan", root}).exitStatus, 0);
        auto versions = test::jsonInHome(home, {"versions", root + "/a.txt"})["versions"];
        ASSERT_EQ(versions.size(), 2u);
        newer = std::to_string(versions[0]["id"].get<std::int64_t>());
        older = std::to_string(versions[1]["id"].get<std::int64_t>());
        moment = test::jsonInHome(home, {"history", root})["sessions"].back()["moments"].back()["at"].get<std::string>();
        disk.fill();
    }

    test::CommandResult vosklin(std::vector<std::string> arguments) { return test::runInHome(home, arguments); }

    test::TempDirectory directory;
    const std::string mountPoint = fs::canonical(directory.path()).string();
    SmallTmpfs disk{mountPoint};
    const std::string home = mountPoint + "/home";
    const std::string root = mountPoint + "/Docs";
    std::string older, newer, moment;
};

TEST_F(FullDiskTest, ReadsWorkAndWritesNameTheFullDisk) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> reads = {
        {{"status"}, "2 versions"},
        {{"folder", "list"}, "2 versions"},
        {{"versions", root + "/a.txt"}, "2 versions"},
        {{"cat", older}, "as it was"},
        {{"history", root}, "a.txt"},
        {{"show", root, "--at", moment}, "a.txt"},
        {{"diff", older, newer}, "+ as it is"},
    };
    for (const auto& [arguments, shows] : reads) {
        SCOPED_TRACE(arguments[0]);
        const auto result = vosklin(arguments);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        EXPECT_NE(result.out.find(shows), std::string::npos) << result.out;
    }

    const std::string folders = test::readFile(home + "/folders.json");
    fs::create_directories(mountPoint + "/Other");
    const std::vector<std::vector<std::string>> writes = {
        {"scan", root},
        {"snapshot", root},
        {"restore", older},
        {"restore", older, "--in-place"},
        {"rewind", root, moment, "--yes"},
        {"name", root, moment, "before"},
        {"folder", "budget", root, "20GB"},
        {"folder", "add", mountPoint + "/Other"},
        {"cat", older, "-o", root + "/out.txt"},
    };
    for (const auto& arguments : writes) {
        SCOPED_TRACE(arguments[0] + " " + arguments[1]);
        disk.fill();  // a refused command may have freed a page or two
        const auto result = vosklin(arguments);
        test::expectRefused(result, "The disk holding " + mountPoint + "/");
        test::expectRefused(result, "is full (the file system at " + mountPoint + ")");
    }
    EXPECT_EQ(test::readFile(root + "/a.txt"), "as it is\n");
    EXPECT_EQ(test::readFile(home + "/folders.json"), folders);
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(root)) left.push_back(entry.path().filename());
    EXPECT_EQ(left, std::vector<std::string>{"a.txt"}) << "no copy, scratch item or partial output left";
}

}  // namespace
}  // namespace vosklin

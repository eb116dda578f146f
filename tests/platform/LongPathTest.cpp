// The kernel refuses a path of PATH_MAX bytes or more; a tree may be deeper than
// that all the same. Every call that takes a path must reach such an item.
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/PosixFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

class LongPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        top = fileSystem.resolvedPath(directory.path());
        deep = top;
        for (int level = 0; level < 120; ++level) deep += "/" + std::string(40, 'd');
        ASSERT_GT(deep.size(), std::size_t(PATH_MAX));
        makeDirectories(fileSystem, deep);
    }
    void TearDown() override { removeAll(fileSystem, top + "/" + std::string(40, 'd')); }

    std::string write(const std::string& name, const std::string& bytes) {
        const std::string path = deep + "/" + name;
        UniqueFd file = fileSystem.createExclusive(path, 0644);
        fileSystem.writeAll(file.get(), bytes.data(), bytes.size());
        return path;
    }
    std::string read(const std::string& path) {
        UniqueFd file = fileSystem.openForReading(path);
        char buffer[64];
        return std::string(buffer, fileSystem.read(file.get(), buffer, sizeof buffer));
    }

    test::TempDirectory directory;
    PosixFileSystem fileSystem;
    std::string top, deep;
};

TEST_F(LongPathTest, EveryCallThatTakesAPathReachesBelowPathMax) {
    const std::string file = write("a.txt", "bytes");
    const struct {
        const char* call;
        std::function<void()> check;
    } calls[] = {
        {"status", [&] { EXPECT_EQ(fileSystem.status(file)->size, 5); }},
        {"linkStatus", [&] { EXPECT_TRUE(fileSystem.linkStatus(deep)->isDirectory()); }},
        {"statusOfAbsent", [&] { EXPECT_FALSE(fileSystem.status(deep + "/missing/x")); }},
        {"listDirectory", [&] { EXPECT_EQ(fileSystem.listDirectory(deep).size(), 1u); }},
        {"openForReading", [&] { EXPECT_EQ(read(file), "bytes"); }},
        {"renameAndBack",
         [&] {
             fileSystem.rename(file, deep + "/b.txt");
             EXPECT_EQ(read(deep + "/b.txt"), "bytes");
             fileSystem.rename(deep + "/b.txt", file);
         }},
        {"symlinkResolvedThroughParent",
         [&] {
             fileSystem.makeSymlink("..", deep + "/up");
             EXPECT_EQ(fileSystem.readLink(deep + "/up"), "..");
             EXPECT_EQ(fileSystem.resolvedPath(deep + "/up/" + lastComponent(deep) + "/./a.txt"), file);
             fileSystem.removeFile(deep + "/up");
         }},
        {"makeAndRemoveDirectory",
         [&] {
             EXPECT_TRUE(fileSystem.makeDirectory(deep + "/sub", 0755));
             fileSystem.syncDirectory(deep + "/sub");
             fileSystem.removeDirectory(deep + "/sub");
         }},
        {"openDirectoryBeneath", [&] { EXPECT_TRUE(fileSystem.statAt(fileSystem.openDirectoryBeneath(deep, "").get(), "a.txt")); }},
        {"linkAttributeAbsent", [&] { EXPECT_FALSE(fileSystem.linkAttribute(file, "user.none")); }},
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(call.call);
        try {
            call.check();
        } catch (const FileSystemError& error) {
            ADD_FAILURE() << error.code().message() << " from " << error.operation();
        }
    }
}

}  // namespace
}  // namespace vosklin

// Whether a watched folder can be recorded now: it must still be the folder that was added.
#include "bridge/FolderAccess.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/PosixFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::TempDirectory;

class FolderAccessTest : public ::testing::Test {
protected:
    // The record `folder add` would make of the folder at `path` as it is now.
    static WatchedFolder recordOf(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
        WatchedFolder folder;
        folder.id = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
        folder.path = path;
        folder.device = st.st_dev;
        folder.inode = st.st_ino;
        return folder;
    }

    TempDirectory place;
    const std::string path = place / "Documents";
    PosixFileSystem fileSystem;
    FolderAccess access{fileSystem};
};

TEST_F(FolderAccessTest, FolderAsAddedIsReachable) {
    fs::create_directory(path);
    place.write("Documents/a.txt", "a");
    auto result = access.check(recordOf(path));
    EXPECT_TRUE(result.reachable) << result.reason;
    EXPECT_EQ(result.reason, "");
}

TEST_F(FolderAccessTest, DeletedFolderNoLongerExists) {
    fs::create_directory(path);
    WatchedFolder folder = recordOf(path);
    fs::remove(path);
    auto result = access.check(folder);
    EXPECT_FALSE(result.reachable);
    EXPECT_EQ(result.reason, "no longer exists");
}

TEST_F(FolderAccessTest, AnotherFolderAtTheSamePathIsNotTheFolderThatWasAdded) {
    fs::create_directory(path);
    WatchedFolder folder = recordOf(path);
    // Made while the first still exists, so the file system cannot hand it the same inode.
    fs::create_directory(place / "replacement");
    fs::remove(path);
    fs::rename(place / "replacement", path);
    ASSERT_NE(recordOf(path).inode, folder.inode);
    auto result = access.check(folder);
    EXPECT_FALSE(result.reachable);
    EXPECT_NE(result.reason.find("replaced"), std::string::npos) << result.reason;
}

TEST_F(FolderAccessTest, FileOrLinkAtThePathIsNotReachable) {
    fs::create_directory(path);
    WatchedFolder folder = recordOf(path);
    fs::rename(path, place / "moved");
    test::writeFile(path, "not a folder");
    auto file = access.check(folder);
    EXPECT_FALSE(file.reachable);
    EXPECT_FALSE(file.reason.empty());

    // A link back to the very folder is not the folder either: recording through it would follow it anywhere.
    fs::remove(path);
    fs::create_directory_symlink(place / "moved", path);
    auto link = access.check(folder);
    EXPECT_FALSE(link.reachable);
    EXPECT_FALSE(link.reason.empty());
}

TEST_F(FolderAccessTest, UnreadableFolderIsNotReachable) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads every folder";
    fs::create_directory(path);
    WatchedFolder folder = recordOf(path);
    ::chmod(path.c_str(), 0);
    auto result = access.check(folder);
    ::chmod(path.c_str(), 0700);
    EXPECT_FALSE(result.reachable);
    EXPECT_EQ(result.reason, "cannot be read");
}

}  // namespace
}  // namespace vosklin

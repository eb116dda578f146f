#include "store/VersionStoreLayout.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/PosixFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;

constexpr double instant = 1'740'839'525.75;  // 2025-03-01T14:32:05.75Z

class VersionStoreLayoutTest : public ::testing::Test {
protected:
    TempDirectory directory;
    PosixFileSystem fileSystem;
    VersionStoreLayout layout{directory / "store", fileSystem};
};

TEST_F(VersionStoreLayoutTest, PreparesItsTreeAndClearsStaging) {
    layout.prepareDirectories();
    layout.prepareDirectories();  // existing directories are fine
    for (const char* name : {"versions", "staging", "journal"})
        EXPECT_TRUE(std::filesystem::is_directory(directory / (std::string("store/") + name))) << name;
    EXPECT_EQ(layout.databasePath(), directory / "store/index.sqlite");
    directory.write("store/staging/leftover.tmp", "x");
    directory.write("store/staging/nested/deep/file", "y");
    layout.clearStaging();
    EXPECT_TRUE(std::filesystem::is_empty(directory / "store/staging"));
}

// Slots are grouped by the low byte of the file id; captures in the same second get numbered slots.
TEST_F(VersionStoreLayoutTest, SlotsAreGroupedByFileIdAndNumberedWithinASecond) {
    layout.prepareDirectories();
    EXPECT_EQ(layout.makeSlot(255, instant).relativePath, "versions/ff/255/20250301-143205");
    EXPECT_EQ(layout.makeSlot(256, instant).relativePath, "versions/00/256/20250301-143205");
    EXPECT_EQ(layout.makeSlot(42, instant).relativePath, "versions/2a/42/20250301-143205");
    auto first = layout.makeSlot(7, instant);
    auto second = layout.makeSlot(7, instant + 0.1);
    auto third = layout.makeSlot(7, instant + 0.2);
    EXPECT_EQ(first.relativePath, "versions/07/7/20250301-143205");
    EXPECT_EQ(second.relativePath, "versions/07/7/20250301-143205-2");
    EXPECT_EQ(third.relativePath, "versions/07/7/20250301-143205-3");
    EXPECT_EQ(third.directory, directory / "store/versions/07/7/20250301-143205-3");
    EXPECT_TRUE(std::filesystem::is_empty(third.directory));
    layout.removeSlot(second.relativePath);
    EXPECT_FALSE(std::filesystem::exists(second.directory));
    EXPECT_EQ(layout.makeSlot(7, instant).relativePath, "versions/07/7/20250301-143205-2") << "a freed name is reused";
}

TEST(VersionStoreLayoutStampTest, StampIsUtcWholeSeconds) {
    EXPECT_EQ(VersionStoreLayout::stamp(0), "19700101-000000");
    EXPECT_EQ(VersionStoreLayout::stamp(instant), "20250301-143205");
    EXPECT_EQ(VersionStoreLayout::stamp(951'782'399.999), "20000228-235959");
}

}  // namespace
}  // namespace vosklin

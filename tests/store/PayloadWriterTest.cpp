#include "store/PayloadWriter.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "store/CloneError.h"
#include "support/FaultyFileSystem.h"
#include "support/ManualClock.h"
#include "support/RecordingLogger.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::TempDirectory;

class PayloadWriterTest : public ::testing::Test {
protected:
    PayloadWriterTest() { layout.prepareDirectories(); }

    std::size_t slotsOnDisk() {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(layout.versionsDirectory()))
            if (entry.path().parent_path().parent_path().parent_path() == layout.versionsDirectory()) ++count;
        return count;
    }

    TempDirectory directory;
    FaultyFileSystem fileSystem;
    test::ManualClock clock;
    test::RecordingLogger logger;
    VersionStoreLayout layout{directory / "store", fileSystem};
    PayloadCloner cloner{fileSystem, clock, logger};
    PayloadDigest digest{fileSystem};
    PayloadWriter writer{layout, cloner, digest};
};

TEST_F(PayloadWriterTest, WritesThePayloadUnderItsOwnNameAndHashesTheCopyAsAFileOrPackage) {
    const std::string source = directory.write("folder/Budget 2025.xlsx", "cells");
    auto payload = writer.write(300, 1'740'839'525, source, false);
    EXPECT_EQ(payload.slot.relativePath, "versions/2c/300/20250301-143205");
    EXPECT_EQ(payload.payloadName, "Budget 2025.xlsx");
    EXPECT_EQ(test::readFile(payload.payloadPath), "cells");
    EXPECT_EQ(payload.digest, digest.fileDigest(source));

    // A package gets the package digest.
    directory.write("Trip.bundle/a.txt", "a");
    directory.write("Trip.bundle/sub/b.txt", "b");
    auto package = writer.write(1, 1'740'839'525, directory / "Trip.bundle", true);
    EXPECT_EQ(package.clone.method, CloneMethod::unknown);
    EXPECT_EQ(package.payloadName, "Trip.bundle");
    EXPECT_EQ(package.digest, digest.packageDigest(directory / "Trip.bundle"));
}

TEST_F(PayloadWriterTest, NoSlotSurvivesAFailedPayload) {
    // The source vanished before the capture: nothing to keep, no empty slot.
    EXPECT_THROW(writer.write(5, 1'740'839'525, directory / "gone.txt", false), CloneError);
    EXPECT_EQ(slotsOnDisk(), 0u);
    // The disk filled up during the copy.
    const std::string source = directory.write("f.txt", "content");
    fileSystem.fail(FaultyFileSystem::Operation::clone, EOPNOTSUPP);
    fileSystem.fail(FaultyFileSystem::Operation::copy, ENOSPC);
    EXPECT_THROW(writer.write(5, 1'740'839'525, source, false), CloneError);
    EXPECT_EQ(slotsOnDisk(), 0u);
    // The copy could not be read back for its digest.
    fileSystem.fail(FaultyFileSystem::Operation::read, EIO, 1, "versions/");
    EXPECT_THROW(writer.write(5, 1'740'839'525, source, false), std::exception);
    EXPECT_EQ(slotsOnDisk(), 0u);
    EXPECT_FALSE(std::filesystem::exists(directory / "store/versions/05/5")) << "nor the file's emptied directory";
    EXPECT_TRUE(std::filesystem::exists(directory / "store/versions/05")) << "the shared level stays";
}

}  // namespace
}  // namespace vosklin

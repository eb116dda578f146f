#include "platform/AtomicFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/FaultyFileSystem.h"
#include "support/FolderImage.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::readFile;
using test::TempDirectory;
using Operation = FaultyFileSystem::Operation;

TEST(AtomicFileTest, ReplacesTheFileAndSyncsFileAndDirectory) {
    TempDirectory directory;
    FaultyFileSystem fileSystem;
    const std::string path = directory.write("settings.json", "old");
    writeFileAtomically(fileSystem, path, "new contents");
    EXPECT_EQ(readFile(path), "new contents");
    EXPECT_EQ(test::imageOf(directory.path()), (test::FolderImage{{"settings.json", "new contents"}}));
    EXPECT_EQ(fileSystem.count(Operation::syncFile), 1);
    EXPECT_EQ(fileSystem.count(Operation::syncDirectory), 1);
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                  std::filesystem::perms::group_read | std::filesystem::perms::others_read);
}

TEST(AtomicFileTest, AFailureAtAnyStepBeforeTheRenameLeavesTheOldFileAndNoTemporary) {
    for (Operation step : {Operation::create, Operation::write, Operation::syncFile, Operation::rename}) {
        TempDirectory directory;
        FaultyFileSystem fileSystem;
        const std::string path = directory.write("journal.json", "old");
        fileSystem.fail(step, step == Operation::write ? ENOSPC : EIO);
        EXPECT_THROW(writeFileAtomically(fileSystem, path, "new"), std::system_error) << int(step);
        EXPECT_EQ(readFile(path), "old") << int(step);
        EXPECT_EQ(test::imageOf(directory.path()).size(), 1u) << "temporary left after failing step " << int(step);
    }
}

TEST(AtomicFileTest, ACrashBeforeTheRenameLeavesTheOldFileWhole) {
    TempDirectory directory;
    FaultyFileSystem fileSystem;
    const std::string path = directory.write("manifest.json", "old");
    struct Crash {};
    fileSystem.beforeMutation = [](Operation operation, const std::string&) {
        if (operation == Operation::rename) throw Crash{};
    };
    EXPECT_THROW(writeFileAtomically(fileSystem, path, "new"), Crash);
    EXPECT_EQ(readFile(path), "old");
}

}  // namespace
}  // namespace vosklin

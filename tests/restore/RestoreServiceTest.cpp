#include "restore/RestoreService.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/RestoreFixture.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::readFile;
using test::RestoreFixture;
using test::t0;
using test::TempDirectory;
namespace fs = std::filesystem;


class RestoreServiceTest : public ::testing::Test {
protected:
    TempDirectory directory;
    RestoreFixture f{directory};
};

TEST_F(RestoreServiceTest, ACopyBesideTakesTheFirstFreeName) {
    const auto old = f.capture("Report.txt", "first draft", t0);
    f.capture("Report.txt", "second draft", t0 + 100);
    test::writeFile(f.root + "/Report (restored).txt", "an earlier restore");
    auto report = f.service.restore(old.id, RestoreMode::copyBeside);
    EXPECT_EQ(report.restoredPath, f.root + "/Report (restored 2).txt");
    EXPECT_EQ(readFile(report.restoredPath), "first draft");
    EXPECT_EQ(readFile(f.root + "/Report.txt"), "second draft") << "the original is untouched";
    EXPECT_EQ(readFile(f.root + "/Report (restored).txt"), "an earlier restore");
    EXPECT_FALSE(report.preRestoreVersionID.has_value());
    EXPECT_EQ(f.journalFiles("restore-").size(), 0u) << "the journal is gone";
    EXPECT_EQ(f.journalFiles("restored-").size(), 1u) << "the manifest records the end";
    EXPECT_TRUE(f.scratchItems().empty());
    EXPECT_TRUE(f.stack.logger.contains("Restored a version in copyBeside mode"));

    EXPECT_EQ(RestoreService::copyName("Makefile", 1, "restored"), "Makefile (restored)");
    EXPECT_EQ(RestoreService::copyName("a.tar.gz", 3, "restored"), "a.tar (restored 3).gz");
    EXPECT_EQ(RestoreService::copyName("x.txt", 1000, "restored").size(), std::string("x (restored ").size() + 36 + 5);
}

TEST_F(RestoreServiceTest, InPlaceKeepsWhatItOverwritesAndMovesIntoPlaceWhenNothingIsThere) {
    const auto old = f.capture("plan.md", "the plan as it was", t0);
    test::writeFile(f.root + "/plan.md", "edited since, never captured");
    auto report = f.service.restore(old.id, RestoreMode::replaceInPlace);
    EXPECT_EQ(readFile(f.root + "/plan.md"), "the plan as it was");
    ASSERT_TRUE(report.preRestoreVersionID.has_value());
    auto saved = f.stack.catalog.version(*report.preRestoreVersionID);
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->source, CaptureSource::preRestore);
    EXPECT_EQ(readFile(f.stack.layout.payloadPath(saved->slot, saved->payloadName)), "edited since, never captured");

    fs::remove(f.root + "/plan.md");
    auto back = f.service.restore(old.id, RestoreMode::replaceInPlace);
    EXPECT_EQ(readFile(f.root + "/plan.md"), "the plan as it was");
    EXPECT_FALSE(back.preRestoreVersionID.has_value()) << "nothing was there to keep";

    fs::create_directories(f.root + "/Gone/Deeper");
    const auto nested = f.capture("Gone/Deeper/note.txt", "in a folder deleted later", t0 + 10);
    fs::remove_all(f.root + "/Gone");
    f.service.restore(nested.id, RestoreMode::replaceInPlace);
    EXPECT_EQ(readFile(f.root + "/Gone/Deeper/note.txt"), "in a folder deleted later") << "its folders come back";
}

TEST_F(RestoreServiceTest, ThePreviousVersionOrASayingThereIsNone) {
    f.capture("a.txt", "one", t0);
    f.capture("a.txt", "two", t0 + 10);
    f.service.restorePrevious(f.folder.id, "a.txt");
    EXPECT_EQ(readFile(f.root + "/a.txt"), "one");
    f.capture("only.txt", "alone", t0);
    auto error = test::thrown<RestoreError>([&] { f.service.restorePrevious(f.folder.id, "only.txt"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), RestoreError::Kind::noPrevious);
    EXPECT_STREQ(error->what(), "There is no earlier version of only.txt.");
}

TEST_F(RestoreServiceTest, ThePathPolicyRefusesBeforeAnythingIsWritten) {
    RestorePathPolicy policy(f.stack.fileSystem);
    const std::string store = f.stack.layout.root();
    const std::string payload = store + "/versions/01/1/x/a.txt";
    using Violation = RestorePathPolicy::Violation;
    EXPECT_EQ(policy.check(store + "/versions/../versions/01/1/x/a.txt", f.root + "/a.txt", store, {f.root}),
              Violation::traversal)
        << "even when it would resolve inside the store";
    EXPECT_EQ(policy.check(payload, f.root + "/sub/../../outside.txt", store, {f.root}), Violation::traversal);
    EXPECT_EQ(policy.check(directory / "elsewhere/a.txt", f.root + "/a.txt", store, {f.root}),
              Violation::payloadOutsideStore);
    EXPECT_EQ(policy.check(payload, directory / "elsewhere/a.txt", store, {f.root}),
              Violation::destinationOutsideGrantedFolders);
    EXPECT_EQ(policy.check(payload, f.root, store, {f.root}), Violation::destinationOutsideGrantedFolders)
        << "the folder itself is no destination";
    EXPECT_FALSE(policy.check(payload, f.root + "/new.txt", store, {f.root}).has_value());

    // A file whose folder inside the watched folder is now a link leaving it.
    fs::create_directories(f.root + "/sub");
    const auto version = f.capture("sub/a.txt", "inside", t0);
    fs::remove_all(f.root + "/sub");
    fs::create_directories(directory / "outside");
    fs::create_directory_symlink(directory / "outside", f.root + "/sub");
    auto error = test::thrown<RestoreError>([&] { f.service.restore(version.id, RestoreMode::replaceInPlace); });
    ASSERT_TRUE(error) << "a write through a link leaving the folder must be refused";
    EXPECT_EQ(error->kind(), RestoreError::Kind::blockedBySafetyPolicy);
    EXPECT_EQ(error->violation(), Violation::destinationOutsideGrantedFolders);
    EXPECT_TRUE(fs::is_empty(directory / "outside"));
    EXPECT_TRUE(f.journalFiles("restore").empty()) << "refused before the journal";
}

TEST_F(RestoreServiceTest, ALinkSwappedInAfterTheCheckCannotRedirectTheWrite) {
    fs::create_directories(f.root + "/sub");
    const auto version = f.capture("sub/a.txt", "inside", t0);
    fs::create_directories(directory / "outside");
    // Between the policy check and the write, the folder is replaced by a link leading out.
    f.service.beforeWrite = [&](const std::vector<std::string>&) {
        fs::rename(f.root + "/sub", directory / "moved-away");
        fs::create_directory_symlink(directory / "outside", f.root + "/sub");
    };
    auto error = test::thrown<RestoreError>([&] { f.service.restore(version.id, RestoreMode::replaceInPlace); });
    ASSERT_TRUE(error) << "the write must not follow the link";
    EXPECT_EQ(error->kind(), RestoreError::Kind::failed);
    // O_NOFOLLOW on the link: ELOOP, or ENOTDIR since a directory was asked for.
    EXPECT_TRUE(error->code() == ELOOP || error->code() == ENOTDIR) << error->code();
    EXPECT_TRUE(fs::is_empty(directory / "outside")) << "nothing was written outside the watched folder";
    EXPECT_EQ(readFile(directory / "moved-away/a.txt"), "inside");
}

TEST_F(RestoreServiceTest, RecoveryEndsAnInterruptedRestore) {
    const auto version = f.capture("a.txt", "a", t0);
    RestoreJournal journal;
    journal.id = "J1";
    journal.startedAt = t0;
    journal.mode = RestoreMode::replaceInPlace;
    journal.payloadPath = f.stack.layout.payloadPath(version.slot, version.payloadName);
    journal.destinationPath = f.root + "/a.txt";
    journal.scratchPath = f.root + "/.vosklin-restore-LEFTOVER";
    journal.write(f.stack.fileSystem, f.stack.layout.journalDirectory());
    test::writeFile(*journal.scratchPath, "half a copy");
    test::writeFile(f.stack.layout.journalDirectory() + "/restore-broken.json", "{ not json");
    // Its end would be recorded outside the journal directory: refused, not acted on.
    std::string escaping = readFile(f.stack.layout.journalDirectory() + "/" + journal.fileName());
    escaping.replace(escaping.find("\"J1\""), 4, "\"x/y\"");
    test::writeFile(f.stack.layout.journalDirectory() + "/restore-escaping.json", escaping);

    auto found = f.service.recoverInterrupted();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_TRUE(found[0].sweptScratch);
    EXPECT_TRUE(found[0].destinationExists);
    EXPECT_TRUE(f.scratchItems().empty());
    EXPECT_EQ(f.journalFiles("restore-J1").size(), 0u);
    const std::string manifest = readFile(f.stack.layout.journalDirectory() + "/restored-J1.json");
    EXPECT_NE(manifest.find("\"recoveredAt\""), std::string::npos) << manifest;
    EXPECT_TRUE(f.stack.logger.contains("Found 1 interrupted restore(s) from a previous run"));
    EXPECT_TRUE(fs::exists(f.stack.layout.journalDirectory() + "/restore-broken.json.damaged"));
    EXPECT_TRUE(fs::exists(f.stack.layout.journalDirectory() + "/restore-escaping.json.damaged"));
    EXPECT_TRUE(f.service.recoverInterrupted().empty()) << "nothing left for the next start";
}

// A restore in place that fails at any of its writes leaves the file whole
// (old or new) and no scratch item beside it; one it cannot remove either
// (the removal fails again) is named by the journal and removed at the next start.
TEST(RestoreFailureTest, AFailedRestoreInPlaceLeavesNoScratchItem) {
    using Op = test::FaultyFileSystem::Operation;
    struct Case {
        const char* what;
        Op operation;
        std::string pathPart;
        int times = 1;
    };
    const std::vector<Case> cases = {
        {"the copy", Op::clone, ".vosklin-restore-"},
        {"the copy's sync", Op::syncFile, ".vosklin-restore-"},
        {"the swap", Op::renameAt, "doc.txt"},
        {"removing what was swapped out", Op::removeAt, ".vosklin-restore-"},
        {"removing what was swapped out, twice", Op::removeAt, ".vosklin-restore-", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        RestoreFixture f(directory);
        const auto old = f.capture("doc.txt", "old", t0);
        test::writeFile(f.root + "/doc.txt", "new");
        f.stack.fileSystem.fail(c.operation, EIO, c.times, c.pathPart);
        EXPECT_THROW(f.service.restore(old.id, RestoreMode::replaceInPlace), RestoreError);
        const std::string contents = readFile(f.root + "/doc.txt");
        EXPECT_TRUE(contents == "old" || contents == "new") << contents;
        if (c.times == 1) {
            EXPECT_TRUE(f.scratchItems().empty());
        }
        f.service.recoverInterrupted();
        EXPECT_TRUE(f.scratchItems().empty()) << "after the next start's recovery";
    }
}

// Kills a restore at each of its writes in turn (a child process, SIGKILL),
// then runs the next start's recovery: the file must be wholly old or wholly
// new, and no scratch item may remain.
TEST(RestoreCrashTest, EveryWriteStepCanBeInterruptedSafely) {
    int completedAt = 0;
    for (int killAt = 1; killAt < 200 && !completedAt; ++killAt) {
        TempDirectory directory;
        std::int64_t versionID = 0;
        {
            RestoreFixture setup(directory);
            versionID = setup.capture("doc.txt", std::string(100'000, 'o'), t0).id;
            test::writeFile(setup.root + "/doc.txt", std::string(150'000, 'n'));
        }
        if (test::runKilledAtWrite(directory, killAt, [&](RestoreFixture& f) {
                f.service.restore(versionID, RestoreMode::replaceInPlace);
            }))
            completedAt = killAt;
        RestoreFixture next(directory);
        next.service.recoverInterrupted();
        const std::string contents = readFile(next.root + "/doc.txt");
        EXPECT_TRUE(contents == std::string(100'000, 'o') || contents == std::string(150'000, 'n'))
            << "killed at write " << killAt << ": " << contents.size() << " bytes";
        EXPECT_TRUE(next.scratchItems().empty()) << "killed at write " << killAt << ": "
                                                 << (next.scratchItems().empty() ? "" : next.scratchItems()[0]);
        EXPECT_TRUE(next.journalFiles("restore-").empty()) << "killed at write " << killAt;
    }
    EXPECT_GT(completedAt, 5) << "a restore takes several writes; each was tried";
}

}  // namespace
}  // namespace vosklin

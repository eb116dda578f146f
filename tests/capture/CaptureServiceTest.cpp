#include "capture/CaptureService.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "store/CloneError.h"
#include "store/VersionSidecar.h"
#include "support/CaptureStack.h"
#include "support/FolderImage.h"
#include "support/SpecialFiles.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::setModified;
using test::TempDirectory;
using Operation = FaultyFileSystem::Operation;

constexpr double noon = 1'740'830'400.0;  // 2025-03-01T12:00:00Z

class CaptureServiceTest : public ::testing::Test {
protected:
    CaptureServiceTest() { std::filesystem::create_directories(root); }

    CaptureRequest request(const std::string& relative, CaptureSource source = CaptureSource::watcher,
                           bool isPackage = false) {
        return {folder, root, root + "/" + relative, isPackage, source, std::nullopt};
    }

    std::size_t slotsOnDisk() {
        std::size_t count = 0;
        if (!std::filesystem::exists(layout.versionsDirectory())) return 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(layout.versionsDirectory()))
            if (entry.path().filename() == "vosklin-version.json") ++count;
        return count;
    }
    std::size_t itemsUnderVersions() {
        const std::string versions = layout.versionsDirectory();
        return std::filesystem::exists(versions) ? test::imageOf(versions).size() : 0;
    }

    TempDirectory directory;
    const std::string root = directory / "Documents";
    const std::string folder = "F0000000-0000-4000-8000-000000000001";
    test::CaptureStack stack{directory / "store"};
    FaultyFileSystem& fileSystem = stack.fileSystem;
    VersionStoreLayout& layout = stack.layout;
    VersionCatalog& catalog = stack.catalog;
    CaptureService& service = stack.service;
};

TEST_F(CaptureServiceTest, StoresThenRecognisesUnchangedContentWithoutKeepingASecondCopy) {
    const std::string path = directory.write("Documents/plan.txt", "first draft");
    auto first = service.capture(request("plan.txt"), noon);
    ASSERT_EQ(first.kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(first.version.source, CaptureSource::watcher);
    EXPECT_EQ(first.version.logicalBytes, 11);
    EXPECT_EQ(first.version.payloadName, "plan.txt");
    EXPECT_EQ(test::readFile(layout.payloadPath(first.version.slot, "plan.txt")), "first draft");
    // The sidecar describes the same version as the row.
    auto sidecar = VersionSidecar::read(fileSystem, layout.slotDirectory(first.version.slot));
    EXPECT_EQ(sidecar.digest, first.version.digest);
    EXPECT_EQ(sidecar.originalPath, path);
    EXPECT_EQ(sidecar.logicalBytes, 11);
    EXPECT_EQ(catalog.requireFile(first.version.fileID).lastDigest, first.version.digest);
    const auto itemsAfterFirst = itemsUnderVersions();

    auto second = service.capture(request("plan.txt"), noon + 30);
    ASSERT_EQ(second.kind, CaptureOutcome::Kind::unchanged);
    EXPECT_EQ(second.unchangedVersionID, first.version.id);
    EXPECT_EQ(itemsUnderVersions(), itemsAfterFirst) << "the second payload and its slot are gone entirely";
    EXPECT_EQ(catalog.versionsOfFile(first.version.fileID, 10).size(), 1u);

    test::writeFile(path, "second draft");
    EXPECT_EQ(service.capture(request("plan.txt"), noon + 60).kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(slotsOnDisk(), 2u);
}

TEST_F(CaptureServiceTest, ContentWhoseHistoryWasDeletedStaysDeletedUntilTheFileChanges) {
    const std::string path = directory.write("Documents/secret.txt", "the password");
    const auto first = service.capture(request("secret.txt"), noon).version;
    const auto second = (test::writeFile(path, "the new password"), service.capture(request("secret.txt"), noon + 60)).version;
    catalog.deleteVersions({second.id});  // the newest, by hand: what the file holds now
    for (auto source : {CaptureSource::crawl, CaptureSource::watcher}) {
        const auto again = service.capture(request("secret.txt", source), noon + 120);
        EXPECT_EQ(again.kind, CaptureOutcome::Kind::unchanged) << toString(source);
    }
    catalog.deleteVersions({first.id});  // and then the whole history
    EXPECT_EQ(service.capture(request("secret.txt", CaptureSource::crawl), noon + 180).kind,
              CaptureOutcome::Kind::unchanged);
    EXPECT_TRUE(catalog.versionsOfFile(first.fileID, 10).empty());
    // Before Vosklin overwrites the file, what it holds is kept all the same.
    EXPECT_EQ(service.capture(request("secret.txt", CaptureSource::preRewind), noon + 240).kind,
              CaptureOutcome::Kind::stored);
    test::writeFile(path, "changed since");
    EXPECT_EQ(service.capture(request("secret.txt"), noon + 300).kind, CaptureOutcome::Kind::stored);
}

TEST_F(CaptureServiceTest, SkipsTouchNeitherStoreNorCatalog) {
    directory.write("Documents/real.txt", "r");
    std::filesystem::create_symlink(root + "/real.txt", root + "/alias.txt");
    directory.write("outside.txt", "o");
    std::filesystem::create_symlink(directory.path(), root + "/up");
    directory.write("Documents/.Report.docx.icloud", "placeholder");

    auto skip = [&](const CaptureRequest& r) {
        auto outcome = service.capture(r, noon);
        EXPECT_EQ(outcome.kind, CaptureOutcome::Kind::skipped) << r.unit;
        return outcome.skipReason;
    };
    EXPECT_EQ(skip(request("gone.txt")), CaptureSkipReason::missing);
    EXPECT_EQ(skip(request("alias.txt")), CaptureSkipReason::symlink) << "even when it points inside the folder";
    EXPECT_EQ(skip(request(".Report.docx.icloud")), CaptureSkipReason::cloudPlaceholder);
    EXPECT_EQ(skip({folder, root, root, false, CaptureSource::manual, std::nullopt}), CaptureSkipReason::outsideRoot);
    EXPECT_EQ(skip(request("up/outside.txt")), CaptureSkipReason::outsideRoot) << "through a link that leaves the root";
    // Nothing a version can be made of, and never opened (a pipe would hold the capture forever).
    for (auto kind : test::allSpecialFiles()) {
        const std::string name = std::string("special-") + std::to_string(int(kind));
        std::string whyNot;
        if (!test::makeSpecialFile(kind, root + "/" + name, whyNot)) {
            std::printf("skipped: %s\n", whyNot.c_str());
            continue;
        }
        EXPECT_EQ(skip(request(name)), CaptureSkipReason::missing) << test::nameOf(kind);
    }
    EXPECT_TRUE(catalog.allFiles().empty());
    EXPECT_EQ(itemsUnderVersions(), 0u);
}

TEST_F(CaptureServiceTest, APathWrittenAgainAfterItsDeletionAppearsAndKeepsItsHistory) {
    const std::string path = directory.write("Documents/letter.txt", "v1");
    auto first = service.capture(request("letter.txt"), noon);
    catalog.markDeleted(first.version.fileID, noon + 100);
    test::writeFile(path, "v2");
    auto again = service.capture(request("letter.txt"), noon + 200);
    ASSERT_EQ(again.kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(again.version.fileID, first.version.fileID);
    EXPECT_FALSE(catalog.requireFile(first.version.fileID).deletedAt.has_value());
    auto events = catalog.eventsSince(folder, 0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, FileEventKind::appeared);
    EXPECT_EQ(events[0].at, noon + 200) << "at the capture instant";
    EXPECT_EQ(catalog.versionsOfFile(first.version.fileID, 10).size(), 2u);
}

TEST_F(CaptureServiceTest, ReplacementNeedsAWatcherAnInodeChangeAndAnOldFile) {
    // Each case: capture the file, then swap in a different file (new inode) whose
    // modification time lies `age` seconds before the next capture.
    auto swapAndCapture = [&](const std::string& name, double age, CaptureSource source) {
        const std::string path = directory.write("Documents/" + name, "original");
        service.capture(request(name), noon);
        const std::string incoming = directory.write("incoming-" + name, "an older file from elsewhere");
        const double at = noon + 1000;
        setModified(incoming, at - age);
        std::filesystem::rename(incoming, path);
        return service.capture(request(name, source), at);
    };
    EXPECT_TRUE(swapAndCapture("a.txt", 121, CaptureSource::watcher).version.isReplacement);
    EXPECT_FALSE(swapAndCapture("b.txt", 119, CaptureSource::watcher).version.isReplacement) << "a fresh save";
    EXPECT_FALSE(swapAndCapture("c.txt", 120, CaptureSource::watcher).version.isReplacement) << "the bound is exclusive";
    EXPECT_FALSE(swapAndCapture("d.txt", 121, CaptureSource::crawl).version.isReplacement) << "only live events";
    // Same inode, old modification time: an edit in place, not a replacement.
    const std::string path = directory.write("Documents/e.txt", "one");
    service.capture(request("e.txt"), noon);
    test::writeFile(path, "two, edited in place");
    setModified(path, noon);
    EXPECT_FALSE(service.capture(request("e.txt"), noon + 1000).version.isReplacement);
    EXPECT_EQ(catalog.folderReplacedFileCount(folder), 1);
}

TEST_F(CaptureServiceTest, APackageIsOneVersionOfAllItsFiles) {
    directory.write("Documents/Thesis.scriv/Files/ch1.rtf", std::string(1000, 'a'));
    directory.write("Documents/Thesis.scriv/Files/ch2.rtf", std::string(234, 'b'));
    directory.write("Documents/Thesis.scriv/project.scrivx", "<x/>");
    auto outcome = service.capture(request("Thesis.scriv", CaptureSource::watcher, true), noon);
    ASSERT_EQ(outcome.kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(outcome.version.logicalBytes, 1000 + 234 + 4);
    EXPECT_EQ(outcome.version.method, CloneMethod::unknown);
    EXPECT_TRUE(catalog.requireFile(outcome.version.fileID).isPackage);
    auto sidecar = VersionSidecar::read(fileSystem, layout.slotDirectory(outcome.version.slot));
    EXPECT_EQ(sidecar.payloadName, "Thesis.scriv");
    EXPECT_EQ(sidecar.method, CloneMethod::unknown);
}

TEST_F(CaptureServiceTest, AFileRemovedDuringItsCaptureIsSkippedAndLeavesNoSlot) {
    const std::string path = directory.write("Documents/fleeting.txt", "here now");
    fileSystem.beforeMutation = [&](Operation operation, const std::string& target) {
        if (operation == Operation::makeDirectory && target.find("/versions/") != std::string::npos)
            std::filesystem::remove(path);
    };
    auto outcome = service.capture(request("fleeting.txt"), noon);
    EXPECT_EQ(outcome.kind, CaptureOutcome::Kind::skipped);
    EXPECT_EQ(outcome.skipReason, CaptureSkipReason::missing);
    EXPECT_EQ(slotsOnDisk(), 0u);
    EXPECT_TRUE(catalog.allVersions().empty());
}

TEST_F(CaptureServiceTest, FailuresLeaveNoVersionRowAndNoSlot) {
    directory.write("Documents/a.txt", "alpha");
    fileSystem.fail(Operation::clone, EOPNOTSUPP);
    fileSystem.fail(Operation::copy, ENOSPC);
    EXPECT_THROW(service.capture(request("a.txt"), noon), std::exception);
    fileSystem.fail(Operation::rename, EIO, 1, "vosklin-version.json");  // the sidecar's atomic rename
    EXPECT_THROW(service.capture(request("a.txt"), noon + 1), std::exception);
    fileSystem.fail(Operation::syncFileSystem, EIO);  // not durable, so not recorded
    EXPECT_THROW(service.capture(request("a.txt"), noon + 2), std::exception);
    EXPECT_TRUE(catalog.allVersions().empty());
    EXPECT_EQ(slotsOnDisk(), 0u);
    EXPECT_FALSE(catalog.fileAtPath(folder, "a.txt")->lastDigest.has_value()) << "the digest gate did not move";
    // And the next attempt, with the disk healthy again, succeeds.
    EXPECT_EQ(service.capture(request("a.txt"), noon + 3).kind, CaptureOutcome::Kind::stored);
}

TEST_F(CaptureServiceTest, ABatchSyncsOnceAndRecordsEachUnitWithItsOwnOutcome) {
    for (const char* name : {"1.txt", "2.txt", "3.txt"}) directory.write(std::string("Documents/") + name, name);
    const int syncsBefore = fileSystem.count(Operation::syncFileSystem);
    double instant = noon;
    auto results = service.captureBatch(
        {request("1.txt"), request("2.txt"), request("missing.txt"), request("3.txt"), request("1.txt")},
        [&] { return instant += 1; });
    ASSERT_EQ(results.size(), 5u);
    EXPECT_EQ(results[0].outcome->kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(results[1].outcome->kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(results[2].outcome->skipReason, CaptureSkipReason::missing);
    EXPECT_EQ(results[3].outcome->kind, CaptureOutcome::Kind::stored);
    EXPECT_EQ(results[4].outcome->kind, CaptureOutcome::Kind::unchanged)
        << "the same unit twice in one batch is compared with the first";
    EXPECT_EQ(results[0].outcome->version.capturedAt, noon + 1) << "each unit has its own instant";
    // The repeat forced the first three to be recorded (one sync); it was then unchanged, so nothing more to sync.
    EXPECT_EQ(fileSystem.count(Operation::syncFileSystem) - syncsBefore, 1);

    fileSystem.fail(Operation::read, EIO, 1, "2.txt");
    test::writeFile(root + "/1.txt", "changed 1");
    test::writeFile(root + "/2.txt", "changed 2");
    results = service.captureBatch({request("1.txt"), request("2.txt")}, [&] { return instant += 1; });
    EXPECT_EQ(results[0].outcome->kind, CaptureOutcome::Kind::stored) << "one bad file does not stop the others";
    EXPECT_TRUE(results[1].error);
}

TEST_F(CaptureServiceTest, AStoppedBatchRecordsWhatWasCopiedAndRemovesThePartialSlot) {
    directory.write("Documents/small.txt", "small");
    directory.write("Documents/large.bin", std::string(3 << 20, 'L'));
    directory.write("Documents/after.txt", "after");
    std::stop_source stop;
    fileSystem.fail(Operation::clone, EOPNOTSUPP, 3);  // copied, so in chunks
    fileSystem.beforeMutation = [&](Operation operation, const std::string& path) {
        if (operation == Operation::copy && path.find("large.bin") != std::string::npos) stop.request_stop();
    };
    auto results = service.captureBatch({request("small.txt"), request("large.bin"), request("after.txt")},
                                        [] { return noon; }, stop.get_token());
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].outcome->kind, CaptureOutcome::Kind::stored);
    ASSERT_TRUE(results[1].error);
    try {
        std::rethrow_exception(results[1].error);
    } catch (const CloneError& error) {
        EXPECT_EQ(error.kind(), CloneError::Kind::cancelled);
    }
    EXPECT_EQ(results[2].outcome->kind, CaptureOutcome::Kind::stored) << "under a chunk: finished all the same";
    EXPECT_EQ(slotsOnDisk(), 2u);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(layout.versionsDirectory()))
        EXPECT_NE(entry.path().filename(), "large.bin") << "the partial copy's slot is gone";
    EXPECT_EQ(catalog.allVersions().size(), 2u);
}

}  // namespace
}  // namespace vosklin

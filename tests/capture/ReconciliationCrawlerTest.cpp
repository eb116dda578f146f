#include "capture/ReconciliationCrawler.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "support/CaptureStack.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::TempDirectory;

class ReconciliationCrawlerTest : public ::testing::Test {
protected:
    ReconciliationCrawlerTest() {
        std::filesystem::create_directories(directory / "Work");
        folder.id = "C0000000-0000-4000-8000-000000000001";
        folder.path = directory / "Work";
    }

    CrawlReport crawl(const CrawlOptions& options = {}) {
        clock.advance(60);
        return crawler.crawl(folder, "test", cancellation, options);
    }
    std::vector<std::string> livePaths() {
        std::vector<std::string> paths;
        for (const auto& file : catalog.files(folder.id, true)) paths.push_back(file.relativePath);
        return paths;
    }

    TempDirectory directory;
    WatchedFolder folder;
    test::CaptureStack stack{directory / "store"};
    FaultyFileSystem& fileSystem = stack.fileSystem;
    test::ManualClock& clock = stack.clock;
    test::RecordingLogger& logger = stack.logger;
    VersionCatalog& catalog = stack.catalog;
    CaptureService& service = stack.service;
    FolderWalker walker{fileSystem, ExcludeRules::standard({}), PackageKinds()};
    ReconciliationCrawler crawler{catalog, service, walker, fileSystem, clock, logger};
    CrawlCancellation cancellation;
};

TEST_F(ReconciliationCrawlerTest, BaselineCapturesEverythingOnceAndAnIdleCrawlNothing) {
    directory.write("Work/a.txt", "a");
    directory.write("Work/sub/b.txt", "bb");
    directory.write("Work/Deck.key/Index.zip", "deck");
    directory.write("Work/Deck.key/Data/pic.png", "png");
    directory.write("Work/~$a.docx", "lock");
    directory.write("Work/node_modules/left-pad/index.js", "x");
    std::filesystem::create_symlink(directory / "Work/a.txt", directory / "Work/link.txt");

    auto baseline = crawl();
    EXPECT_EQ(baseline.source, CaptureSource::baseline);
    EXPECT_EQ(baseline.examined, 3);
    EXPECT_EQ(baseline.captured, 3);
    EXPECT_EQ(livePaths(), (std::vector<std::string>{"Deck.key", "a.txt", "sub/b.txt"}));
    for (const auto& version : catalog.allVersions()) EXPECT_EQ(version.source, CaptureSource::baseline);
    ASSERT_TRUE(catalog.watchState(folder.id).has_value());
    EXPECT_TRUE(catalog.watchState(folder.id)->baselineDone);
    EXPECT_TRUE(logger.contains("Crawl (test) examined 3, captured 3"));

    auto idle = crawl();
    EXPECT_EQ(idle.source, CaptureSource::crawl);
    EXPECT_EQ(idle.captured, 0);
    EXPECT_EQ(idle.unchanged, 3);
    EXPECT_EQ(catalog.allVersions().size(), 3u);
    for (const auto& listed : fileSystem.listedDirectories())
        EXPECT_EQ(listed.find("node_modules"), std::string::npos) << "excluded trees are never entered: " << listed;
}

TEST_F(ReconciliationCrawlerTest, ModifiedDeletedAndRenamedFilesAreEachRecognised) {
    const std::string grown = directory.write("Work/grown.txt", "short");
    const std::string touched = directory.write("Work/touched.txt", "same size");
    directory.write("Work/doomed.txt", "bye");
    directory.write("Work/moving.txt", "I keep my history");
    const std::string c = directory.write("Work/c.txt", "content of c");
    const double longAgo = clock.now() - 3600;
    test::setModified(c, longAgo);
    directory.write("Work/Photos/2024/a.jpg", "\xFF\xD8 a \xFF\xD9");
    directory.write("Work/Photos/2024/b.jpg", "\xFF\xD8 b \xFF\xD9");
    crawl();
    const auto moving = *catalog.fileAtPath(folder.id, "moving.txt");
    const auto photoA = *catalog.fileAtPath(folder.id, "Photos/2024/a.jpg");

    test::writeFile(grown, "much longer now");
    test::writeFile(touched, "SAME SIZE");  // same length: only the modification time tells
    test::setModified(touched, clock.now() + 30);
    std::filesystem::remove(directory / "Work/doomed.txt");
    std::filesystem::rename(directory / "Work/moving.txt", directory / "Work/moved.txt");
    std::filesystem::rename(directory / "Work/Photos", directory / "Work/Pictures");
    // c.txt deleted and d.txt made with other bytes of the same size and c's time, on
    // c's recycled inode: everything but the content looks like a rename.
    std::filesystem::rename(c, directory / "Work/d.txt");
    test::writeFile(directory / "Work/d.txt", "CONTENT OF D");
    test::setModified(directory / "Work/d.txt", longAgo);

    auto report = crawl();
    EXPECT_EQ(report.captured, 3) << "grown, touched, and d.txt's own bytes";
    EXPECT_EQ(report.tombstoned, 1);
    EXPECT_EQ(report.renamed, 4) << "two files, and both files of the renamed directory";
    EXPECT_EQ(livePaths(), (std::vector<std::string>{"Pictures/2024/a.jpg", "Pictures/2024/b.jpg", "d.txt",
                                                     "grown.txt", "moved.txt", "touched.txt"}));
    auto d = catalog.versionsOfFile(catalog.fileAtPath(folder.id, "d.txt")->id, 10);
    ASSERT_FALSE(d.empty());
    EXPECT_EQ(test::readFile(stack.layout.payloadPath(d.front().slot, d.front().payloadName)), "CONTENT OF D")
        << "the newest version of d.txt holds d's bytes, not c's";
    auto moved = catalog.fileAtPath(folder.id, "moved.txt");
    ASSERT_TRUE(moved.has_value());
    EXPECT_EQ(moved->id, moving.id) << "a rename keeps the row and so the whole history";
    EXPECT_EQ(catalog.versionsOfFile(moving.id, 10).size(), 1u) << "and writes no new version";
    EXPECT_EQ(catalog.fileAtPath(folder.id, "Pictures/2024/a.jpg")->id, photoA.id);
    auto doomed = catalog.fileAtPath(folder.id, "doomed.txt");
    ASSERT_TRUE(doomed.has_value());
    EXPECT_TRUE(doomed->deletedAt.has_value());
    int renamedEvents = 0, deletedEvents = 0;
    for (const auto& event : catalog.eventsSince(folder.id, 0)) {
        if (event.kind == FileEventKind::renamed) ++renamedEvents;
        if (event.kind == FileEventKind::deleted) ++deletedEvents;
    }
    EXPECT_EQ(renamedEvents, 4);
    EXPECT_EQ(deletedEvents, 1);
    EXPECT_EQ(crawl().captured + crawl().tombstoned + crawl().renamed, 0) << "and then it is quiet again";
}

TEST_F(ReconciliationCrawlerTest, ADeletedFileThatComesBackIsCapturedAgainUnderItsOldRow) {
    const std::string path = directory.write("Work/phoenix.txt", "1");
    crawl();
    const auto row = *catalog.fileAtPath(folder.id, "phoenix.txt");
    std::filesystem::remove(path);
    EXPECT_EQ(crawl().tombstoned, 1);
    test::writeFile(path, "2");
    auto report = crawl();
    EXPECT_EQ(report.captured, 1);
    EXPECT_EQ(catalog.fileAtPath(folder.id, "phoenix.txt")->id, row.id);
    EXPECT_FALSE(catalog.fileAtPath(folder.id, "phoenix.txt")->deletedAt.has_value());
}

TEST_F(ReconciliationCrawlerTest, ExcludedPathsOfKnownFilesAreNotTakenForDeletions) {
    directory.write("Work/clip.mov", "film");
    crawl();
    FolderWalker strict(fileSystem, ExcludeRules::standard({"*.mov"}), PackageKinds());
    ReconciliationCrawler later(catalog, service, strict, fileSystem, clock, logger);
    auto report = later.crawl(folder, "test", cancellation);
    EXPECT_EQ(report.tombstoned, 0) << "the file is still there, only no longer recorded";
    EXPECT_EQ(livePaths(), std::vector<std::string>{"clip.mov"});
}

TEST_F(ReconciliationCrawlerTest, ASnapshotCapturesEveryChangedUnitAsOneManualBatch) {
    directory.write("Work/a.txt", "a");
    directory.write("Work/b.txt", "b");
    crawl();
    test::writeFile(directory / "Work/a.txt", "a2");
    directory.write("Work/c.txt", "c");
    CrawlOptions options;
    options.source = CaptureSource::manual;
    options.batchID = "BATCH-1";
    options.captureEverything = true;
    auto report = crawl(options);
    EXPECT_EQ(report.examined, 3);
    EXPECT_EQ(report.captured, 2);
    EXPECT_EQ(report.unchanged, 1) << "b's content is the same, so its capture dedupes";
    int batched = 0;
    for (const auto& version : catalog.allVersions()) {
        if (version.batchID != "BATCH-1") continue;
        ++batched;
        EXPECT_EQ(version.source, CaptureSource::manual);
    }
    EXPECT_EQ(batched, 2);
}

TEST_F(ReconciliationCrawlerTest, ACancelledBaselineRecordsNoDeletionsAndIsNotMarkedDone) {
    for (int i = 0; i < 450; ++i) directory.write("Work/f" + std::to_string(i) + ".txt", std::to_string(i));
    std::int64_t progressCalls = 0;
    auto report = crawler.crawl(folder, "test", cancellation, {}, [&](std::int64_t done, std::int64_t total) {
        ++progressCalls;
        EXPECT_EQ(total, 450);
        if (done >= 200) cancellation.cancel();
    });
    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ(report.captured, 200) << "stopped between two batches";
    EXPECT_GE(progressCalls, 1);
    EXPECT_FALSE(catalog.watchState(folder.id).has_value());

    CrawlCancellation fresh;
    auto resumed = crawler.crawl(folder, "test", fresh);
    EXPECT_EQ(resumed.source, CaptureSource::baseline) << "the baseline is still to finish";
    EXPECT_EQ(resumed.captured, 250) << "what the first pass kept is not captured twice";
    EXPECT_TRUE(catalog.watchState(folder.id)->baselineDone);
}

TEST_F(ReconciliationCrawlerTest, OneUnreadableFileIsLoggedAndTheRestCaptured) {
    directory.write("Work/good.txt", "fine");
    directory.write("Work/bad.txt", "broken sector");
    fileSystem.fail(FaultyFileSystem::Operation::read, EIO, 1, "bad.txt");
    auto report = crawl();
    EXPECT_EQ(report.captured, 1);
    EXPECT_EQ(report.failed, 1);
    const auto messages = logger.messages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [](const std::string& m) { return m.rfind("Capture failed: ", 0) == 0; }));
    EXPECT_EQ(crawl().captured, 1) << "and the next crawl tries it again";
}

}  // namespace
}  // namespace vosklin

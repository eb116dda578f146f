#include "catalog/VersionCatalog.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "catalog/CatalogError.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

constexpr double day = 1'740'787'200.0;  // 2025-03-01T00:00:00Z
double at(int hour, int minute, double second = 0) { return day + hour * 3600 + minute * 60 + second; }

class VersionCatalogTest : public ::testing::Test {
protected:
    TempDirectory directory;
    VersionCatalog catalog{directory / "index.sqlite"};
    const std::string folder = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

    TrackedFile track(const std::string& path, std::uint64_t inode = 0) {
        return catalog.upsertFile(folder, path, inode ? std::optional<std::uint64_t>(inode) : std::optional<std::uint64_t>(), false,
                                  std::string("txt"));
    }

    StoredVersion capture(const TrackedFile& file, double instant, std::int64_t bytes,
                          const std::string& digest = "", CaptureSource source = CaptureSource::watcher,
                          bool replaced = false, std::optional<std::string> batch = std::nullopt) {
        NewVersion version;
        version.fileID = file.id;
        version.capturedAt = instant;
        version.digest = digest.empty() ? "digest-" + std::to_string(file.id) + "-" + std::to_string(instant) : digest;
        version.logicalBytes = bytes;
        version.slot = "versions/xx/" + std::to_string(file.id) + "/" + std::to_string(instant);
        version.payloadName = file.relativePath;
        version.method = CloneMethod::copied;
        version.source = source;
        version.isReplacement = replaced;
        version.batchID = std::move(batch);
        return catalog.recordVersion(version);
    }

    std::vector<std::string> pathsAt(double instant) {
        std::vector<std::string> paths;
        for (const auto& state : catalog.stateAt(folder, instant)) paths.push_back(state.file.relativePath);
        std::sort(paths.begin(), paths.end());
        return paths;
    }
};

TEST_F(VersionCatalogTest, RecordedVersionReadsBackWithEveryFieldAndMovesTheDigestGateAndAMissingFileIsNotFound) {
    auto file = track("notes.txt", 77);
    auto stored = capture(file, at(9, 0, 0.25), 120, "abc", CaptureSource::manual, true, "batch-1");
    EXPECT_EQ(stored.fileID, file.id);
    EXPECT_DOUBLE_EQ(stored.capturedAt, at(9, 0, 0.25));
    EXPECT_EQ(stored.digest, "abc");
    EXPECT_EQ(stored.method, CloneMethod::copied);
    EXPECT_EQ(stored.source, CaptureSource::manual);
    EXPECT_EQ(stored.batchID, "batch-1");
    EXPECT_TRUE(stored.isReplacement);
    EXPECT_TRUE(stored.isVerified);
    EXPECT_FALSE(stored.isStarred);
    EXPECT_EQ(catalog.version(stored.id), stored);
    EXPECT_EQ(catalog.requireFile(file.id).lastDigest, "abc");
    EXPECT_EQ(catalog.requireFile(file.id).inode, 77u);
    EXPECT_TRUE(catalog.wasEverReplaced(file.id));
    catalog.setStarred(stored.id, true);
    EXPECT_TRUE(catalog.version(stored.id)->isStarred);

    auto error = test::thrown<CatalogError>([&] { catalog.requireFile(4242); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), CatalogError::Kind::fileNotFound);
    EXPECT_EQ(error->fileID(), 4242);
    EXPECT_FALSE(catalog.file(4242).has_value()) << "a missing file is fileNotFound";
}

TEST_F(VersionCatalogTest, TiesOnCaptureTimeAreBrokenByTheNewerId) {
    auto file = track("a.txt");
    auto first = capture(file, at(10, 0), 1);
    auto second = capture(file, at(10, 0), 2);
    auto older = capture(file, at(9, 0), 3);
    auto versions = catalog.versionsOfFile(file.id, 10);
    ASSERT_EQ(versions.size(), 3u);
    EXPECT_EQ(versions[0].id, second.id);
    EXPECT_EQ(versions[1].id, first.id);
    EXPECT_EQ(versions[2].id, older.id);
    EXPECT_EQ(catalog.newestVersion(file.id)->id, second.id);
    EXPECT_EQ(catalog.versionsOfFile(file.id, 1, 1).front().id, first.id) << "paging";
}

TEST_F(VersionCatalogTest, StateAtSeesADeletedAndRecreatedFileOnlyWhileItExisted) {
    // The capture's bookkeeping writes no appeared event for a live file nor a new one.
    track("live.txt");
    catalog.trackFileForCapture(folder, "live.txt", 5, false, std::string("txt"), at(10, 0));
    catalog.trackFileForCapture(folder, "new.txt", 6, false, std::string("txt"), at(10, 0));
    EXPECT_TRUE(catalog.eventsSince(folder, 0).empty());

    auto file = track("report.txt");
    capture(file, at(9, 0), 10);
    catalog.markDeleted(file.id, at(12, 0));
    // Written again at three: the capture's bookkeeping records the return.
    auto back = catalog.trackFileForCapture(folder, "report.txt", std::nullopt, false, std::string("txt"), at(15, 0));
    EXPECT_EQ(back.id, file.id);
    EXPECT_FALSE(back.deletedAt.has_value());
    capture(back, at(15, 0), 20);

    EXPECT_EQ(pathsAt(at(8, 59)), std::vector<std::string>{}) << "before its first version";
    EXPECT_EQ(pathsAt(at(11, 0)), std::vector<std::string>{"report.txt"});
    EXPECT_EQ(pathsAt(at(12, 30)), std::vector<std::string>{}) << "deleted at noon";
    auto afternoon = catalog.stateAt(folder, at(15, 5));
    ASSERT_EQ(afternoon.size(), 1u);
    EXPECT_EQ(afternoon[0].version.logicalBytes, 20);

    auto events = catalog.eventsSince(folder, 0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, FileEventKind::appeared);
    EXPECT_DOUBLE_EQ(events[0].at, at(15, 0));
    EXPECT_EQ(events[1].kind, FileEventKind::deleted);
}

TEST_F(VersionCatalogTest, RenamedFileReadsUnderItsPathAtEachInstantWithOneHistory) {
    auto file = track("draft.txt", 900);
    capture(file, at(9, 0), 10);
    catalog.recordRename(file.id, "final.txt", std::string("txt"), at(10, 0));
    EXPECT_EQ(catalog.liveFileWithInode(folder, 900)->relativePath, "final.txt");

    auto before = catalog.stateAt(folder, at(9, 59));
    auto after = catalog.stateAt(folder, at(10, 1));
    ASSERT_EQ(before.size(), 1u);
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(before[0].file.relativePath, "draft.txt");
    EXPECT_EQ(after[0].file.relativePath, "final.txt");
    EXPECT_EQ(before[0].file.id, after[0].file.id);
    EXPECT_EQ(before[0].version.id, after[0].version.id);
    EXPECT_FALSE(catalog.fileAtPath(folder, "draft.txt").has_value());

    // A later version is listed under the path it was taken under.
    capture(catalog.requireFile(file.id), at(11, 0), 30);
    auto changes = catalog.changeList(folder, 10);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].relativePath, "final.txt");
    EXPECT_EQ(changes[1].relativePath, "draft.txt");
}

TEST_F(VersionCatalogTest, ChangeListKnowsEachVersionsPreviousSizeEvenPastTheLimit) {
    auto a = track("a.txt");
    auto b = track("b.txt");
    capture(a, at(9, 0), 100);
    capture(b, at(9, 30), 5);
    capture(a, at(10, 0), 150);
    capture(a, at(11, 0), 90);
    auto all = catalog.changeList(folder, 10);
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].previousBytes, 150);
    EXPECT_EQ(all[1].previousBytes, 100);
    EXPECT_EQ(all[2].previousBytes, std::nullopt) << "b's first version";
    EXPECT_EQ(all[3].previousBytes, std::nullopt) << "a's first version";
    auto limited = catalog.changeList(folder, 2);
    ASSERT_EQ(limited.size(), 2u);
    EXPECT_EQ(limited[1].previousBytes, 100) << "the oldest listed row still knows its predecessor";
}

TEST_F(VersionCatalogTest, ChangeRangesAreOpenAtTheStartClosedAtTheEndAndIgnoreAppearances) {
    auto a = track("a.txt");
    capture(a, at(9, 0), 1);
    catalog.markDeleted(a.id, at(10, 0));
    catalog.markAppeared(a.id, at(11, 0));
    EXPECT_EQ(catalog.newestChange(folder, at(9, 0), at(12, 0)), at(10, 0));
    EXPECT_EQ(catalog.newestChange(folder, at(8, 0), at(9, 0)), at(9, 0));
    EXPECT_FALSE(catalog.newestChange(folder, at(10, 0), at(12, 0)).has_value()) << "an appearance is no change";
    EXPECT_EQ(catalog.countChanges(folder, at(8, 0), at(12, 0)), 2);
    EXPECT_EQ(catalog.countChanges(folder, at(8, 0), at(12, 0), " AND source = 'manual'"), 1);
    EXPECT_TRUE(catalog.anythingAt(folder, at(10, 0)));
    EXPECT_FALSE(catalog.anythingAt(folder, at(11, 0)));
}

TEST_F(VersionCatalogTest, MarkKindPrecedenceKeepsNamedAndItsNameButTakesTheNewTarget) {
    catalog.recordMark({folder, at(10, 0), std::string("Before the big edit"), MomentMark::Kind::named, std::nullopt});
    catalog.recordMark({folder, at(10, 0), std::nullopt, MomentMark::Kind::beforeRewind, at(9, 0)});
    auto marks = catalog.marks(folder);
    ASSERT_EQ(marks.size(), 1u);
    EXPECT_EQ(marks[0].kind, MomentMark::Kind::named);
    EXPECT_EQ(marks[0].name, "Before the big edit");
    EXPECT_EQ(marks[0].targetAt, at(9, 0));

    catalog.recordMark({folder, at(11, 0), std::nullopt, MomentMark::Kind::beforeRewind, at(9, 0)});
    catalog.recordMark({folder, at(11, 0), std::string("Renamed"), MomentMark::Kind::named, at(8, 0)});
    marks = catalog.marks(folder);
    EXPECT_EQ(marks[0].kind, MomentMark::Kind::named) << "named wins whichever came first";
    EXPECT_EQ(marks[0].targetAt, at(8, 0));

    // The eraser's variant keeps an existing beforeRewind kind and target.
    catalog.recordMark({folder, at(12, 0), std::nullopt, MomentMark::Kind::beforeRewind, at(7, 0)});
    catalog.restoreMark({folder, at(12, 0), std::string("x"), MomentMark::Kind::named, at(6, 0)});
    marks = catalog.marks(folder);
    EXPECT_EQ(marks[0].kind, MomentMark::Kind::beforeRewind);
    EXPECT_EQ(marks[0].targetAt, at(7, 0));
    EXPECT_EQ(marks[0].name, "x");

    catalog.clearMarkName(folder, at(12, 0));
    EXPECT_FALSE(catalog.marks(folder)[0].name.has_value());
    catalog.deleteMark(folder, at(12, 0));
    EXPECT_EQ(catalog.marks(folder).size(), 2u);
}

TEST_F(VersionCatalogTest, StagedDeletionDropsDeletedFilesWithoutVersionsButKeepsLiveOnes) {
    auto gone = track("gone.txt");
    auto live = track("live.txt");
    auto kept = track("kept.txt");
    auto goneVersion = capture(gone, at(9, 0), 1);
    auto liveVersion = capture(live, at(9, 0), 1);
    auto keptOld = capture(kept, at(9, 0), 1);
    capture(kept, at(10, 0), 2);
    catalog.markDeleted(gone.id, at(11, 0));

    catalog.deleteVersions({goneVersion.id, liveVersion.id, keptOld.id, goneVersion.id});
    EXPECT_FALSE(catalog.file(gone.id).has_value()) << "deleted and versionless: gone from the catalog";
    EXPECT_TRUE(catalog.eventsSince(folder, 0).empty()) << "its events go with it";
    EXPECT_TRUE(catalog.file(live.id).has_value()) << "a live file keeps its row";
    EXPECT_TRUE(catalog.versionsOfFile(live.id, 10).empty());
    EXPECT_EQ(catalog.versionsOfFile(kept.id, 10).size(), 1u);
}

TEST_F(VersionCatalogTest, StagedIdsCanBeLeftOutOfAVersionsQuery) {
    auto a = track("a.txt");
    auto v1 = capture(a, at(9, 0), 1);
    auto v2 = capture(a, at(10, 0), 1);
    EXPECT_EQ(catalog.allVersions(true).size(), 2u) << "nothing staged yet";
    catalog.stageVersionIDs({v1.id});
    auto rest = catalog.allVersions(true);
    ASSERT_EQ(rest.size(), 1u);
    EXPECT_EQ(rest[0].id, v2.id);
    catalog.deleteVersionsListed({v2.id});
    EXPECT_EQ(catalog.allVersions().size(), 1u);
}

TEST_F(VersionCatalogTest, ExtractedTextIsStoredOnceAndFoundWithDiacriticsFolded) {
    auto cv = track("cv.txt");
    auto v1 = capture(cv, at(9, 0), 1, "d1");
    auto other = track("copy.txt");
    auto v2 = capture(other, at(10, 0), 1, "d1");
    EXPECT_EQ(catalog.digestsToIndexCount(), 1);
    auto batch = catalog.nextBatchToIndex(catalog.highestVersionID() + 1, 0, 10);
    ASSERT_EQ(batch.size(), 2u);
    EXPECT_EQ(batch[0].versionID, v2.id) << "newest first";

    catalog.storeContentResult("d1", ContentState::indexed, at(12, 0), 24, std::string("Mon résumé chez Şirket"));
    catalog.storeContentResult("d1", ContentState::indexed, at(12, 1), 99, std::string("second text"));
    EXPECT_EQ(catalog.storedTextBytes(), 24) << "a second result for the same digest adds nothing";
    EXPECT_EQ(catalog.digestsToIndexCount(), 0);
    EXPECT_TRUE(catalog.nextBatchToIndex(catalog.highestVersionID() + 1, 0, 10).empty());

    auto hits = catalog.searchContents("[", "]", "resume", folder, 10);
    ASSERT_EQ(hits.size(), 2u) << "one row per version sharing the text";
    EXPECT_EQ(hits[0].hit.versionID, v2.id);
    EXPECT_NE(hits[0].hit.snippet.find("[résumé]"), std::string::npos) << hits[0].hit.snippet;
    EXPECT_EQ(catalog.searchContents("[", "]", "sirket", folder, 10).size(), 2u);

    catalog.deleteVersions({v1.id});
    EXPECT_TRUE(catalog.digestInUse("d1"));
    catalog.deleteVersions({v2.id});
    EXPECT_FALSE(catalog.digestInUse("d1"));
    EXPECT_EQ(catalog.storedTextBytes(), 0) << "the text lives exactly as long as its digest";
    EXPECT_TRUE(catalog.searchContents("[", "]", "resume", folder, 10).empty());
    EXPECT_FALSE(catalog.storeContentResult("d1", ContentState::indexed, at(13, 0), 4, std::string("gone")))
        << "a digest no version holds any more is not stored";
    EXPECT_EQ(catalog.contentIndexCounts().indexed, 0);
}

TEST_F(VersionCatalogTest, RecentFilesAndNameSearch) {
    auto a = track("100%_done.txt");
    auto b = track("100xydone.txt");
    capture(a, at(9, 0), 1, "", CaptureSource::watcher, true);
    capture(b, at(10, 0), 1);
    capture(b, at(11, 0), 1);
    auto recent = catalog.recentFiles(folder, 10, false);
    ASSERT_EQ(recent.size(), 2u);
    EXPECT_EQ(recent[0].file.id, b.id);
    EXPECT_EQ(recent[0].versionCount, 2);
    EXPECT_DOUBLE_EQ(recent[0].lastCapturedAt, at(11, 0));
    auto replaced = catalog.recentFiles(std::nullopt, 10, true);
    ASSERT_EQ(replaced.size(), 1u);
    EXPECT_EQ(replaced[0].file.id, a.id);
    EXPECT_EQ(catalog.folderReplacedFileCount(folder), 1);

    auto found = catalog.filesByName(folder, VersionCatalog::containsPattern("%_d"));
    ASSERT_EQ(found.size(), 1u) << "% and _ in the user's text are literal";
    EXPECT_EQ(found[0].file.id, a.id);
    EXPECT_EQ(catalog.filesByName(folder, VersionCatalog::containsPattern("DONE")).size(), 2u)
        << "LIKE is case-insensitive for ASCII";
}

TEST_F(VersionCatalogTest, WatchStateWriteReplacesEveryFieldAbsentOnesIncluded) {
    EXPECT_FALSE(catalog.watchState(folder).has_value());
    catalog.writeWatchState({folder, 123, at(9, 0), true, std::string("8:1")});
    EXPECT_EQ(catalog.watchState(folder), (WatchState{folder, 123, at(9, 0), true, std::string("8:1")}));
    catalog.writeWatchState({folder, std::nullopt, std::nullopt, false, std::nullopt});
    EXPECT_EQ(catalog.watchState(folder), (WatchState{folder, std::nullopt, std::nullopt, false, std::nullopt}));
}

TEST_F(VersionCatalogTest, ForgettingAFolderRemovesAllOfItsHistoryAndNothingElse) {
    auto a = track("a.txt");
    auto v = capture(a, at(9, 0), 7);
    catalog.markDeleted(a.id, at(10, 0));
    catalog.recordMark({folder, at(9, 0), std::string("n"), MomentMark::Kind::named, std::nullopt});
    catalog.writeWatchState({folder, 1, std::nullopt, true, std::nullopt});
    auto otherFile = catalog.upsertFile("other", "b.txt", std::nullopt, false, std::nullopt);
    capture(otherFile, at(9, 0), 3);

    EXPECT_EQ(catalog.folderBytes(folder), 7);
    EXPECT_EQ(catalog.folderVersionCount(folder), 1);
    EXPECT_EQ(catalog.folderDeletedFileCount(folder), 1);
    auto slots = catalog.forgetFolder(folder);
    EXPECT_EQ(slots, std::vector<std::string>{v.slot});
    EXPECT_TRUE(catalog.files(folder, false).empty());
    EXPECT_TRUE(catalog.marks(folder).empty());
    EXPECT_TRUE(catalog.eventsSince(folder, 0).empty());
    EXPECT_FALSE(catalog.watchState(folder).has_value());
    EXPECT_EQ(catalog.folderVersionCount("other"), 1);
    auto totals = catalog.totals();
    EXPECT_EQ(totals.files, 1);
    EXPECT_EQ(totals.versions, 1);
    EXPECT_EQ(totals.logicalBytes, 3);
}

TEST_F(VersionCatalogTest, PathsThatAreNotUtf8AreKeptByteForByte) {
    const std::string latin1 = "Entw\xfcrfe/caf\xe9.txt";
    auto file = track(latin1);
    EXPECT_EQ(catalog.fileAtPath(folder, latin1)->relativePath, latin1);
    capture(file, at(9, 0), 1);
    EXPECT_EQ(catalog.stateAt(folder, at(9, 1))[0].file.relativePath, latin1);
    EXPECT_EQ(catalog.files(folder, true)[0].relativePath, latin1);
}

TEST_F(VersionCatalogTest, LiveFileListingsLeaveTombstonesOut) {
    auto a = track("b/a.txt");
    auto b = track("a.txt");
    capture(a, at(9, 0), 1);
    capture(b, at(9, 30), 1);
    catalog.markDeleted(a.id, at(10, 0));
    auto all = catalog.files(folder, false);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].relativePath, "a.txt") << "ordered by path";
    auto live = catalog.files(folder, true);
    ASSERT_EQ(live.size(), 1u);
    auto newest = catalog.liveFilesWithNewestCapture(folder);
    ASSERT_EQ(newest.size(), 1u);
    EXPECT_EQ(newest[0], std::make_pair(std::string("a.txt"), at(9, 30)));
    EXPECT_EQ(catalog.allSlots().size(), 2u);
    EXPECT_EQ(catalog.slotsOfFolder(folder).size(), 2u);
}

}  // namespace
}  // namespace vosklin

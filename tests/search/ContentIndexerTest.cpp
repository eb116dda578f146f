#include "search/ContentIndexer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "search/ContentSearchModel.h"
#include "support/CaptureStack.h"
#include "support/FakeMachineConditions.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using End = ContentIndexer::End;
constexpr double noon = 1'740'830'400.0;  // 2025-03-01T12:00:00Z

class ContentIndexerTest : public ::testing::Test {
protected:
    ContentIndexerTest() { std::filesystem::create_directories(root); }

    // Writes `relative` with `bytes` and captures it one minute after the previous capture.
    void save(const std::string& relative, const std::string& bytes) {
        directory.write("Documents/" + relative, bytes);
        auto outcome = stack.service.capture({folder, root, root + "/" + relative, false, CaptureSource::watcher,
                                              std::nullopt},
                                             noon + 60 * double(++captures));
        ASSERT_EQ(outcome.kind, CaptureOutcome::Kind::stored) << relative;
    }
    std::vector<std::string> filesMatching(const std::string& words) {
        std::vector<std::string> paths;
        for (const auto& group : search.search(ContentSearchModel::Scope::contents, {words, true, folder}).groups)
            paths.push_back(group.file.relativePath);
        return paths;
    }
    std::int64_t ftsRows() {
        Database database(stack.layout.databasePath());
        return database.scalar("SELECT COUNT(*) FROM content_fts");
    }
    ContentIndexer::Report run(std::int64_t budget = ContentIndexer::unlimited) { return indexer.runNow(budget); }

    test::TempDirectory directory;
    const std::string root = directory / "Documents";
    const std::string folder = "F0000000-0000-4000-8000-000000000001";
    test::CaptureStack stack{directory / "store"};
    Settings settings{directory / "settings.json", stack.fileSystem, stack.logger};
    test::FakeMachineConditions machine;
    TextExtractor extractor{stack.fileSystem};
    ContentIndexer indexer{{stack.catalog, stack.layout, stack.fileSystem, extractor, settings, machine, stack.clock, stack.logger},
                           {10, 0}};
    ContentSearchModel search{stack.catalog, stack.clock};
    int captures = 0;
};

TEST_F(ContentIndexerTest, IndexesEachDigestOnceAndRecordsTextlessAndFailedOnes) {
    save("letter.txt", "Dear Şirket, my résumé is attached");
    save("copy of letter.txt", "Dear Şirket, my résumé is attached");
    save("utf16.txt", std::string("\xFF\xFE" "q\0u\0a\0r\0t\0e\0r\0l\0y\0", 20));
    save("empty.md", "");
    save("bad.docx", "this is no zip archive");
    auto report = run();
    EXPECT_EQ(report.end, End::nothingLeft);
    EXPECT_EQ(report.versions, 5);
    EXPECT_EQ(report.indexed, 2) << "two distinct texts, one shared by two versions";
    EXPECT_EQ(report.withoutText, 1);
    EXPECT_EQ(report.failed, 1);
    const auto counts = stack.catalog.contentIndexCounts();
    EXPECT_EQ(counts.indexed, 2);
    EXPECT_EQ(counts.withoutText, 1);
    EXPECT_EQ(counts.failed, 1);
    EXPECT_EQ(ftsRows(), 2);
    EXPECT_TRUE(stack.logger.contains("Indexed 5 versions for content search"));
    const auto messages = stack.logger.messages();
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& m) { return m.starts_with("Indexing a version failed: "); }),
              1);

    EXPECT_EQ(filesMatching("resume sirket"), (std::vector<std::string>{"copy of letter.txt", "letter.txt"}))
        << "diacritics fold, newest file first";
    EXPECT_EQ(filesMatching("quarter"), std::vector<std::string>{"utf16.txt"}) << "the last word is a prefix";
    EXPECT_EQ(run().versions, 0) << "no digest is attempted twice, failed ones included";
}

TEST_F(ContentIndexerTest, ADocumentWhoseReadingKilledTheProcessIsRecordedFailedNotReadAgain) {
    save("poison.pdf", "%PDF-1.4 pretend this one crashes the reader");
    save("fine.txt", "harmless words");
    const auto poison = stack.catalog.nextBatchToIndex(stack.catalog.highestVersionID() + 1, 0, 10).back();
    ASSERT_EQ(poison.payloadName, "poison.pdf");
    // What a run that died inside the reader leaves behind.
    directory.write("store/indexing.attempt", poison.digest + "\n");
    const auto report = run();
    EXPECT_EQ(report.failed, 1);
    EXPECT_EQ(report.versions, 1) << "only the other document was read";
    EXPECT_EQ(stack.catalog.contentIndexCounts().failed, 1);
    EXPECT_EQ(stack.catalog.digestsToIndexCount(), 0);
    EXPECT_FALSE(std::filesystem::exists(stack.layout.indexingAttemptPath())) << "a run that ends takes it away";
}

TEST_F(ContentIndexerTest, StopsBeforeABatchForEachReasonAndLaterRunsGoOnWhereTheIndexStands) {
    for (int i = 0; i < 25; ++i) save("note" + std::to_string(i) + ".txt", "note number " + std::to_string(i));
    EXPECT_EQ(run(10).end, End::budgetSpent);
    EXPECT_EQ(stack.catalog.contentIndexCounts().indexed, 10);

    struct Case {
        const char* name;
        std::function<void()> set, reset;
        End end;
    };
    const std::vector<Case> cases = {
        {"content search off", [&] { settings.set("vosklin.contentSearchDisabled", true); },
         [&] { settings.set("vosklin.contentSearchDisabled", nullptr); }, End::disabled},
        {"paused", [&] { settings.set("vosklin.isPaused", true); }, [&] { settings.set("vosklin.isPaused", false); },
         End::paused},
        {"low power", [&] { machine.lowPower = true; }, [&] { machine.lowPower = false; }, End::constrained},
        {"serious heat", [&] { machine.thermal = ThermalState::serious; },
         [&] { machine.thermal = ThermalState::fair; }, End::constrained},
        {"critical heat", [&] { machine.thermal = ThermalState::critical; },
         [&] { machine.thermal = ThermalState::nominal; }, End::constrained},
    };
    for (const auto& c : cases) {
        c.set();
        const auto report = run();
        EXPECT_EQ(report.end, c.end) << c.name;
        EXPECT_EQ(report.versions, 0) << c.name << ": no batch runs";
        c.reset();
    }
    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_EQ(indexer.runNow(ContentIndexer::unlimited, cancelled.get_token()).end, End::cancelled);

    const auto rest = run();
    EXPECT_EQ(rest.end, End::nothingLeft);
    EXPECT_EQ(rest.indexed, 15) << "the first ten are not read again";
    EXPECT_EQ(stack.catalog.digestsToIndexCount(), 0);
}

TEST_F(ContentIndexerTest, ItsThreadServesRequestsAndAClearDuringARunStoresNothingMore) {
    for (int i = 0; i < 6; ++i) save("page" + std::to_string(i) + ".txt", "page " + std::to_string(i));
    ContentIndexer paced{{stack.catalog, stack.layout, stack.fileSystem, extractor, settings, machine, stack.clock, stack.logger},
                         {1, 30}};
    paced.start();
    paced.request();
    // Wait until the first batch of one is stored; the run then pauses 30 s before the next.
    for (int i = 0; i < 500 && stack.catalog.contentIndexCounts().indexed == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(stack.catalog.contentIndexCounts().indexed, 1);
    const auto before = std::chrono::steady_clock::now();
    paced.clear();
    // The cleared run ends at once; the request made now is served by a fresh run,
    // which this test stops after its first batch by turning content search off.
    settings.set("vosklin.isPaused", true);
    const auto report = paced.requestAndWait(ContentIndexer::unlimited);
    EXPECT_EQ(report.end, End::paused);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20)) << "the pause was cut short";
    EXPECT_EQ(stack.catalog.contentIndexCounts().indexed, 0) << "the clear emptied the index and nothing came back";
    settings.set("vosklin.isPaused", nullptr);
    paced.shutDown();
    EXPECT_EQ(indexer.runNow(ContentIndexer::unlimited).indexed, 6) << "every digest was pending again";
}

}  // namespace
}  // namespace vosklin

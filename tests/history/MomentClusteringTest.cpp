#include "history/MomentClustering.h"

#include <gtest/gtest.h>

#include <limits>

namespace vosklin::MomentClustering {
// Readable failures.
void PrintTo(const FileChange& change, std::ostream* out) {
    *out << change.identity() << " " << toString(change.kind) << " bytes=" << change.bytes
         << " delta=" << (change.byteDelta ? std::to_string(*change.byteDelta) : "none")
         << " previous=" << change.previousPath.value_or("none");
}
}  // namespace vosklin::MomentClustering

namespace vosklin {
namespace {

using namespace MomentClustering;
using Kind = FileChange::Kind;

constexpr double t0 = 1'740'000'000;

ChangeRow row(std::int64_t file, const std::string& path, double at, std::int64_t bytes,
              std::optional<std::int64_t> previous = std::nullopt, std::optional<std::string> batch = std::nullopt,
              bool replaced = false) {
    return {file, path, at, bytes, previous, CaptureSource::watcher, std::move(batch), replaced};
}
MomentMark mark(double at, MomentMark::Kind kind) { return {"F", at, std::nullopt, kind, std::nullopt}; }
std::vector<double> ats(const std::vector<Moment>& moments) {
    std::vector<double> result;
    for (const auto& moment : moments) result.push_back(moment.at);
    return result;
}

TEST(MomentClusteringTest, TheWindowIsSixtySecondsInclusiveAnchoredAtTheNewestInstant) {
    EXPECT_EQ(moments({row(1, "a", t0, 1), row(2, "b", t0 + 60, 1)}, {}, {}).size(), 1u);
    EXPECT_EQ(moments({row(1, "a", t0, 1), row(2, "b", t0 + 60.001, 1)}, {}, {}).size(), 2u);
    // 80 opens, 40 joins (40 s from 80), 0 is 80 s from the newest: a second moment.
    auto grouped = moments({row(1, "a", t0, 1), row(2, "b", t0 + 40, 1), row(3, "c", t0 + 80, 1)}, {}, {});
    EXPECT_EQ(ats(grouped), (std::vector<double>{t0 + 80, t0}));
    EXPECT_EQ(grouped[0].instantCount, 2);
    EXPECT_TRUE(moments({}, {}, {}).empty());
}

TEST(MomentClusteringTest, RewindMarksAreFencesAndNamesAreNot) {
    const std::vector<ChangeRow> rows = {row(1, "a", t0, 1), row(2, "b", t0 + 10, 1), row(3, "c", t0 + 20, 1)};
    EXPECT_EQ(ats(moments(rows, {}, {mark(t0 + 10, MomentMark::Kind::beforeRewind)})),
              (std::vector<double>{t0 + 20, t0 + 10, t0}))
        << "the fenced instant stands alone";
    EXPECT_EQ(ats(moments(rows, {}, {mark(t0 + 10, MomentMark::Kind::rewind)})),
              (std::vector<double>{t0 + 20, t0 + 10, t0}));
    EXPECT_EQ(ats(moments(rows, {}, {mark(t0 + 10, MomentMark::Kind::named)})), (std::vector<double>{t0 + 20}));
}

TEST(MomentClusteringTest, AMomentsFloorIsTheNewestInstantBeforeItsOldest) {
    const double none = std::numeric_limits<double>::lowest();
    // Newest first: 200 and 150 make one moment (anchored at 200), 80 and 40 another, 0 a third.
    const std::vector<double> instants = {t0 + 200, t0 + 150, t0 + 80, t0 + 40, t0};
    struct Row {
        double at;
        std::unordered_set<double> fences;
        double floor;
    } rows[] = {
        {t0 + 200, {}, t0 + 80},       {t0 + 150, {}, t0 + 80}, {t0 + 80, {}, t0},
        {t0 + 100, {}, t0 + 80},       // between moments: the span just below it
        {t0, {}, none},                {t0 - 5, {}, none},
        {t0 + 150, {t0 + 150}, t0 + 80},  // a fence stands alone: its moment is itself
        {t0 + 200, {t0 + 150}, t0 + 150},
    };
    for (const auto& row : rows)
        EXPECT_EQ(momentFloor(instants, row.fences, row.at), row.floor) << "at t0+" << row.at - t0;
}

TEST(MomentClusteringTest, FirstVersionAndAnEditInOneMomentIsAddedWithTheLaterSize) {
    auto result = moments({row(1, "report.odt", t0, 100), row(1, "report.odt", t0 + 30, 150, 100)}, {}, {});
    ASSERT_EQ(result.size(), 1u);
    ASSERT_EQ(result[0].changes.size(), 1u);
    EXPECT_EQ(result[0].changes[0],
              (FileChange{1, "report.odt", Kind::added, 150, std::nullopt, std::nullopt}));
}

TEST(MomentClusteringTest, EditsReplacementsRenamesAndDeletionsFromRows) {
    const std::vector<ChangeRow> rows = {
        row(1, "old-name.txt", t0 - 1000, 10),
        row(1, "new-name.txt", t0, 30, 10),
        row(2, "swapped.png", t0 - 1000, 500),
        row(2, "swapped.png", t0 + 5, 400, 500, std::nullopt, true),
        row(3, "edited.md", t0 - 1000, 50),
        row(3, "edited.md", t0 + 6, 70, 50),
        row(4, "gone.txt", t0 - 1000, 8),
        row(4, "gone.txt", t0 + 7, 9, 8),
    };
    const std::vector<FileEventRow> events = {
        {4, t0 + 7, FileEventKind::deleted, std::nullopt},
        {1, t0, FileEventKind::renamed, std::string("new-name.txt")},
    };
    auto result = moments(rows, events, {});
    ASSERT_EQ(result.size(), 2u);
    const auto& changes = result[0].changes;
    ASSERT_EQ(changes.size(), 4u);
    // Ordered by weight (|delta| for edits and renames, size for deletions), then by name.
    EXPECT_EQ(changes[0], (FileChange{2, "swapped.png", Kind::replaced, 400, -100, std::nullopt}));
    EXPECT_EQ(changes[1], (FileChange{3, "edited.md", Kind::edited, 70, 20, std::nullopt}));
    EXPECT_EQ(changes[2], (FileChange{1, "new-name.txt", Kind::renamed, 30, 20, std::string("old-name.txt")}));
    EXPECT_EQ(changes[3], (FileChange{4, "gone.txt", Kind::deleted, 9, std::nullopt, std::nullopt}));
}

TEST(MomentClusteringTest, EventsWithoutVersionsInTheMoment) {
    const std::vector<ChangeRow> rows = {row(5, "notes/plan.txt", t0 - 500, 42)};
    const std::vector<FileEventRow> events = {
        {7, t0 + 2, FileEventKind::appeared, std::nullopt},
        {6, t0 + 1, FileEventKind::deleted, std::nullopt},
        {5, t0, FileEventKind::renamed, std::string("plans/plan.txt")},
    };
    auto result = moments(rows, events, {});
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].at, t0 + 1) << "an appearance makes no instant";
    ASSERT_EQ(result[0].changes.size(), 2u);
    // Both weigh 0 (a rename without versions has no delta): the empty name sorts first.
    EXPECT_EQ(result[0].changes[0], (FileChange{6, "", Kind::deleted, 0, std::nullopt, std::nullopt}))
        << "deleted with no version before: empty path, no bytes";
    EXPECT_EQ(result[0].changes[1],
              (FileChange{5, "plans/plan.txt", Kind::renamed, 42, std::nullopt, std::string("notes/plan.txt")}));
    EXPECT_TRUE(moments({}, {{7, t0, FileEventKind::appeared, std::nullopt}}, {}).empty())
        << "an appearance alone is neither an instant nor a change";
}

TEST(MomentClusteringTest, ABatchNeedsTwoChangesAllInTheSameBatch) {
    auto both = moments({row(1, "a", t0, 1, std::nullopt, "B"), row(2, "b", t0 + 1, 1, std::nullopt, "B")}, {}, {});
    EXPECT_EQ(both[0].batchID, "B");
    EXPECT_FALSE(moments({row(1, "a", t0, 1, std::nullopt, "B")}, {}, {})[0].batchID.has_value());
    EXPECT_FALSE(moments({row(1, "a", t0, 1, std::nullopt, "B"), row(2, "b", t0 + 1, 1)}, {}, {})[0]
                     .batchID.has_value());
    EXPECT_FALSE(moments({row(1, "a", t0, 1, std::nullopt, ""), row(2, "b", t0 + 1, 1, std::nullopt, "")}, {}, {})[0]
                     .batchID.has_value());
}

TEST(MomentClusteringTest, EqualWeightsAreInNaturalNameOrder) {
    auto result = moments({row(1, "dir/b10", t0, 5), row(2, "b2", t0, 5), row(3, "B1", t0, 5)}, {}, {});
    ASSERT_EQ(result[0].changes.size(), 3u);
    EXPECT_EQ(result[0].changes[0].relativePath, "B1");
    EXPECT_EQ(result[0].changes[1].relativePath, "b2");
    EXPECT_EQ(result[0].changes[2].relativePath, "dir/b10");
    EXPECT_EQ(result[0].changes[1].identity(), "2@b2");
}

TEST(MomentClusteringTest, SessionsSplitOnPausesLongerThan2700Seconds) {
    auto grouped = moments({row(1, "a", t0, 1), row(1, "a", t0 + 2700, 2, 1), row(1, "a", t0 + 5400.5, 3, 2)}, {}, {});
    auto result = sessions(grouped);
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].start, t0 + 5400.5);
    EXPECT_EQ(result[0].end, t0 + 5400.5);
    EXPECT_EQ(result[1].start, t0) << "exactly 2700 s stays in one session";
    EXPECT_EQ(result[1].end, t0 + 2700);
    EXPECT_EQ(result[1].moments.size(), 2u);
    EXPECT_TRUE(sessions({}).empty());
}

}  // namespace
}  // namespace vosklin

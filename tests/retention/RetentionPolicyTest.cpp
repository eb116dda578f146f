// Which versions of a file survive thinning, case by case against a fixed
// instant, with the time zone pinned so calendar buckets are the same anywhere.
#include "retention/RetentionPolicy.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "platform/PosixFileSystem.h"
#include "platform/Settings.h"
#include "retention/PinnedTimeZone.h"
#include "retention/RetentionHorizon.h"
#include "support/RecordingLogger.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using Kind = MomentMark::Kind;
using Source = CaptureSource;
using Horizon = RetentionHorizon;
using Granularity = RetentionPolicy::Granularity;

constexpr double minute = 60, hour = 3'600, day = 86'400;
// Sunday 2025-06-15 23:30 in Central European summer time.
const double now = test::utc("2025-06-15 21:30");

struct V {
    double age;
    bool starred = false;
    Source source = Source::watcher;
    bool replacement = false;
};
struct M {
    double age;
    Kind kind;
    std::optional<std::string> name = std::nullopt;
};
struct Row {
    const char* what;
    std::vector<V> versions;
    std::set<int> kept, guarded;  // indices into `versions`
    std::vector<M> marks = {};
    Horizon horizon = Horizon::year;
    bool deleted = false;
    bool fresh = true;  // ten younger versions in front, so the newest-ten rule does not reach the rows
    std::int64_t keepNewest = 10;
};

std::vector<V> elevenTwoYearsOld() {
    std::vector<V> versions;
    for (int i = 0; i < 11; ++i) versions.push_back({730 * day + i * hour});
    return versions;
}

// Local times in the comments; `now` is Sunday 23:30.
const std::vector<Row> rows = {
    {"the newest ten survive beyond the horizon, the eleventh does not", elevenTwoYearsOld(),
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {}, Horizon::year, false, false},
    {"the last copy of a deleted file is kept", {{5 * 365 * day}, {5 * 365 * day + hour}}, {0}, {0}, {},
     Horizon::month, true, false, 0},
    {"...but not once the file is back", {{5 * 365 * day}, {5 * 365 * day + hour}}, {}, {}, {}, Horizon::month,
     false, false, 0},
    {"same clock hour (Thu 23:30, 23:20): the newer keeps it", {{3 * day}, {3 * day + 10 * minute}}, {0}, {}},
    {"equal instants: the one given first keeps the bucket", {{3 * day}, {3 * day}}, {0}, {}},
    {"same hour, older starred", {{3 * day}, {3 * day + 10 * minute, true}}, {0, 1}, {1}},
    {"same hour, older captured by hand", {{3 * day}, {3 * day + 10 * minute, false, Source::manual}}, {0, 1}, {1}},
    {"same hour, older under a mark of kind named", {{3 * day}, {3 * day + 10 * minute}}, {0, 1}, {1},
     {{3 * day + 5 * minute, Kind::named}}},
    {"same hour, older under a rewind mark with a name", {{3 * day}, {3 * day + 10 * minute}}, {0, 1}, {1},
     {{3 * day + 5 * minute, Kind::rewind, "Before cleanup"}}},
    {"a mark at the very instant stands on that version", {{3 * day}, {3 * day + 10 * minute}}, {0, 1}, {1},
     {{3 * day + 10 * minute, Kind::named}}},
    {"a mark older than every version stands on nothing", {{3 * day}, {3 * day + 10 * minute}}, {0}, {},
     {{3 * day + 11 * minute, Kind::named}}},
    {"same calendar day (Sat 23:30, 01:30)", {{8 * day}, {8 * day + 22 * hour}}, {0}, {}},
    {"23 h 40 apart across midnight (Sat 23:30, Fri 23:50)", {{8 * day}, {8 * day + 23 * hour + 40 * minute}},
     {0, 1}, {}},
    {"same ISO week (Wed, Tue)", {{60 * day}, {61 * day}}, {0}, {}},
    {"different weeks (Wed, the Sunday before)", {{60 * day}, {63 * day}}, {0, 1}, {}},
    {"forever keeps one a week without end", {{3 * 365 * day}, {10 * 365 * day}}, {0, 1}, {}, {},
     Horizon::forever},
    {"a year drops both", {{3 * 365 * day}, {10 * 365 * day}}, {}, {}},
    {"a month keeps nothing past 30 days", {{29 * day}, {31 * day}}, {0}, {}, {}, Horizon::month},
    {"a quarter thins weekly past 30 days", {{29 * day}, {31 * day}, {90 * day}, {92 * day}}, {0, 1, 2}, {}, {},
     Horizon::quarter},
    {"replaced 10 days ago: what it displaced stays",
     {{10 * day, false, Source::watcher, true}, {10 * day + hour}, {10 * day + 2 * hour}}, {0, 1}, {1}},
    {"replaced 31 days ago: thinned like any other",
     {{31 * day, false, Source::watcher, true}, {31 * day + hour}}, {0}, {}},
    {"replaced exactly 30 days ago", {{30 * day, false, Source::watcher, true}, {30 * day + hour}}, {0, 1}, {1}},
    {"replaced 30 days and a second ago", {{30 * day + 1, false, Source::watcher, true}, {30 * day + hour}},
     {0}, {}},
    {"unnamed before-rewind mark 29 days old", {{29 * day - 10 * minute}, {29 * day + hour}}, {0, 1}, {1},
     {{29 * day, Kind::beforeRewind}}},
    {"unnamed before-rewind mark exactly 30 days old", {{30 * day - 10 * minute}, {30 * day + hour}}, {0, 1}, {1},
     {{30 * day, Kind::beforeRewind}}},
    {"unnamed before-rewind mark 31 days old", {{31 * day - 10 * minute}, {31 * day + hour}}, {0}, {},
     {{31 * day, Kind::beforeRewind}}},
    {"named before-rewind mark 31 days old", {{31 * day - 10 * minute}, {31 * day + hour}}, {0, 1}, {1},
     {{31 * day, Kind::beforeRewind, "Old layout"}}},
    {"a named mark protects past the horizon", {{730 * day}, {730 * day + hour}}, {1}, {1},
     {{730 * day + 30 * minute, Kind::named, "Launch"}}},
    {"an unnamed rewind mark protects nothing", {{29 * day - 10 * minute}, {29 * day + hour}}, {0}, {},
     {{29 * day, Kind::rewind}}},
    {"overwritten by a restore 20 days ago", {{20 * day}, {20 * day + hour, false, Source::preRestore}}, {0, 1},
     {1}},
    {"overwritten by a restore exactly 30 days ago",
     {{30 * day - 10 * minute}, {30 * day, false, Source::preRestore}}, {0, 1}, {1}},
    {"overwritten by a restore 30 days and a second ago",
     {{30 * day - 10 * minute}, {30 * day + 1, false, Source::preRestore}}, {0, 1}, {}},
    {"overwritten by a restore 31 days ago", {{31 * day}, {31 * day + hour, false, Source::preRestore}}, {0}, {}},
    {"taken before a rewind: no special standing", {{20 * day}, {20 * day + hour, false, Source::preRewind}},
     {0}, {}},
    {"untouchable up to an hour", {{hour}, {hour + 1}}, {0, 1}, {0}, {}, Horizon::year, false, false, 0},
    {"no versions, nothing to keep", {}, {}, {}, {{day, Kind::named, "x"}, {0, Kind::beforeRewind}}, Horizon::year,
     true, false},
};

class RetentionPolicyTest : public ::testing::Test {
protected:
    test::PinnedTimeZone zone{test::centralEurope};
};

std::set<std::int64_t> sorted(const std::unordered_set<std::int64_t>& ids) { return {ids.begin(), ids.end()}; }

TEST_F(RetentionPolicyTest, KeepsWhatTheRulesSay) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        std::vector<StoredVersion> versions;
        std::set<std::int64_t> kept, guarded;
        auto add = [&](std::int64_t id, const V& v, bool keep, bool guard) {
            StoredVersion& version = versions.emplace_back();
            version.id = id;
            version.capturedAt = now - v.age;
            version.isStarred = v.starred;
            version.source = v.source;
            version.isReplacement = v.replacement;
            if (keep) kept.insert(id);
            if (guard) guarded.insert(id);
        };
        for (int i = 0; row.fresh && i < 10; ++i) add(1001 + i, {(2 + i) * hour}, true, true);
        for (int i = 0; i < int(row.versions.size()); ++i)
            add(i, row.versions[std::size_t(i)], row.kept.count(i), row.guarded.count(i));
        std::vector<MomentMark> marks;
        for (const M& m : row.marks) {
            MomentMark& mark = marks.emplace_back();
            mark.at = now - m.age;
            mark.kind = m.kind;
            mark.name = m.name;
        }
        RetentionPolicy policy = RetentionPolicy::forHorizon(row.horizon);
        policy.alwaysKeepNewest = row.keepNewest;
        EXPECT_EQ(sorted(policy.versionsToKeep(versions, row.deleted, marks, now)), kept);
        EXPECT_EQ(sorted(policy.protectedVersions(versions, row.deleted, marks, now)), guarded);
    }
}

TEST_F(RetentionPolicyTest, BucketKeysAreLocalCalendarComponents) {
    using enum Granularity;
    const struct {
        const char* utc;
        Granularity granularity;
        const char* key;
    } cases[] = {
        {"2025-03-01 13:05", hourly, "h-2025-3-1-14"},
        {"2025-03-01 23:05", daily, "d-2025-3-2"},  // already tomorrow here
        // Spring forward: 02:00 does not exist, 01:59 is followed by 03:00.
        {"2025-03-30 00:30", hourly, "h-2025-3-30-1"}, {"2025-03-30 01:30", hourly, "h-2025-3-30-3"},
        {"2025-03-30 21:59", daily, "d-2025-3-30"}, {"2025-03-30 22:00", daily, "d-2025-3-31"},
        // Fall back: the two 02:30s, an hour apart, share a clock hour.
        {"2025-10-26 00:30", hourly, "h-2025-10-26-2"}, {"2025-10-26 01:30", hourly, "h-2025-10-26-2"},
        {"2025-10-26 02:30", hourly, "h-2025-10-26-3"},
        // ISO weeks start on Monday and belong to the year of their Thursday; 23:30 UTC is already Monday here.
        {"2024-12-29 12:00", weekly, "w-2024-52"}, {"2024-12-29 23:30", weekly, "w-2025-1"},
        {"2024-12-30 12:00", weekly, "w-2025-1"}, {"2021-01-03 12:00", weekly, "w-2020-53"},
        {"2026-01-01 12:00", weekly, "w-2026-1"}, {"2025-06-15 21:30", weekly, "w-2025-24"},
        {"2025-06-15 22:30", weekly, "w-2025-25"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RetentionPolicy::bucketKey(test::utc(c.utc), c.granularity), c.key) << c.utc;
    EXPECT_EQ(RetentionPolicy::bucketKey(1'740'839'525.75, none), "n-1740839525");
    EXPECT_NE(RetentionPolicy::bucketKey(1'740'839'525, none), RetentionPolicy::bucketKey(1'740'839'526, none));
}

TEST_F(RetentionPolicyTest, TiersIncludeTheirOuterEdge) {
    const RetentionPolicy standard = RetentionPolicy::standard();
    const RetentionPolicy month = RetentionPolicy::forHorizon(Horizon::month);
    const RetentionPolicy forever = RetentionPolicy::forHorizon(Horizon::forever);
    const struct {
        const RetentionPolicy& policy;
        double age;
        int tier;
    } cases[] = {{standard, 0, 0},           {standard, day, 0},           {standard, day + 0.5, 1},
                 {standard, 7 * day, 1},     {standard, 7 * day + 0.5, 2}, {standard, 30 * day, 2},
                 {standard, 30 * day + 0.5, 3}, {standard, 365 * day, 3},  {standard, 365 * day + 0.5, 4},
                 {month, 30 * day, 2},       {month, 30 * day + 0.5, 4},   {forever, 1e12, 3}};
    for (const auto& c : cases) EXPECT_EQ(c.policy.tier(c.age), c.tier) << c.age;
}

TEST(RetentionHorizonTest, SpansAndThePoliciesTheyMake) {
    const double spans[] = {30 * day, 91 * day, 182 * day, 365 * day, INFINITY};
    const char* raws[] = {"month", "quarter", "halfYear", "year", "forever"};
    for (std::size_t i = 0; i < RetentionHorizons::all.size(); ++i) {
        const Horizon horizon = RetentionHorizons::all[i];
        EXPECT_EQ(RetentionHorizons::toString(horizon), raws[i]);
        EXPECT_EQ(RetentionHorizons::fromString(raws[i]), horizon);
        EXPECT_EQ(RetentionHorizons::span(horizon), spans[i]);
        EXPECT_EQ(RetentionHorizons::labelKey(horizon), std::string("settings.storage.keepFor.") + raws[i]);
        RetentionPolicy policy = RetentionPolicy::forHorizon(horizon);
        EXPECT_EQ(policy.weeklyWindow, spans[i]) << raws[i];
        EXPECT_EQ(policy.dailyWindow, std::min(spans[i], 30 * day)) << raws[i];
        policy.weeklyWindow = RetentionPolicy::standard().weeklyWindow;
        policy.dailyWindow = RetentionPolicy::standard().dailyWindow;
        EXPECT_EQ(policy, RetentionPolicy::standard()) << raws[i] << ": nothing else changes";
    }
    EXPECT_EQ(RetentionPolicy::forHorizon(Horizon::year), RetentionPolicy::standard());
    EXPECT_EQ(RetentionHorizons::fromString("Month"), std::nullopt);
    EXPECT_EQ(RetentionHorizons::fromString(""), std::nullopt);
}

TEST(RetentionHorizonTest, StoredRawAndUnknownReadsAsYear) {
    test::TempDirectory directory;
    PosixFileSystem fileSystem;
    test::RecordingLogger logger;
    Settings settings(directory / "settings.json", fileSystem, logger);
    EXPECT_EQ(RetentionHorizons::read(settings), Horizon::year) << "absent";
    for (Horizon horizon : RetentionHorizons::all) {
        RetentionHorizons::write(settings, horizon);
        EXPECT_EQ(settings.raw("vosklin.historyHorizon"), std::string(RetentionHorizons::toString(horizon)));
        EXPECT_EQ(RetentionHorizons::read(settings), horizon);
    }
    for (const char* stored : {R"("fortnight")", R"("Forever")", "7", "null"}) {
        directory.write("settings.json", std::string(R"({"vosklin.historyHorizon": )") + stored + "}");
        EXPECT_EQ(RetentionHorizons::read(settings), Horizon::year) << stored;
    }
}

}  // namespace
}  // namespace vosklin

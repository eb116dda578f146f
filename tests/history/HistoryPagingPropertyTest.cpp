// Reading a folder's history a page at a time, over random catalogs: ties on
// instants across files, bursts, gaps around the moment window, renames,
// deletions, files coming back, names and before-rewind fences, and page
// limits that cut through moments. On each catalog:
//   - the bounded change-list read, paged by "before", gives the unbounded
//     list row for row (sizes before each row included);
//   - FolderHistory pages, each asked for with the printed instant the page
//     before gave, concatenate to the moments of the whole history.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "catalog/VersionCatalog.h"
#include "history/FolderHistory.h"
#include "platform/Instant.h"
#include "support/TempDirectory.h"

namespace vosklin {
// Readable failures.
void PrintTo(const ChangeRow& row, std::ostream* out) {
    *out << row.fileID << "@" << row.relativePath << " at " << formatInstant(row.capturedAt) << " " << row.logicalBytes
         << " after " << (row.previousBytes ? std::to_string(*row.previousBytes) : "none");
}
namespace MomentClustering {
void PrintTo(const FileChange& change, std::ostream* out);  // in MomentClusteringTest.cpp
}  // namespace MomentClustering

namespace {

using test::TempDirectory;

const std::string folder = "F";

// A history made by random operations in time order, straight into the catalog.
void fillRandomHistory(VersionCatalog& catalog, std::mt19937& random) {
    auto below = [&](std::size_t n) { return std::size_t(random() % n); };
    // Gaps that land on both sides of the 60 s window and the 45 min session gap; 0: the same instant.
    const double gaps[] = {0, 0, 0.25, 3, 20, 59.5, 60.5, 90, 600, 2800};
    double now = 1'740'830'400.123456;
    std::vector<TrackedFile> live, deleted;
    int names = 0;
    std::vector<std::int64_t> capturedNow;  // a file is captured at most once per instant
    for (int step = 0, steps = 20 + int(below(120)); step < steps; ++step) {
        const double gap = gaps[below(std::size(gaps))];
        now += gap;
        if (gap > 0) capturedNow.clear();
        for (std::size_t n = 1 + (below(4) == 0 ? below(5) : 0); n > 0; --n) {
            const auto roll = below(20);
            if (live.empty() || roll < 4) {
                live.push_back(catalog.upsertFile(folder, "f" + std::to_string(++names) + ".txt", std::nullopt, false,
                                                  std::string("txt")));
            } else if (roll == 4 && live.size() > 1) {
                const std::size_t at = below(live.size());
                catalog.markDeleted(live[at].id, now);
                deleted.push_back(live[at]);
                live.erase(live.begin() + std::ptrdiff_t(at));
                continue;
            } else if (roll == 5) {
                auto& file = live[below(live.size())];
                file.relativePath = "r" + std::to_string(++names) + ".txt";
                catalog.recordRename(file.id, file.relativePath, std::string("txt"), now);
                continue;
            } else if (roll == 6 && !deleted.empty()) {
                const std::size_t at = below(deleted.size());
                live.push_back(catalog.trackFileForCapture(folder, deleted[at].relativePath, std::nullopt, false,
                                                           std::string("txt"), now));
                deleted.erase(deleted.begin() + std::ptrdiff_t(at));
            }
            const auto& file = roll < 4 || roll == 6 ? live.back() : live[below(live.size())];
            if (std::find(capturedNow.begin(), capturedNow.end(), file.id) != capturedNow.end()) continue;
            capturedNow.push_back(file.id);
            NewVersion version;
            version.fileID = file.id;
            version.capturedAt = now;
            version.digest = "d" + std::to_string(below(1000));
            version.logicalBytes = std::int64_t(below(5000));
            version.slot = "versions/" + std::to_string(file.id) + "/" + std::to_string(step) + "-" + std::to_string(n);
            version.payloadName = file.relativePath;
            version.method = CloneMethod::copied;
            version.isReplacement = below(10) == 0;
            if (n > 1 && below(2) == 0) version.batchID = "batch-" + std::to_string(step);
            catalog.recordVersion(version);
        }
        if (below(15) == 0)
            catalog.recordMark({folder, now, below(2) ? std::optional<std::string>("named " + std::to_string(step))
                                                      : std::nullopt,
                                below(2) ? MomentMark::Kind::named : MomentMark::Kind::beforeRewind, std::nullopt});
    }
}

// The change list paged by "before", cutting pages at instants as the history pages do.
std::vector<ChangeRow> pagedChangeList(VersionCatalog& catalog, std::int64_t limit) {
    std::vector<ChangeRow> paged;
    double before = std::numeric_limits<double>::infinity();
    for (std::int64_t want = limit;;) {
        auto page = catalog.changeListBefore(folder, before, want);
        if (std::int64_t(page.size()) < want) {
            paged.insert(paged.end(), page.begin(), page.end());
            return paged;
        }
        // The oldest instant may go on past the page: it starts the next one.
        const double oldest = page.back().capturedAt;
        std::erase_if(page, [&](const ChangeRow& row) { return row.capturedAt == oldest; });
        if (page.empty()) {
            want *= 2;
            continue;
        }
        paged.insert(paged.end(), page.begin(), page.end());
        before = page.back().capturedAt;
        want = limit;
    }
}

std::vector<MomentClustering::Moment> momentsOf(const FolderHistory& history) {
    std::vector<MomentClustering::Moment> moments;
    for (const auto& session : history.sessions) moments.insert(moments.end(), session.moments.begin(), session.moments.end());
    return moments;
}

TEST(HistoryPagingPropertyTest, PagesConcatenateToTheWhole) {
    std::int64_t cutPages = 0, lookedBack = 0;
    for (std::uint32_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        TempDirectory directory;
        VersionCatalog catalog(directory / "index.sqlite");
        fillRandomHistory(catalog, random);
        const std::int64_t limit = 1 + std::int64_t(random() % 15);
        SCOPED_TRACE("limit " + std::to_string(limit));
        EXPECT_EQ(pagedChangeList(catalog, limit), catalog.changeList(folder, 1'000'000));

        const auto whole = momentsOf(FolderHistory::load(catalog, folder));
        std::vector<MomentClustering::Moment> paged;
        std::optional<double> before;
        for (int pages = 0; pages < 1000; ++pages) {
            const auto page = FolderHistory::loadPage(catalog, folder, before, limit);
            const auto moments = momentsOf(page.history);
            paged.insert(paged.end(), moments.begin(), moments.end());
            if (!page.next) break;
            ++cutPages;
            // As the window gets it back: printed, to the microsecond.
            before = parseInstant(formatInstant(*page.next));
        }
        ASSERT_EQ(paged.size(), whole.size());
        for (std::size_t i = 0; i < whole.size(); ++i) {
            SCOPED_TRACE("moment " + std::to_string(i));
            EXPECT_EQ(paged[i].at, whole[i].at);
            EXPECT_EQ(paged[i].instantCount, whole[i].instantCount);
            EXPECT_EQ(paged[i].changes, whole[i].changes);
            EXPECT_EQ(paged[i].batchID, whole[i].batchID);
            for (const auto& change : whole[i].changes)
                lookedBack += change.kind == MomentClustering::FileChange::Kind::deleted ||
                              change.kind == MomentClustering::FileChange::Kind::renamed;
        }
    }
    // The catalogs must cut pages and hold deletions and renames, or the comparison says little.
    EXPECT_GT(cutPages, 150);
    EXPECT_GT(lookedBack, 80);
}

}  // namespace
}  // namespace vosklin

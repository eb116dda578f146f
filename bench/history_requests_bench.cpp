// The window's history requests, through the shared handlers as the daemon
// answers them (JSON built and serialised), over a catalog of rows only (no
// payloads: nothing here reads one):
//   - `comparemoments` on a folder of 100,000 files between two moments that
//     add, change, delete and rename some of them,
//   - the first `history` page (1,000 change rows) of a folder of 100,000
//     versions spread over a year, and a scroll through every page of it.
// Both folders live in one catalog under a home of its own in /tmp.

#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <unordered_set>
#include <vector>

#include "BenchSupport.h"
#include "app/ApiHandlers.h"
#include "app/AppContext.h"
#include "bridge/FolderList.h"
#include "history/FolderHistory.h"
#include "history/MomentClustering.h"
#include "platform/Instant.h"

namespace {

using namespace vosklin;
using bench::TempDir;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

double milliseconds(Clock::duration elapsed) { return std::chrono::duration<double, std::milli>(elapsed).count(); }

constexpr int wideFiles = 100'000;
constexpr int longVersions = 100'000;
constexpr int longFiles = 2'000;
constexpr double start = 1'700'000'000.0;
constexpr double wideBefore = start;
constexpr double wideAfter = start + 3600;
constexpr std::size_t batchSize = 10'000;

using vosklin::bench::Random;

NewVersion rowOf(const TrackedFile& file, double at, std::int64_t bytes, std::uint64_t sequence) {
    NewVersion version;
    version.fileID = file.id;
    version.capturedAt = at;
    char digest[65];
    std::snprintf(digest, sizeof digest, "%064" PRIx64, sequence + 1);
    version.digest = digest;
    version.logicalBytes = bytes;
    version.slot = "versions/" + std::to_string(file.id) + "/" + std::to_string(sequence);
    version.payloadName = file.relativePath.substr(file.relativePath.rfind('/') + 1);
    version.method = CloneMethod::cloned;
    return version;
}

// A home with two watched folders and their histories.
class Home {
public:
    Home() : home_("vosklin-history-requests-bench"), context_(home_.path(), logger_) {
        wide_ = addFolder("B0000000-0000-4000-8000-000000000001", "Wide");
        long_ = addFolder("B0000000-0000-4000-8000-000000000002", "Long");
        auto started = Clock::now();
        fillWide();
        fillLong();
        buildSeconds_ = milliseconds(Clock::now() - started) / 1000;
        handlers_ = std::make_unique<ApiHandlers>(context_, nullptr);
    }

    json call(const std::string& name, const json& body) { return handlers_->call(name, body); }
    const WatchedFolder& wide() const { return wide_; }
    const WatchedFolder& longFolder() const { return long_; }
    VersionCatalog& catalog() { return context_.catalog(); }
    double buildSeconds() const { return buildSeconds_; }
    std::int64_t longEvents() const { return longEvents_; }

private:
    WatchedFolder addFolder(const std::string& id, const std::string& name) {
        const std::string path = home_.file(name);
        ::mkdir(path.c_str(), 0700);
        struct stat st {};
        ::stat(path.c_str(), &st);
        WatchedFolder folder{id, path, CaptureMode::automatic, false, {}, st.st_dev, st.st_ino};
        return context_.folders().append(folder);
    }

    std::vector<TrackedFile> track(const std::string& folderID, int first, int count, double at) {
        std::vector<FileToTrack> files;
        for (int i = first; i < first + count; ++i)
            files.push_back({folderID, "dir" + std::to_string(i % 100) + "/file" + std::to_string(i) + ".txt",
                             std::nullopt, false, std::string("txt"), at});
        std::vector<TrackedFile> tracked;
        for (std::size_t from = 0; from < files.size(); from += batchSize) {
            const auto to = std::min(files.size(), from + batchSize);
            auto part = context_.catalog().trackFilesForCapture({files.begin() + std::ptrdiff_t(from),
                                                                 files.begin() + std::ptrdiff_t(to)});
            tracked.insert(tracked.end(), part.begin(), part.end());
        }
        return tracked;
    }

    void record(std::vector<NewVersion>& batch, bool force) {
        if (batch.empty() || (!force && batch.size() < batchSize)) return;
        context_.catalog().recordVersions(batch);
        batch.clear();
    }

    // 100,000 files at one moment; an hour later 1,000 edited, 500 added, 500 deleted, 500 renamed.
    void fillWide() {
        auto& catalog = context_.catalog();
        auto files = track(wide_.id, 0, wideFiles, wideBefore);
        std::vector<NewVersion> batch;
        for (const auto& file : files) {
            batch.push_back(rowOf(file, wideBefore, 1000 + file.id % 5000, sequence_++));
            record(batch, false);
        }
        record(batch, true);
        for (int i = 0; i < 1000; ++i)
            batch.push_back(rowOf(files[std::size_t(i) * 97], wideAfter, 7, sequence_++));
        for (const auto& file : track(wide_.id, wideFiles, 500, wideAfter))
            batch.push_back(rowOf(file, wideAfter, 11, sequence_++));
        record(batch, true);
        std::vector<std::int64_t> deleted;
        for (int i = 0; i < 500; ++i) deleted.push_back(files[std::size_t(i) * 97 + 13].id);
        catalog.markDeletedMany(deleted, wideAfter);
        for (int i = 0; i < 500; ++i) {
            const auto& file = files[std::size_t(i) * 97 + 41];
            catalog.recordRename(file.id, file.relativePath + ".moved", std::string("moved"), wideAfter);
        }
    }

    // 100,000 versions of 2,000 files over a year: one to three sittings on most days, saves
    // seconds to minutes apart, and now and then a file renamed.
    void fillLong() {
        auto& catalog = context_.catalog();
        auto files = track(long_.id, 0, longFiles, start);
        Random random(0x10C0);
        std::vector<NewVersion> batch;
        const int perDay = longVersions / 365 + 1;
        int made = 0;
        for (int day = 0; day < 365 && made < longVersions; ++day) {
            double now = start + day * 86400.0 + 8 * 3600 + random.uniform(0, 3600);
            for (int i = 0; i < perDay && made < longVersions; ++i, ++made) {
                const double roll = random.unit();
                now += roll < 0.6 ? random.uniform(2, 30) : roll < 0.95 ? random.uniform(30, 300) : 3600;
                auto& file = files[random.below(50) + 50 * std::size_t(day % 40)];
                if (random.unit() < 0.01) {
                    record(batch, true);  // the versions before a rename keep the old path
                    file.relativePath += "-r";
                    catalog.recordRename(file.id, file.relativePath, std::string("txt"), now - 0.5);
                    ++longEvents_;
                }
                batch.push_back(rowOf(file, double(std::int64_t(now * 1e6)) / 1e6, 100 + std::int64_t(random.below(9000)),
                                      sequence_++));
                record(batch, false);
            }
        }
        record(batch, true);
    }

    TempDir home_;
    bench::CountingLogger logger_;
    AppContext context_;
    WatchedFolder wide_, long_;
    std::unique_ptr<ApiHandlers> handlers_;
    std::uint64_t sequence_ = 0;
    double buildSeconds_ = 0;
    std::int64_t longEvents_ = 0;
};

Home& home() {
    static std::unique_ptr<Home> made;
    if (!made) {
        std::fprintf(stderr, "Building a catalog: %d files in one folder, %d versions over a year in another...\n",
                     wideFiles, longVersions);
        made = std::make_unique<Home>();
        std::fprintf(stderr, "  built in %.1f s\n", made->buildSeconds());
    }
    return *made;
}

void BM_CompareMoments(benchmark::State& state) {
    Home& h = home();
    const json body = {{"folder", h.wide().id}, {"from", formatInstant(wideBefore)}, {"to", formatInstant(wideAfter)}};
    json answer;
    for (auto _ : state) {
        answer = h.call("comparemoments", body);
        benchmark::DoNotOptimize(answer);
    }
    const auto count = [&](const char* key) { return double(answer[key].size()); };
    if (count("added") != 500 || count("changed") != 1000 || count("deleted") != 500 || count("renamed") != 500)
        state.SkipWithError(("unexpected comparison: " + answer.dump().substr(0, 200)).c_str());
    state.counters["added"] = count("added");
    state.counters["changed"] = count("changed");
    state.counters["deleted"] = count("deleted");
    state.counters["renamed"] = count("renamed");
    state.counters["answer_kB"] = double(answer.dump().size()) / 1000;
    // Its parts alone: one state of the folder, and the history read to place the instants.
    auto started = Clock::now();
    const auto files = h.catalog().stateAt(h.wide().id, wideAfter);
    state.counters["stateAt_ms"] = milliseconds(Clock::now() - started);
    started = Clock::now();
    benchmark::DoNotOptimize(FolderHistory::load(h.catalog(), h.wide().id));
    state.counters["historyLoad_ms"] = milliseconds(Clock::now() - started);
    state.SetLabel("goal: under 1 s");
}
BENCHMARK(BM_CompareMoments)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

// The worst case: from before the folder's first moment, so every file is read and listed as added.
void BM_CompareMomentsFromNothing(benchmark::State& state) {
    Home& h = home();
    const json body = {
        {"folder", h.wide().id}, {"from", formatInstant(wideBefore - 86400)}, {"to", formatInstant(wideAfter)}};
    json answer;
    for (auto _ : state) {
        answer = h.call("comparemoments", body);
        benchmark::DoNotOptimize(answer);
    }
    if (answer["added"].size() != wideFiles + 500 - 500)
        state.SkipWithError(("unexpected comparison: " + answer.dump().substr(0, 200)).c_str());
    state.counters["added"] = double(answer["added"].size());
    state.counters["answer_MB"] = double(answer.dump().size()) / 1e6;
}
BENCHMARK(BM_CompareMomentsFromNothing)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

std::size_t momentsOf(const json& page) {
    std::size_t moments = 0;
    for (const auto& session : page["sessions"]) moments += session["moments"].size();
    return moments;
}

void BM_HistoryFirstPage(benchmark::State& state) {
    Home& h = home();
    const json body = {{"folder", h.longFolder().id}, {"limit", 1000}};
    json page;
    for (auto _ : state) {
        page = h.call("history", body);
        benchmark::DoNotOptimize(page);
    }
    state.counters["moments"] = double(momentsOf(page));
    state.counters["answer_kB"] = double(page.dump().size()) / 1000;
    auto started = Clock::now();
    benchmark::DoNotOptimize(h.catalog().changeList(h.longFolder().id, 1000));
    state.counters["changeList_ms"] = milliseconds(Clock::now() - started);
    started = Clock::now();
    benchmark::DoNotOptimize(h.catalog().changeListBefore(h.longFolder().id, 1e300, 1000));
    state.counters["changeListBefore_ms"] = milliseconds(Clock::now() - started);
}
BENCHMARK(BM_HistoryFirstPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_HistoryScroll(benchmark::State& state) {
    Home& h = home();
    // What the pages must add up to: every moment of the whole history.
    const auto instants = h.catalog().changeInstants(h.longFolder().id);
    const auto expected = MomentClustering::groupInstants(instants, {}).size();
    std::size_t pages = 0, moments = 0, bytes = 0;
    double slowest = 0;
    for (auto _ : state) {
        pages = moments = bytes = 0;
        slowest = 0;
        json body = {{"folder", h.longFolder().id}, {"limit", 1000}};
        for (;;) {
            const auto started = Clock::now();
            const json page = h.call("history", body);
            const std::string text = page.dump();
            slowest = std::max(slowest, milliseconds(Clock::now() - started));
            ++pages;
            moments += momentsOf(page);
            bytes += text.size();
            if (page["next"].is_null()) break;
            body["before"] = page["next"];
        }
    }
    if (moments != expected)
        state.SkipWithError(("pages hold " + std::to_string(moments) + " moments, the history " +
                             std::to_string(expected)).c_str());
    state.counters["versions"] = double(h.catalog().folderVersionCount(h.longFolder().id));
    state.counters["renames"] = double(h.longEvents());
    state.counters["pages"] = double(pages);
    state.counters["moments"] = double(moments);
    state.counters["slowest_page_ms"] = slowest;
    state.counters["answers_MB"] = double(bytes) / 1e6;
}
BENCHMARK(BM_HistoryScroll)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();

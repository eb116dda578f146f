// Catalog throughput on real SQLite files under /tmp:
//   - recording 100,000 versions over 10,000 files into a fresh catalog,
//   - the state of a 10,000-file folder at an instant in the middle of its history,
//   - the newest 5,000 rows of the change list of a folder with 100,000 versions.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "catalog/VersionCatalog.h"

namespace {

using vosklin::CaptureSource;
using vosklin::CloneMethod;
using vosklin::NewVersion;
using vosklin::VersionCatalog;
using vosklin::bench::TempDir;
using Clock = std::chrono::steady_clock;

constexpr int fileCount = 10'000;
constexpr int versionsPerFile = 10;
constexpr std::int64_t totalVersions = std::int64_t(fileCount) * versionsPerFile;
constexpr std::int64_t changeListRows = 5'000;
const std::string folderID = "bench-folder";
// An ordinary recent epoch time; captures are one second apart from here on.
constexpr double historyStart = 1'750'000'000.0;

double seconds(Clock::duration elapsed) { return std::chrono::duration<double>(elapsed).count(); }

std::string relativePath(int file) {
    char path[64];
    std::snprintf(path, sizeof path, "dir%03d/file%05d.txt", file % 100, file);
    return path;
}

// What a capture would hand over; the digest and slot only need to be distinct
// and of the real shape, nobody reads a payload here.
NewVersion newVersion(std::int64_t fileID, std::int64_t sequence, double capturedAt) {
    vosklin::bench::DeterministicBytes bytes(std::uint64_t(sequence) + 1);
    char digest[65];
    std::snprintf(digest, sizeof digest, "%016" PRIx64 "%016" PRIx64 "%016" PRIx64 "%016" PRIx64, bytes.next(),
                  bytes.next(), bytes.next(), bytes.next());
    char slot[64];
    std::snprintf(slot, sizeof slot, "versions/%02" PRIx64 "/%02" PRIx64 "/%012" PRId64, std::uint64_t(fileID) & 0xff,
                  (std::uint64_t(fileID) >> 8) & 0xff, sequence);

    NewVersion version;
    version.fileID = fileID;
    version.capturedAt = capturedAt;
    version.digest = digest;
    version.logicalBytes = 1'000 + std::int64_t(bytes.next() % 100'000);
    version.slot = slot;
    version.payloadName = "payload.txt";
    version.method = CloneMethod::cloned;
    version.source = CaptureSource::watcher;
    return version;
}

std::vector<std::int64_t> trackFiles(VersionCatalog& catalog) {
    std::vector<std::int64_t> ids;
    ids.reserve(fileCount);
    for (int file = 0; file < fileCount; ++file)
        ids.push_back(catalog.upsertFile(folderID, relativePath(file), std::uint64_t(100'000 + file), false, "txt").id);
    return ids;
}

// --- Recording ----------------------------------------------------------------

// One recordVersion call per version, each its own transaction, as captures
// arrive; round by round over all files, capture times rising. Making up the
// row (a few snprintf calls) is inside the timing but is noise next to SQLite.
void BM_RecordVersions(benchmark::State& state) {
    double filesSeconds = 0;
    double versionsSeconds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto dir = std::make_unique<TempDir>("vosklin-catalog-bench");
        auto catalog = std::make_unique<VersionCatalog>(dir->file("index.sqlite"));
        state.ResumeTiming();

        auto started = Clock::now();
        std::vector<std::int64_t> ids = trackFiles(*catalog);
        auto filesDone = Clock::now();
        std::int64_t sequence = 0;
        for (int round = 0; round < versionsPerFile; ++round) {
            for (int file = 0; file < fileCount; ++file, ++sequence) {
                auto stored = catalog->recordVersion(newVersion(ids[std::size_t(file)], sequence,
                                                                historyStart + double(sequence)));
                benchmark::DoNotOptimize(stored.id);
            }
        }
        auto versionsDone = Clock::now();
        filesSeconds += seconds(filesDone - started);
        versionsSeconds += seconds(versionsDone - filesDone);

        state.PauseTiming();
        if (catalog->totals().versions != totalVersions) state.SkipWithError("the catalog lost versions");
        catalog.reset();
        dir.reset();
        state.ResumeTiming();
    }
    auto iterations = double(state.iterations());
    state.counters["files"] = fileCount;
    state.counters["versions"] = double(totalVersions);
    state.counters["upsert_files_per_s"] = double(fileCount) * iterations / filesSeconds;
    state.counters["versions_per_s"] = double(totalVersions) * iterations / versionsSeconds;
    state.counters["total_s"] = (filesSeconds + versionsSeconds) / iterations;
}
BENCHMARK(BM_RecordVersions)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// --- Reading a populated history --------------------------------------------

// One folder: 10,000 files with 10 versions each (100,000 versions), built
// once and shared by the read benchmarks. A few files were renamed, and some
// were deleted and came back, so the event lookups in the queries have rows
// to look at, as they would in a real folder.
class PopulatedFolder {
public:
    PopulatedFolder() : dir_("vosklin-catalog-bench"), catalog_(dir_.file("index.sqlite")) {
        auto started = Clock::now();
        std::vector<std::int64_t> ids = trackFiles(catalog_);
        std::vector<std::string> paths;
        for (int file = 0; file < fileCount; ++file) paths.push_back(relativePath(file));

        std::int64_t sequence = 0;
        for (int round = 0; round < versionsPerFile; ++round) {
            for (int file = 0; file < fileCount; ++file, ++sequence) {
                auto id = ids[std::size_t(file)];
                double at = historyStart + double(sequence);
                auto& path = paths[std::size_t(file)];
                if (round == 8 && file % 53 == 0) {
                    catalog_.trackFileForCapture(folderID, path, std::uint64_t(100'000 + file), false, "txt", at);
                }
                // insertVersion rather than recordVersion: the same rows, built faster,
                // and last_digest plays no part in what is measured here.
                catalog_.insertVersion(newVersion(id, sequence, at));
                // Just after the capture, so it lands between this round and the next.
                if (round == 3 && file % 37 == 0) {
                    path.insert(path.size() - 4, "-renamed");
                    catalog_.recordRename(id, path, "txt", at + 0.5);
                }
                if (round == 7 && file % 53 == 0) catalog_.markDeleted(id, at + 0.5);
            }
        }
        buildSeconds_ = seconds(Clock::now() - started);
    }

    VersionCatalog& catalog() { return catalog_; }
    double buildSeconds() const { return buildSeconds_; }
    // Half-way through the history: every file has five versions by then.
    static double middle() { return historyStart + double(totalVersions) / 2 - 0.25; }

private:
    TempDir dir_;
    VersionCatalog catalog_;
    double buildSeconds_ = 0;
};

std::unique_ptr<PopulatedFolder> populated;

PopulatedFolder& populatedFolder() {
    if (!populated) {
        std::fprintf(stderr, "Building a folder with %d files and %" PRId64 " versions...\n", fileCount,
                     totalVersions);
        populated = std::make_unique<PopulatedFolder>();
        std::fprintf(stderr, "  built in %.1f s\n", populated->buildSeconds());
    }
    return *populated;
}

void BM_StateAt(benchmark::State& state) {
    auto& folder = populatedFolder();
    std::size_t rows = 0;
    for (auto _ : state) {
        auto states = folder.catalog().stateAt(folderID, PopulatedFolder::middle());
        rows = states.size();
        benchmark::DoNotOptimize(states.data());
    }
    // Nothing is deleted at the middle instant, so every file must be there.
    if (rows != std::size_t(fileCount)) state.SkipWithError("stateAt returned the wrong number of files");
    state.counters["files"] = double(rows);
}
BENCHMARK(BM_StateAt)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

void BM_ChangeList(benchmark::State& state) {
    auto& folder = populatedFolder();
    std::size_t rows = 0;
    for (auto _ : state) {
        auto changes = folder.catalog().changeList(folderID, changeListRows);
        rows = changes.size();
        benchmark::DoNotOptimize(changes.data());
    }
    if (rows != std::size_t(changeListRows)) state.SkipWithError("changeList returned the wrong number of rows");
    state.counters["rows"] = double(rows);
    state.counters["folder_versions"] = double(totalVersions);
}
BENCHMARK(BM_ChangeList)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    int status = 0;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "catalog_bench: %s\n", error.what());
        status = 1;
    }
    benchmark::Shutdown();
    // Closes the shared catalog and removes its folder.
    populated.reset();
    return status;
}

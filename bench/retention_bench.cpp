// Retention on a real store (slot directories, payloads, sidecars and an
// index.sqlite) in a fresh folder under /tmp, or $VOSKLIN_BENCH_DIR:
//   - one whole-store prune pass over 1,000,000 versions (10,000 files x 100),
//   - the orphan sweep over 1,000,000 slots plus 1% orphans,
//   - how long a capture takes, idle and while a prune pass runs.
//
// --versions=N (a multiple of 100, default 1,000,000) sets the store's size.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "bridge/FolderList.h"
#include "capture/CaptureService.h"
#include "capture/PayloadVerifier.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "platform/PosixFileSystem.h"
#include "platform/Settings.h"
#include "retention/PruneAllPass.h"
#include "retention/RetentionHorizon.h"
#include "retention/StoreSweeper.h"
#include "store/PayloadCloner.h"
#include "store/PayloadDigest.h"
#include "store/PayloadWriter.h"
#include "store/VersionSidecar.h"
#include "store/VersionStoreLayout.h"

namespace {

using namespace vosklin;
using bench::DeterministicBytes;
using bench::CountingLogger;
using bench::TempDir;
using bench::fileSystemName;
using bench::scratchBase;
using Steady = std::chrono::steady_clock;

constexpr int versionsPerFile = 100;
constexpr double day = 86'400;
// A day and two years: captures spread over [now - 730 days, now - 1 minute].
constexpr std::int64_t oldestAge = 730 * 86'400;
const std::string folderID = "6F1C2A4E-0B7D-4C55-9E3A-2D8B1F0C7A91";

std::int64_t versionCount = 1'000'000;  // --versions=N
int fileCount() { return int(versionCount / versionsPerFile); }

double seconds(Steady::duration elapsed) { return std::chrono::duration<double>(elapsed).count(); }

// --- Memory -------------------------------------------------------------------

std::int64_t statusKiB(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::size_t length = std::strlen(key);
    while (std::getline(status, line))
        if (line.compare(0, length, key) == 0 && line.size() > length && line[length] == ':')
            return std::strtoll(line.c_str() + length + 1, nullptr, 10);
    return -1;
}

// The process's peak resident memory over one stretch of work. Writing "5" to
// /proc/self/clear_refs resets VmHWM to the current VmRSS, so the peak read at
// the end belongs to that stretch alone; where the kernel refuses, it falls back
// to getrusage's ru_maxrss, the peak of the whole run so far.
class PeakMemory {
public:
    PeakMemory() : rssBeforeKiB_(statusKiB("VmRSS")) {
        std::ofstream clear("/proc/self/clear_refs");
        clear << "5";
        clear.flush();
        reset_ = clear.good() && statusKiB("VmHWM") <= rssBeforeKiB_ + 1024;
    }
    void stop() {
        if (reset_) {
            peakKiB_ = statusKiB("VmHWM");
        } else {
            struct rusage usage {};
            ::getrusage(RUSAGE_SELF, &usage);
            peakKiB_ = usage.ru_maxrss;
        }
    }
    void report(benchmark::State& state) const {
        state.counters["rss_before_MiB"] = double(rssBeforeKiB_) / 1024;
        state.counters["peak_rss_MiB"] = double(peakKiB_) / 1024;
        state.counters["peak_is_VmHWM"] = reset_ ? 1 : 0;  // 0: ru_maxrss of the whole run
    }

private:
    std::int64_t rssBeforeKiB_ = 0;
    std::int64_t peakKiB_ = 0;
    bool reset_ = false;
};

// CPU seconds (user, system) the whole process has used so far: a pass's own
// thread is the only busy one while the benchmark thread waits for it.
std::pair<double, double> processCpuSeconds() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    auto toSeconds = [](const timeval& value) { return double(value.tv_sec) + double(value.tv_usec) / 1e6; };
    return {toSeconds(usage.ru_utime), toSeconds(usage.ru_stime)};
}

void writeSmallFile(const std::string& path, const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "create " + path);
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    const int error = errno;
    ::close(fd);
    if (written != ssize_t(bytes.size())) throw std::system_error(error, std::generic_category(), "write " + path);
}

// Directory names in `path`, "." and ".." left out.
std::vector<std::string> subdirectoryNames(const std::string& path) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) return names;
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_type != DT_DIR) continue;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names.emplace_back(entry->d_name);
    }
    ::closedir(dir);
    return names;
}

// --- The store ----------------------------------------------------------------

// 10,000 files (one per 100 versions asked for) with 100 versions each in one
// watched folder. Each file's capture instants are its own, drawn once from a
// seed: 10 in the last day, 20 between a day and a week, 20 between a week and
// 30 days, 50 between 30 days and two years, whole seconds, distinct per file.
// So every tier of the policy has work and about a quarter of the versions are past a
// year's horizon. The folder's own files are not on disk; a pass never looks.
class RetentionStore {
public:
    RetentionStore()
        : scratch_("vosklin-retention-bench", scratchBase("/tmp")),
          layout_(scratch_.file("store"), fileSystem_),
          folders_(scratch_.file("folders.json"), fileSystem_),
          settings_(scratch_.file("settings.json"), fileSystem_, logger_),
          treeDirectory_(scratch_.file("tree")),
          now_(std::floor(SystemClock().now())) {
        std::fprintf(stderr, "Store under %s (%s); building %" PRId64 " versions over %d files...\n",
                     scratch_.path().c_str(), fileSystemName(scratch_.path()).c_str(), versionCount, fileCount());
        const auto started = Steady::now();
        layout_.prepareDirectories();
        makeDirectories(fileSystem_, treeDirectory_, 0700);
        catalog_ = std::make_unique<VersionCatalog>(layout_.databasePath());
        WatchedFolder folder;
        folder.id = folderID;
        folder.path = treeDirectory_;
        folder.budget.kind = FolderBudget::Kind::automatic;
        folders_.append(folder);
        RetentionHorizons::write(settings_, RetentionHorizon::year);

        std::vector<FileToTrack> files;
        for (int file = 0; file < fileCount(); ++file)
            files.push_back({folderID, relativePath(file), std::uint64_t(1'000'000 + file), false, "txt",
                             now_ - double(oldestAge)});
        for (const auto& tracked : catalog_->trackFilesForCapture(files)) fileIDs_.push_back(tracked.id);

        // Rows go in in time order across all files, as captures would have put them.
        struct Planned {
            std::int64_t age;
            std::int32_t file;
        };
        std::vector<Planned> plan;
        plan.reserve(std::size_t(versionCount));
        for (int file = 0; file < fileCount(); ++file)
            for (std::int64_t age : ages(file)) plan.push_back({age, file});
        std::sort(plan.begin(), plan.end(),
                  [](const Planned& a, const Planned& b) { return a.age != b.age ? a.age > b.age : a.file < b.file; });
        std::vector<NewVersion> batch;
        for (std::size_t i = 0; i < plan.size(); ++i) {
            auto diskStarted = Steady::now();
            batch.push_back(createVersion(plan[i].file, plan[i].age));
            diskSeconds_ += seconds(Steady::now() - diskStarted);
            if (batch.size() == batchSize || i + 1 == plan.size()) flush(batch);
        }
        const auto totals = catalog_->totals();
        if (totals.versions != versionCount) throw std::runtime_error("the catalog did not take every version");
        std::fprintf(stderr,
                     "  built in %.1f s: slots, payloads and sidecars %.1f s, catalog %.1f s "
                     "(recordVersions, %" PRId64 " transactions of up to %zu)\n",
                     seconds(Steady::now() - started), diskSeconds_, catalogSeconds_, transactions_, batchSize);
    }

    VersionCatalog& catalog() { return *catalog_; }
    VersionStoreLayout& layout() { return layout_; }
    FolderList& folders() { return folders_; }
    Settings& settings() { return settings_; }
    PosixFileSystem& fileSystem() { return fileSystem_; }
    CountingLogger& logger() { return logger_; }
    const std::string& treeDirectory() const { return treeDirectory_; }
    double now() const { return now_; }

    // A pass removed versions: the next benchmark that needs them all puts them back.
    void markThinned() { full_ = false; }

    // Puts back every planned version a pass removed (new slots and rows, in the
    // same places and with the same instants), so the next benchmark starts
    // from the full store again.
    void refill() {
        if (full_) return;
        const auto started = Steady::now();
        std::vector<NewVersion> batch;
        std::int64_t added = 0;
        for (int file = 0; file < fileCount(); ++file) {
            const auto slots = catalog_->slotsOfFile(fileIDs_[std::size_t(file)]);
            const std::unordered_set<std::string> present(slots.begin(), slots.end());
            for (std::int64_t age : ages(file)) {
                if (present.count(slotDirectoryOf(file) + "/" + VersionStoreLayout::stamp(now_ - double(age))))
                    continue;
                batch.push_back(createVersion(file, age));
                ++added;
                if (batch.size() == batchSize) flush(batch);
            }
        }
        flush(batch);
        if (catalog_->totals().versions != versionCount) throw std::runtime_error("refilling the store failed");
        full_ = true;
        std::fprintf(stderr, "Put back %" PRId64 " versions in %.1f s\n", added, seconds(Steady::now() - started));
    }

    // One orphan (a slot with a payload and a sidecar and no row) in every file's
    // directory, older than anything the catalog has there; returns how many.
    std::int64_t plantOrphans() {
        for (int file = 0; file < fileCount(); ++file) {
            auto slot = layout_.makeSlot(fileIDs_[std::size_t(file)], now_ - double(oldestAge) - day - file);
            writeSmallFile(slot.directory + "/" + payloadName(file), "orphan\n");
            writeSmallFile(slot.directory + "/" + std::string(VersionSidecar::fileName), "{}\n");
        }
        return fileCount();
    }

    // Every slot on disk, as the catalog names them, sorted.
    std::vector<std::string> slotsOnDisk() const {
        std::vector<std::string> slots;
        const std::string versions = layout_.versionsDirectory();
        for (const auto& fanOut : subdirectoryNames(versions))
            for (const auto& file : subdirectoryNames(versions + "/" + fanOut))
                for (const auto& stamp : subdirectoryNames(versions + "/" + fanOut + "/" + file))
                    slots.push_back("versions/" + fanOut + "/" + file + "/" + stamp);
        std::sort(slots.begin(), slots.end());
        return slots;
    }

    // Empty when the disk holds exactly the slots the catalog names, and
    // `expectedVersions` of them; otherwise what is wrong.
    std::string checkDiskMatchesCatalog(std::int64_t expectedVersions) {
        auto named = catalog_->allSlots();
        std::sort(named.begin(), named.end());
        const auto onDisk = slotsOnDisk();
        if (std::int64_t(named.size()) != expectedVersions)
            return "the catalog has " + std::to_string(named.size()) + " versions, expected " +
                   std::to_string(expectedVersions);
        if (named != onDisk) {
            std::vector<std::string> missing, extra;
            std::set_difference(named.begin(), named.end(), onDisk.begin(), onDisk.end(), std::back_inserter(missing));
            std::set_difference(onDisk.begin(), onDisk.end(), named.begin(), named.end(), std::back_inserter(extra));
            return std::to_string(missing.size()) + " slots the catalog names are missing on disk, " +
                   std::to_string(extra.size()) + " slots on disk are not in the catalog";
        }
        return {};
    }

private:
    static constexpr std::size_t batchSize = 100'000;

    static std::string relativePath(int file) {
        char path[64];
        std::snprintf(path, sizeof path, "dir%03d/file%05d.txt", file % 100, file);
        return path;
    }
    static std::string payloadName(int file) {
        char name[32];
        std::snprintf(name, sizeof name, "file%05d.txt", file);
        return name;
    }
    std::string slotDirectoryOf(int file) const {
        const std::int64_t id = fileIDs_[std::size_t(file)];
        char lowByte[3];
        std::snprintf(lowByte, sizeof lowByte, "%02x", unsigned(id & 0xFF));
        return "versions/" + std::string(lowByte) + "/" + std::to_string(id);
    }

    // The file's capture ages in seconds, distinct, from its own seed.
    static std::vector<std::int64_t> ages(int file) {
        struct Band {
            int count;
            std::int64_t from, to;
        };
        static constexpr Band bands[] = {{10, 60, 86'400},
                                         {20, 86'400, 7 * 86'400},
                                         {20, 7 * 86'400, 30 * 86'400},
                                         {50, 30 * 86'400, oldestAge}};
        std::mt19937_64 random(std::uint64_t(file) * 7919 + 17);
        std::unordered_set<std::int64_t> seen;
        std::vector<std::int64_t> result;
        for (const Band& band : bands) {
            std::uniform_int_distribution<std::int64_t> draw(band.from, band.to - 1);
            for (int i = 0; i < band.count;) {
                const std::int64_t age = draw(random);
                if (seen.insert(age).second) {
                    result.push_back(age);
                    ++i;
                }
            }
        }
        return result;
    }

    // The version's slot, made by the layout as a capture makes it, with a
    // payload of a few bytes and its sidecar.
    NewVersion createVersion(int file, std::int64_t age) {
        const double at = now_ - double(age);
        const std::int64_t id = fileIDs_[std::size_t(file)];
        DeterministicBytes bytes(std::uint64_t(id) * 1'000'003 + std::uint64_t(age));
        char digest[65];
        std::snprintf(digest, sizeof digest, "%016" PRIx64 "%016" PRIx64 "%016" PRIx64 "%016" PRIx64, bytes.next(),
                      bytes.next(), bytes.next(), bytes.next());
        const std::string content = "version " + std::to_string(age) + "\n";

        auto slot = layout_.makeSlot(id, at);
        writeSmallFile(slot.directory + "/" + payloadName(file), content);
        VersionSidecar sidecar;
        sidecar.originalPath = treeDirectory_ + "/" + relativePath(file);
        sidecar.capturedAt = at;
        sidecar.digest = digest;
        sidecar.logicalBytes = std::int64_t(content.size());
        sidecar.method = CloneMethod::copied;
        sidecar.payloadName = payloadName(file);
        writeSmallFile(slot.directory + "/" + std::string(VersionSidecar::fileName), sidecar.encode());

        NewVersion version;
        version.fileID = id;
        version.capturedAt = at;
        version.digest = digest;
        version.logicalBytes = sidecar.logicalBytes;
        version.slot = slot.relativePath;
        version.payloadName = sidecar.payloadName;
        version.method = CloneMethod::copied;
        version.source = CaptureSource::watcher;
        return version;
    }

    void flush(std::vector<NewVersion>& batch) {
        if (batch.empty()) return;
        const auto started = Steady::now();
        catalog_->recordVersions(batch);
        catalogSeconds_ += seconds(Steady::now() - started);
        ++transactions_;
        batch.clear();
    }

    TempDir scratch_;
    PosixFileSystem fileSystem_;
    CountingLogger logger_;
    VersionStoreLayout layout_;
    std::unique_ptr<VersionCatalog> catalog_;
    FolderList folders_;
    Settings settings_;
    std::string treeDirectory_;
    double now_;
    std::vector<std::int64_t> fileIDs_;
    bool full_ = true;
    double diskSeconds_ = 0;
    double catalogSeconds_ = 0;
    std::int64_t transactions_ = 0;
};

std::unique_ptr<RetentionStore> shared;

RetentionStore& fullStore() {
    if (!shared) shared = std::make_unique<RetentionStore>();
    shared->refill();
    return *shared;
}

bool failed(benchmark::State& state, RetentionStore& store, const std::string& problem) {
    std::string message = problem;
    if (message.empty() && store.logger().errors() != 0)
        message = std::to_string(store.logger().errors()) + " errors logged, the first: " + store.logger().firstError();
    if (message.empty()) return false;
    state.SkipWithError(message.c_str());
    return true;
}

// --- The prune pass -----------------------------------------------------------

// One PruneAllPass::run over the whole store: the folder's thinning under the
// year horizon with the automatic budget, then the orphan sweep (which finds
// nothing to take here). Timed once, as the daemon runs it.
void BM_PruneAllPass(benchmark::State& state) {
    auto& store = fullStore();
    PruneAllPass pass(store.catalog(), store.layout(), store.folders(), store.settings(), store.fileSystem(),
                      store.logger());
    PruneAllReport report;
    double passSeconds = 0;
    PeakMemory memory;
    const auto cpuBefore = processCpuSeconds();
    for (auto _ : state) {
        const auto started = Steady::now();
        report = pass.run(store.now());
        passSeconds = seconds(Steady::now() - started);
    }
    const auto cpuAfter = processCpuSeconds();
    memory.stop();
    store.markThinned();

    std::string problem;
    if (!report.ran || report.folders.size() != 1) problem = "the pass did not run over the one folder";
    else if (report.folders[0].failure) problem = "the pass failed: " + *report.folders[0].failure;
    else if (report.removedCount == 0) problem = "the pass removed nothing";
    else problem = store.checkDiskMatchesCatalog(versionCount - report.removedCount);
    if (failed(state, store, problem)) return;

    state.counters["versions_before"] = double(versionCount);
    state.counters["removed"] = double(report.removedCount);
    state.counters["pass_s"] = passSeconds;
    state.counters["removed_per_s"] = double(report.removedCount) / passSeconds;
    state.counters["cpu_user_s"] = cpuAfter.first - cpuBefore.first;
    state.counters["cpu_sys_s"] = cpuAfter.second - cpuBefore.second;
    state.counters["sweep_orphans"] = double(report.sweep.slotsRemoved);
    state.counters["budget_GiB"] = double(report.folders[0].budgetBytes.value_or(0)) / double(1 << 30);
    memory.report(state);
}
BENCHMARK(BM_PruneAllPass)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// --- The orphan sweep ---------------------------------------------------------

// StoreSweeper::sweep over the full store with one orphan per file directory
// (1% of the slots) planted beforehand.
void BM_OrphanSweep(benchmark::State& state) {
    auto& store = fullStore();
    const std::int64_t planted = store.plantOrphans();
    StoreSweeper sweeper(store.catalog(), store.layout(), store.fileSystem(), store.logger());
    SweepReport report;
    PeakMemory memory;
    const auto cpuBefore = processCpuSeconds();
    for (auto _ : state) report = sweeper.sweep();
    const auto cpuAfter = processCpuSeconds();
    memory.stop();

    std::string problem;
    if (report.slotsRemoved != planted)
        problem = "the sweep removed " + std::to_string(report.slotsRemoved) + " orphans of " + std::to_string(planted);
    else
        problem = store.checkDiskMatchesCatalog(versionCount);
    if (failed(state, store, problem)) return;

    state.counters["slots"] = double(versionCount + planted);
    state.counters["orphans_removed"] = double(report.slotsRemoved);
    state.counters["slots_busy"] = double(report.slotsBusy);
    state.counters["cpu_user_s"] = cpuAfter.first - cpuBefore.first;
    state.counters["cpu_sys_s"] = cpuAfter.second - cpuBefore.second;
    memory.report(state);
}
BENCHMARK(BM_OrphanSweep)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// --- Capture latency ------------------------------------------------------------

double percentile(std::vector<double> samples, double fraction) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const auto rank = std::size_t(std::ceil(fraction * double(samples.size())));
    return samples[std::max<std::size_t>(rank, 1) - 1];
}

struct LatencyFigures {
    double idleP50 = 0, idleP99 = 0, pruningP50 = 0, pruningP99 = 0;
    std::size_t idleSamples = 0, pruningSamples = 0;
    double passSeconds = 0;
    std::int64_t removed = 0;
};
std::optional<LatencyFigures> latencyFigures;

// A small file in the store's watched folder, rewritten with new bytes and
// captured through CaptureService::capture (a new slot, its payload, digest
// and sidecar, syncfs of the store's file system, the catalog rows), one
// capture every 20 ms: first with nothing else going on, then while a
// PruneAllPass thins the full store on another thread. Only the capture call
// is timed, not the rewrite.
void BM_CaptureLatency(benchmark::State& state) {
    constexpr int idleCaptures = 300;
    constexpr auto pause = std::chrono::milliseconds(20);
    auto& store = fullStore();
    auto& fileSystem = store.fileSystem();
    SystemClock clock;
    PayloadCloner cloner(fileSystem, clock, store.logger());
    PayloadDigest digest(fileSystem);
    PayloadWriter writer(store.layout(), cloner, digest);
    PayloadVerifier verifier(fileSystem);
    CaptureService service(store.catalog(), store.layout(), writer, digest, verifier, fileSystem);
    PruneAllPass pass(store.catalog(), store.layout(), store.folders(), store.settings(), fileSystem, store.logger());

    makeDirectories(fileSystem, store.treeDirectory() + "/live", 0700);
    CaptureRequest request;
    request.folderID = folderID;
    request.folderRoot = store.treeDirectory();
    request.unit = store.treeDirectory() + "/live/notes.txt";
    DeterministicBytes bytes(42);
    std::int64_t captures = 0;
    std::string problem;
    auto captureOnce = [&]() -> double {
        {
            std::ofstream file(request.unit, std::ios::binary | std::ios::trunc);
            file << "notes, save " << ++captures << ": " << bytes.next() << " " << bytes.next() << "\n";
        }
        const auto started = Steady::now();
        const auto outcome = service.capture(request, clock.now());
        const double elapsed = seconds(Steady::now() - started) * 1000;
        if (outcome.kind != CaptureOutcome::Kind::stored && problem.empty())
            problem = "a capture of new content did not store a version";
        return elapsed;
    };

    LatencyFigures figures;
    for (auto _ : state) {
        for (int i = 0; i < 5; ++i) captureOnce();  // the file's row, the caches
        std::vector<double> idle;
        for (int i = 0; i < idleCaptures; ++i) {
            idle.push_back(captureOnce());
            std::this_thread::sleep_for(pause);
        }

        std::vector<double> pruning;
        std::atomic<bool> passDone{false};
        PruneAllReport report;
        std::exception_ptr passFailure;
        const auto passStarted = Steady::now();
        std::thread passThread([&] {
            try {
                report = pass.run(store.now());
            } catch (...) {
                passFailure = std::current_exception();
            }
            passDone = true;
        });
        while (!passDone) {
            pruning.push_back(captureOnce());
            std::this_thread::sleep_for(pause);
        }
        passThread.join();
        figures.passSeconds = seconds(Steady::now() - passStarted);
        store.markThinned();
        if (passFailure) std::rethrow_exception(passFailure);
        if (!report.ran || report.removedCount == 0) problem = "the pass beside the captures removed nothing";
        figures.removed = report.removedCount;

        figures.idleSamples = idle.size();
        figures.pruningSamples = pruning.size();
        figures.idleP50 = percentile(idle, 0.5);
        figures.idleP99 = percentile(idle, 0.99);
        figures.pruningP50 = percentile(pruning, 0.5);
        figures.pruningP99 = percentile(pruning, 0.99);
    }
    if (failed(state, store, problem)) return;
    latencyFigures = figures;
    state.counters["idle_p50_ms"] = figures.idleP50;
    state.counters["idle_p99_ms"] = figures.idleP99;
    state.counters["pruning_p50_ms"] = figures.pruningP50;
    state.counters["pruning_p99_ms"] = figures.pruningP99;
    state.counters["p99_diff_ms"] = figures.pruningP99 - figures.idleP99;
    state.counters["idle_n"] = double(figures.idleSamples);
    state.counters["pruning_n"] = double(figures.pruningSamples);
    state.counters["pass_s"] = figures.passSeconds;
}
BENCHMARK(BM_CaptureLatency)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// Takes --versions=N out of the arguments before Google Benchmark reads them.
bool takeOwnFlags(int& argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--versions=", 0) == 0) {
            char* end = nullptr;
            const long long value = std::strtoll(argument.c_str() + 11, &end, 10);
            if (*end != '\0' || value < versionsPerFile || value % versionsPerFile != 0) {
                std::fprintf(stderr, "retention_bench: --versions takes a positive multiple of %d\n", versionsPerFile);
                return false;
            }
            versionCount = value;
        } else {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    argv[argc] = nullptr;
    return true;
}

// Each version takes three inodes (its slot, payload and sidecar).
bool enoughInodes() {
    struct statvfs info {};
    if (::statvfs(scratchBase("/tmp").c_str(), &info) != 0) return true;
    const auto needed = std::uint64_t(versionCount) * 31 / 10 + 100'000;
    if (info.f_favail >= needed) return true;
    std::fprintf(stderr, "retention_bench: %s has %llu free inodes, the store needs about %llu; set VOSKLIN_BENCH_DIR\n",
                 scratchBase("/tmp").c_str(), static_cast<unsigned long long>(info.f_favail),
                 static_cast<unsigned long long>(needed));
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (!takeOwnFlags(argc, argv)) return 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!enoughInodes()) return 1;
    int status = 0;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "retention_bench: %s\n", error.what());
        status = 1;
    }
    benchmark::Shutdown();
    if (latencyFigures) {
        const auto& f = *latencyFigures;
        std::printf(
            "capture latency: idle p50 %.1f ms p99 %.1f ms (%zu captures); while pruning p50 %.1f ms p99 %.1f ms "
            "(%zu captures, pass %.1f s, %" PRId64 " removed); p99 difference %+.1f ms (goal: within 100 ms)\n",
            f.idleP50, f.idleP99, f.idleSamples, f.pruningP50, f.pruningP99, f.pruningSamples, f.passSeconds,
            f.removed, f.pruningP99 - f.idleP99);
    }
    if (shared) {
        const auto started = Steady::now();
        shared.reset();
        std::fprintf(stderr, "Removed the store in %.1f s\n", seconds(Steady::now() - started));
    }
    return status;
}

// Reading history and comparing text:
//   - clustering a folder's newest 5,000 change rows and its 5,000 file events
//     into moments and sessions, in memory,
//   - FolderHistory::load of one folder (100,000 versions) from a catalog of
//     1,000,000 versions in ten folders, on a real SQLite file under /tmp,
//   - TextDiff::compare of two 50,000-line texts differing in a 4,000-line
//     block, beside `git diff --no-index` and GNU diff on the same files.
//
// Folder histories are made up by a small simulation (work sessions on most
// days, saves seconds to minutes apart, bursts, batches, new files, renames,
// deletions and files coming back, a few marks), deterministic per seed, so
// the clustering benchmark and the catalog are fed the very same history.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "BenchSupport.h"
#include "catalog/VersionCatalog.h"
#include "compare/TextDiff.h"
#include "history/FolderHistory.h"
#include "history/MomentClustering.h"

extern char** environ;

namespace {

using vosklin::CaptureSource;
using vosklin::ChangeRow;
using vosklin::CloneMethod;
using vosklin::FileEventKind;
using vosklin::FileEventRow;
using vosklin::FolderHistory;
using vosklin::MomentMark;
using vosklin::NewVersion;
using vosklin::VersionCatalog;
using vosklin::bench::TempDir;
namespace MomentClustering = vosklin::MomentClustering;
namespace TextDiff = vosklin::TextDiff;
using Clock = std::chrono::steady_clock;

double seconds(Clock::duration elapsed) { return std::chrono::duration<double>(elapsed).count(); }
double milliseconds(Clock::duration elapsed) { return std::chrono::duration<double, std::milli>(elapsed).count(); }

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

template <typename Work>
double medianMilliseconds(int runs, Work&& work) {
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        auto started = Clock::now();
        work();
        times.push_back(milliseconds(Clock::now() - started));
    }
    return median(times);
}

using vosklin::bench::Random;

const std::vector<std::string>& words() {
    static const std::vector<std::string> list = {
        "the",     "a",        "of",      "to",        "and",       "in",       "is",       "for",     "that",
        "with",    "on",       "as",      "it",        "by",        "this",     "from",     "at",      "be",
        "value",   "file",     "folder",  "version",   "change",    "list",     "result",   "count",   "size",
        "return",  "state",    "error",   "time",      "moment",    "session",  "user",     "window",  "line",
        "text",    "history",  "record",  "catalog",   "store",     "path",     "name",     "event",   "mark",
        "before",  "after",    "every",   "each",      "when",      "while",    "until",    "unless",  "only",
        "first",   "last",     "next",    "previous",  "newest",    "oldest",   "empty",    "full",    "small",
        "large",   "quick",    "slow",    "careful",   "simple",    "plain",    "clear",    "better",  "worse",
        "reads",   "writes",   "keeps",   "drops",     "finds",     "takes",    "gives",    "makes",   "holds",
        "counts",  "compares", "groups",  "sorts",     "copies",    "moves",    "renames",  "deletes", "restores",
        "because", "although", "however", "therefore", "meanwhile", "instead",  "perhaps",  "surely",  "rarely",
        "report",  "draft",    "chapter", "section",   "figure",    "table",    "note",     "summary", "budget",
        "meeting", "project",  "review",  "release",   "schedule",  "invoice",  "contract", "letter",  "photo",
        "morning", "evening",  "monday",  "friday",    "quarter",   "estimate", "margin",   "total",   "owner",
        "buffer",  "index",    "query",   "thread",    "signal",    "handler",  "option",   "setting", "default",
        "(size)",  "[index]",  "{value}", "x + 1",     "n - 1",     "=",        "==",       "->",      "//",
    };
    return list;
}

// A line of prose or code-like text of 20 to 80 characters.
std::string textLine(Random& random) {
    const auto& list = words();
    const std::size_t target = 20 + random.below(61);
    std::string line;
    if (random.chance(0.3)) line.assign(4 * (1 + random.below(3)), ' ');
    while (line.size() < target) {
        const std::string& word = list[random.below(list.size())];
        const std::size_t extra = word.size() + (line.empty() || line.back() == ' ' ? 0 : 1);
        if (line.size() + extra > 80) break;
        if (!line.empty() && line.back() != ' ') line += ' ';
        line += word;
    }
    while (line.size() < 20) line += " end";
    if (line.size() > 80) line.resize(80);
    if (random.chance(0.4)) {
        const char end = random.chance(0.5) ? '.' : ';';
        if (line.size() < 80)
            line += end;
        else
            line.back() = end;
    }
    return line;
}

// The same line after an edit: a word swapped, or the end rewritten. Never
// equal to the original, still 20 to 80 characters.
std::string editedLine(const std::string& original, Random& random) {
    std::string line = original;
    const auto& list = words();
    const std::size_t space = line.find(' ', line.size() / 3);
    const std::string& word = list[random.below(list.size())];
    if (space != std::string::npos && random.chance(0.6)) {
        line = line.substr(0, space + 1) + word + line.substr(std::min(line.size(), space + 1 + word.size()));
    } else {
        line = line.substr(0, std::min<std::size_t>(line.size(), 60)) + " " + word;
    }
    if (line.size() > 80) line.resize(80);
    while (line.size() < 20) line += " more";
    if (line == original) line = original.size() < 80 ? original + "!" : original.substr(0, 79) + "?";
    return line;
}

// --- A simulated folder history -------------------------------------------------

struct Op {
    enum class Type { create, capture, rename, remove, reappear };
    Type type = Type::capture;
    int file = 0;  // index into the folder's files, in the order they were created
    double at = 0;
    std::int64_t bytes = 0;  // the size after a capture (create, capture, reappear)
    bool replaced = false;
    CaptureSource source = CaptureSource::watcher;
    std::optional<std::string> batchID;
    std::string path;  // create: the file's path; rename: the new path
};

struct FolderScript {
    std::string folderID;
    std::vector<Op> ops;  // in time order
    std::vector<MomentMark> marks;
    int files = 0;
    int versions = 0;
    int events = 0;
};

// Capture instants as someone working in a folder produces them: one to three
// sessions on most days, saves a few seconds to several minutes apart, now and
// then a burst of saves within a second or so. Instants carry microseconds,
// like the clock's.
class Timeline {
public:
    Timeline(Random& random, double start) : random_(random), day_(start) { startDay(); }

    double next() {
        if (burst_ > 0) {
            --burst_;
            now_ += random_.uniform(0.001, 1.5);
            return round(now_);
        }
        const double roll = random_.unit();
        now_ += roll < 0.6 ? random_.uniform(2, 30) : roll < 0.9 ? random_.uniform(30, 120) : random_.uniform(120, 600);
        if (now_ > sessionEnd_) nextSession();
        if (random_.chance(0.06)) burst_ = 1 + int(random_.below(6));
        return round(now_);
    }

private:
    static double round(double instant) { return double(std::int64_t(instant * 1e6)) / 1e6; }

    void startDay() {
        sessionsLeft_ = 1 + int(random_.below(3));
        now_ = day_ + 8 * 3600 + random_.uniform(0, 3 * 3600);
        sessionEnd_ = now_ + random_.uniform(20, 150) * 60;
    }
    void nextSession() {
        if (--sessionsLeft_ > 0) {
            now_ = sessionEnd_ + random_.uniform(50, 180) * 60;
        } else {
            day_ += 86400;
            while (random_.chance(0.25)) day_ += 86400;  // days off
            startDay();
            return;
        }
        sessionEnd_ = now_ + random_.uniform(20, 150) * 60;
    }

    Random& random_;
    double day_;
    double now_ = 0;
    double sessionEnd_ = 0;
    int sessionsLeft_ = 0;
    int burst_ = 0;
};

// An ordinary recent epoch time; every folder's history starts here.
constexpr double historyStart = 1'650'000'000.0;

// Exactly `versions` versions and `events` file events (renamed, deleted,
// appeared), the events spread evenly among the captures.
FolderScript simulateFolder(const std::string& folderID, std::uint64_t seed, int versions, int events) {
    static const std::array<const char*, 12> dirs = {"docs",  "src",     "src/core", "notes",   "assets", "drafts",
                                                     "tests", "reports", "data",     "archive", "design", "."};
    static const std::array<const char*, 6> extensions = {"txt", "md", "cpp", "h", "json", "csv"};
    Random random(seed);
    Timeline timeline(random, historyStart);
    FolderScript script;
    script.folderID = folderID;

    struct File {
        std::string path;
        std::int64_t bytes = 0;
        bool live = true;
    };
    std::vector<File> files;
    std::vector<int> live, deleted, hot;
    std::vector<std::size_t> livePosition;
    int names = 0;

    auto freshPath = [&](const std::string& dir, const std::string& extension) {
        const auto& list = words();
        std::string stem = list[random.below(40) + 18];  // plain words only
        std::string path =
            (dir == "." ? std::string() : dir + "/") + stem + "-" + std::to_string(++names) + "." + extension;
        return path;
    };
    auto dirOf = [](const std::string& path) {
        auto slash = path.rfind('/');
        return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
    };
    auto extensionOf = [](const std::string& path) { return path.substr(path.rfind('.') + 1); };
    auto makeLive = [&](int file) {
        livePosition[std::size_t(file)] = live.size();
        live.push_back(file);
        files[std::size_t(file)].live = true;
    };
    auto makeDeleted = [&](int file) {
        std::size_t at = livePosition[std::size_t(file)];
        live[at] = live.back();
        livePosition[std::size_t(live[at])] = at;
        live.pop_back();
        files[std::size_t(file)].live = false;
        deleted.push_back(file);
        hot.erase(std::remove(hot.begin(), hot.end(), file), hot.end());
    };
    auto pickLive = [&]() -> int {
        if (!hot.empty() && random.chance(0.85)) return hot[random.below(hot.size())];
        return live[random.below(live.size())];
    };
    auto refreshHot = [&] {
        while (hot.size() < 8 && hot.size() < live.size()) {
            int file = live[random.below(live.size())];
            if (std::find(hot.begin(), hot.end(), file) == hot.end()) hot.push_back(file);
        }
    };
    auto capture = [&](Op::Type type, int file, double at) {
        File& state = files[std::size_t(file)];
        Op op;
        op.type = type;
        op.file = file;
        op.at = at;
        if (type != Op::Type::capture || random.chance(0.02)) {
            op.replaced = type == Op::Type::capture;
            state.bytes = 200 + std::int64_t(random.below(200'000));
        } else {
            state.bytes = std::max<std::int64_t>(0, state.bytes - 200 + std::int64_t(random.below(601)));
        }
        op.bytes = state.bytes;
        if (type == Op::Type::create) op.path = state.path;
        script.ops.push_back(std::move(op));
        ++script.versions;
    };
    auto create = [&](double at) {
        File file;
        file.path = freshPath(dirs[random.below(dirs.size())], extensions[random.below(extensions.size())]);
        files.push_back(file);
        livePosition.push_back(0);
        const int index = int(files.size()) - 1;
        makeLive(index);
        capture(Op::Type::create, index, at);
        if (random.chance(0.5) && hot.size() >= 8) hot[random.below(hot.size())] = index;
    };

    int batches = 0;
    while (script.versions < versions || script.events < events) {
        const bool eventTurn =
            script.events < events && (script.versions >= versions ||
                                       std::int64_t(script.events) * versions < std::int64_t(script.versions) * events);
        const double at = timeline.next();
        refreshHot();
        if (eventTurn && !live.empty()) {
            const double roll = random.unit();
            const bool canReappear = !deleted.empty() && script.versions < versions;
            if (roll >= 0.75 && canReappear) {
                // A deleted file saved again: an "appeared" event and a version.
                const std::size_t slot = random.below(deleted.size());
                const int file = deleted[slot];
                deleted[slot] = deleted.back();
                deleted.pop_back();
                makeLive(file);
                capture(Op::Type::reappear, file, at);
            } else if (roll >= 0.45 && live.size() > 60) {
                const int file = live[random.below(live.size())];
                makeDeleted(file);
                Op op;
                op.type = Op::Type::remove;
                op.file = file;
                op.at = at;
                script.ops.push_back(op);
            } else {
                const int file = pickLive();
                File& state = files[std::size_t(file)];
                // Mostly in place, now and then into another folder; always a new name.
                const std::string dir = random.chance(0.7) ? dirOf(state.path) : dirs[random.below(dirs.size())];
                state.path = freshPath(dir, extensionOf(state.path));
                Op op;
                op.type = Op::Type::rename;
                op.file = file;
                op.at = at;
                op.path = state.path;
                script.ops.push_back(op);
            }
            ++script.events;
            continue;
        }
        if (script.versions >= versions) continue;
        if (live.size() < 60 || random.chance(0.006)) {
            create(at);
        } else if (random.chance(0.004) && live.size() > 20) {
            // A batch (a restore of several files): one instant, one batch id.
            const std::size_t wanted =
                std::min<std::size_t>(3 + random.below(10), std::size_t(versions - script.versions));
            std::set<int> chosen;
            while (chosen.size() < wanted) chosen.insert(live[random.below(live.size())]);
            const std::string batch = folderID + "-batch-" + std::to_string(++batches);
            for (int file : chosen) {
                capture(Op::Type::capture, file, at);
                script.ops.back().batchID = batch;
                script.ops.back().source = CaptureSource::manual;
            }
        } else {
            if (random.chance(0.01) && !hot.empty()) hot.erase(hot.begin() + std::ptrdiff_t(random.below(hot.size())));
            refreshHot();
            capture(Op::Type::capture, pickLive(), at);
        }
    }
    script.files = int(files.size());

    // A few marks on capture instants: names every few thousand versions, two
    // before-rewind fences.
    std::set<double> markedAt;
    int captureIndex = 0;
    const int namedEvery = std::max(1, versions / 20);
    for (const Op& op : script.ops) {
        if (op.type == Op::Type::rename || op.type == Op::Type::remove) continue;
        ++captureIndex;
        const bool named = captureIndex % namedEvery == namedEvery / 2;
        const bool fence = captureIndex == versions / 3 || captureIndex == 2 * versions / 3;
        if ((!named && !fence) || !markedAt.insert(op.at).second) continue;
        MomentMark mark;
        mark.folderID = folderID;
        mark.at = op.at;
        if (fence) {
            mark.kind = MomentMark::Kind::beforeRewind;
            mark.targetAt = op.at - 86400;
        } else {
            mark.kind = MomentMark::Kind::named;
            mark.name = "milestone " + std::to_string(captureIndex / namedEvery + 1);
        }
        script.marks.push_back(mark);
    }
    return script;
}

// What the catalog returns for the folder (changeList, eventsSince(…, 0),
// marks), worked out from the script: `ids` maps script files to file ids.
struct HistoryInput {
    std::vector<ChangeRow> rows;
    std::vector<FileEventRow> events;
    std::vector<MomentMark> marks;
};

HistoryInput historyInput(const FolderScript& script, const std::vector<std::int64_t>& ids, std::size_t rowLimit) {
    HistoryInput input;
    std::vector<std::string> paths(std::size_t(script.files));
    std::vector<std::optional<std::int64_t>> lastBytes(std::size_t(script.files));
    for (const Op& op : script.ops) {
        const auto file = std::size_t(op.file);
        const std::int64_t id = ids[file];
        switch (op.type) {
            case Op::Type::create: paths[file] = op.path; break;
            case Op::Type::rename:
                input.events.push_back({id, op.at, FileEventKind::renamed, op.path});
                paths[file] = op.path;
                continue;
            case Op::Type::remove: input.events.push_back({id, op.at, FileEventKind::deleted, std::nullopt}); continue;
            case Op::Type::reappear: input.events.push_back({id, op.at, FileEventKind::appeared, std::nullopt}); break;
            case Op::Type::capture: break;
        }
        ChangeRow row;
        row.fileID = id;
        row.relativePath = paths[file];
        row.capturedAt = op.at;
        row.logicalBytes = op.bytes;
        row.previousBytes = lastBytes[file];
        row.source = op.source;
        row.batchID = op.batchID;
        row.isReplacement = op.replaced;
        input.rows.push_back(std::move(row));
        lastBytes[file] = op.bytes;
    }
    // The catalog's orders: rows newest first, ties by the higher file id;
    // events newest first, ties by the newer row.
    std::sort(input.rows.begin(), input.rows.end(), [](const ChangeRow& a, const ChangeRow& b) {
        return a.capturedAt != b.capturedAt ? a.capturedAt > b.capturedAt : a.fileID > b.fileID;
    });
    if (input.rows.size() > rowLimit) input.rows.resize(rowLimit);
    std::reverse(input.events.begin(), input.events.end());
    std::stable_sort(input.events.begin(), input.events.end(),
                     [](const FileEventRow& a, const FileEventRow& b) { return a.at > b.at; });
    input.marks = script.marks;
    std::sort(input.marks.begin(), input.marks.end(),
              [](const MomentMark& a, const MomentMark& b) { return a.at > b.at; });
    return input;
}

struct HistoryShape {
    std::size_t sessions = 0;
    std::size_t moments = 0;
    std::size_t changes = 0;
    bool operator==(const HistoryShape&) const = default;
};

HistoryShape shapeOf(const std::vector<MomentClustering::Session>& sessions) {
    HistoryShape shape;
    shape.sessions = sessions.size();
    for (const auto& session : sessions) {
        shape.moments += session.moments.size();
        for (const auto& moment : session.moments) shape.changes += moment.changes.size();
    }
    return shape;
}

// The folder every history benchmark reads: 100,000 versions, 5,000 events.
constexpr int folderVersions = 100'000;
constexpr int folderEvents = 5'000;
constexpr int folderCount = 10;
constexpr std::size_t batchSize = 10'000;
const std::string loadedFolder = "folder-00";

std::string folderName(int index) {
    char name[16];
    std::snprintf(name, sizeof name, "folder-%02d", index);
    return name;
}

const FolderScript& scriptOf(int index) {
    static std::vector<std::unique_ptr<FolderScript>> scripts(folderCount);
    auto& script = scripts[std::size_t(index)];
    if (!script)
        script = std::make_unique<FolderScript>(
            simulateFolder(folderName(index), 0x5EED0000ull + std::uint64_t(index), folderVersions, folderEvents));
    return *script;
}

// --- Clustering -------------------------------------------------------------------

// The loaded folder's newest 5,000 rows, all its events and marks, with file
// ids as a fresh catalog would give them (1, 2, … in creation order).
const HistoryInput& clusteringInput() {
    static const HistoryInput input = [] {
        const FolderScript& script = scriptOf(0);
        std::vector<std::int64_t> ids(std::size_t(script.files));
        for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = std::int64_t(i) + 1;
        return historyInput(script, ids, std::size_t(FolderHistory::changeRowLimit));
    }();
    return input;
}

void BM_Clustering(benchmark::State& state) {
    const HistoryInput& input = clusteringInput();
    for (auto _ : state) {
        auto sessions = MomentClustering::sessions(MomentClustering::moments(input.rows, input.events, input.marks));
        benchmark::DoNotOptimize(sessions.data());
    }
    const HistoryShape shape =
        shapeOf(MomentClustering::sessions(MomentClustering::moments(input.rows, input.events, input.marks)));
    // The two steps apart: sessions copies every moment it groups.
    std::vector<MomentClustering::Moment> moments;
    const double momentsMs =
        medianMilliseconds(9, [&] { moments = MomentClustering::moments(input.rows, input.events, input.marks); });
    const double sessionsMs = medianMilliseconds(9, [&] {
        auto sessions = MomentClustering::sessions(moments);
        benchmark::DoNotOptimize(sessions.data());
    });
    const double spanDays =
        input.rows.empty() ? 0 : (input.rows.front().capturedAt - input.rows.back().capturedAt) / 86400;
    state.counters["rows"] = double(input.rows.size());
    state.counters["events"] = double(input.events.size());
    state.counters["marks"] = double(input.marks.size());
    state.counters["rows_span_days"] = spanDays;
    state.counters["moments"] = double(shape.moments);
    state.counters["sessions"] = double(shape.sessions);
    state.counters["changes"] = double(shape.changes);
    state.counters["moments_ms"] = momentsMs;
    state.counters["sessions_ms"] = sessionsMs;
    state.SetLabel("goal: under 5 ms");
}
BENCHMARK(BM_Clustering)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// --- Loading a folder's history from a large catalog -------------------------------------

// What a capture would hand over; the digest and slot only need to be distinct
// and of the real shape, nobody reads a payload here.
NewVersion newVersion(std::int64_t fileID, const Op& op, std::uint64_t sequence, const std::string& path) {
    vosklin::bench::DeterministicBytes bytes(sequence + 1);
    char digest[65];
    std::snprintf(digest, sizeof digest, "%016" PRIx64 "%016" PRIx64 "%016" PRIx64 "%016" PRIx64, bytes.next(),
                  bytes.next(), bytes.next(), bytes.next());
    char slot[64];
    std::snprintf(slot, sizeof slot, "versions/%02" PRIx64 "/%02" PRIx64 "/%012" PRIu64, std::uint64_t(fileID) & 0xff,
                  (std::uint64_t(fileID) >> 8) & 0xff, sequence);
    NewVersion version;
    version.fileID = fileID;
    version.capturedAt = op.at;
    version.digest = digest;
    version.logicalBytes = op.bytes;
    version.slot = slot;
    version.payloadName = path.substr(path.rfind('/') + 1);
    version.method = CloneMethod::cloned;
    version.source = op.source;
    version.batchID = op.batchID;
    version.isReplacement = op.replaced;
    return version;
}

// Ten folders of 100,000 versions each, recorded in time order across the
// folders as a running app would, so one folder's rows are spread through the
// whole table rather than packed together.
class LargeCatalog {
public:
    LargeCatalog() : dir_("vosklin-history-bench"), catalog_(dir_.file("index.sqlite")) {
        struct Step {
            double at;
            int folder;
            std::size_t op;
        };
        std::vector<Step> steps;
        for (int folder = 0; folder < folderCount; ++folder) {
            const FolderScript& script = scriptOf(folder);
            for (std::size_t op = 0; op < script.ops.size(); ++op) steps.push_back({script.ops[op].at, folder, op});
        }
        std::stable_sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.at < b.at; });

        auto started = Clock::now();
        std::vector<std::vector<std::int64_t>> ids(folderCount);
        std::vector<std::vector<std::string>> paths(folderCount);
        for (int folder = 0; folder < folderCount; ++folder) {
            ids[std::size_t(folder)].assign(std::size_t(scriptOf(folder).files), 0);
            paths[std::size_t(folder)].assign(std::size_t(scriptOf(folder).files), std::string());
        }
        std::vector<NewVersion> batch;
        batch.reserve(batchSize);
        std::uint64_t sequence = 0;
        auto flush = [&] {
            if (batch.empty()) return;
            catalog_.recordVersions(batch);
            ++transactions_;
            batch.clear();
        };
        // Only the renamed file's own versions must be in before its rename;
        // the rest of the batch can wait, which keeps the batches large.
        auto flushFile = [&](std::int64_t fileID) {
            auto own = std::stable_partition(batch.begin(), batch.end(),
                                             [&](const NewVersion& version) { return version.fileID != fileID; });
            if (own == batch.end()) return;
            std::vector<NewVersion> versions(std::make_move_iterator(own), std::make_move_iterator(batch.end()));
            batch.erase(own, batch.end());
            catalog_.recordVersions(versions);
            ++transactions_;
        };
        for (const Step& step : steps) {
            const FolderScript& script = scriptOf(step.folder);
            const Op& op = script.ops[step.op];
            auto& id = ids[std::size_t(step.folder)][std::size_t(op.file)];
            auto& path = paths[std::size_t(step.folder)][std::size_t(op.file)];
            const std::string extension = (op.type == Op::Type::create || op.type == Op::Type::rename)
                                              ? op.path.substr(op.path.rfind('.') + 1)
                                              : std::string();
            switch (op.type) {
                case Op::Type::create:
                    path = op.path;
                    id = catalog_
                             .upsertFile(script.folderID, path, std::uint64_t(1'000'000 * step.folder + op.file), false,
                                         extension)
                             .id;
                    break;
                case Op::Type::rename:
                    // A version takes its file's path when it is inserted: the
                    // versions captured before the rename go in first.
                    flushFile(id);
                    path = op.path;
                    catalog_.recordRename(id, path, extension, op.at);
                    continue;
                case Op::Type::remove: catalog_.markDeleted(id, op.at); continue;
                case Op::Type::reappear:
                    catalog_.trackFileForCapture(script.folderID, path,
                                                 std::uint64_t(1'000'000 * step.folder + op.file), false,
                                                 path.substr(path.rfind('.') + 1), op.at);
                    break;
                case Op::Type::capture: break;
            }
            batch.push_back(newVersion(id, op, sequence++, path));
            if (batch.size() >= batchSize) flush();
        }
        flush();
        for (int folder = 0; folder < folderCount; ++folder)
            for (const MomentMark& mark : scriptOf(folder).marks) catalog_.recordMark(mark);
        buildSeconds_ = seconds(Clock::now() - started);
        loadedIDs_ = ids.front();
        versions_ = catalog_.totals().versions;
    }

    VersionCatalog& catalog() { return catalog_; }
    double buildSeconds() const { return buildSeconds_; }
    std::int64_t versionTransactions() const { return transactions_; }
    std::int64_t versions() const { return versions_; }
    const std::vector<std::int64_t>& loadedFolderIDs() const { return loadedIDs_; }
    std::string databasePath() const { return dir_.file("index.sqlite"); }

private:
    TempDir dir_;
    VersionCatalog catalog_;
    double buildSeconds_ = 0;
    std::int64_t transactions_ = 0;
    std::int64_t versions_ = 0;
    std::vector<std::int64_t> loadedIDs_;
};

std::unique_ptr<LargeCatalog> largeCatalog;

LargeCatalog& catalogOfAMillion() {
    if (!largeCatalog) {
        std::fprintf(stderr, "Building a catalog of %d folders x %d versions (%d events each)...\n", folderCount,
                     folderVersions, folderEvents);
        largeCatalog = std::make_unique<LargeCatalog>();
        std::fprintf(stderr, "  built in %.1f s: %" PRId64 " versions in %" PRId64 " recordVersions transactions, %s\n",
                     largeCatalog->buildSeconds(), largeCatalog->versions(), largeCatalog->versionTransactions(),
                     largeCatalog->databasePath().c_str());
        // A copy to look at with the sqlite3 shell (EXPLAIN QUERY PLAN) after the run.
        if (const char* keep = std::getenv("VOSKLIN_HISTORY_BENCH_KEEP")) {
            for (const char* suffix : {"", "-wal"}) {
                const std::string from = largeCatalog->databasePath() + suffix;
                if (std::filesystem::exists(from))
                    std::filesystem::copy_file(from, std::string(keep) + "/index.sqlite" + suffix,
                                               std::filesystem::copy_options::overwrite_existing);
            }
            std::fprintf(stderr, "  copied to %s/index.sqlite\n", keep);
        }
    }
    return *largeCatalog;
}

void BM_HistoryLoad(benchmark::State& state) {
    LargeCatalog& large = catalogOfAMillion();
    if (large.versions() != std::int64_t(folderCount) * folderVersions) {
        state.SkipWithError("the catalog does not hold the versions recorded");
        return;
    }
    VersionCatalog& catalog = large.catalog();
    for (auto _ : state) {
        FolderHistory history = FolderHistory::load(catalog, loadedFolder);
        benchmark::DoNotOptimize(history.sessions.data());
    }
    const HistoryShape shape = shapeOf(FolderHistory::load(catalog, loadedFolder).sessions);

    // The same history clustered from the script must come out the same: the
    // catalog holds what was meant, and load reads all of it.
    const HistoryInput expected =
        historyInput(scriptOf(0), large.loadedFolderIDs(), std::size_t(FolderHistory::changeRowLimit));
    const HistoryShape wanted =
        shapeOf(MomentClustering::sessions(MomentClustering::moments(expected.rows, expected.events, expected.marks)));
    if (!(shape == wanted)) {
        std::fprintf(stderr,
                     "BM_HistoryLoad: load gave %zu sessions, %zu moments, %zu changes; the same history in memory "
                     "gives %zu, %zu, %zu\n",
                     shape.sessions, shape.moments, shape.changes, wanted.sessions, wanted.moments, wanted.changes);
        state.SkipWithError("load disagrees with clustering the same history in memory");
    }

    // Where the time goes: each of load's reads alone, and the clustering.
    std::vector<ChangeRow> rows;
    std::vector<FileEventRow> events;
    std::vector<MomentMark> marks;
    const double changeListMs =
        medianMilliseconds(5, [&] { rows = catalog.changeList(loadedFolder, FolderHistory::changeRowLimit); });
    const double eventsMs = medianMilliseconds(5, [&] { events = catalog.eventsSince(loadedFolder, 0); });
    const double marksMs = medianMilliseconds(5, [&] { marks = catalog.marks(loadedFolder); });
    const double clusteringMs = medianMilliseconds(5, [&] {
        auto sessions = MomentClustering::sessions(MomentClustering::moments(rows, events, marks));
        benchmark::DoNotOptimize(sessions.data());
    });

    state.counters["catalog_versions"] = double(large.versions());
    state.counters["folder_versions"] = double(catalog.folderVersionCount(loadedFolder));
    state.counters["rows"] = double(rows.size());
    state.counters["events"] = double(events.size());
    state.counters["moments"] = double(shape.moments);
    state.counters["sessions"] = double(shape.sessions);
    state.counters["build_s"] = large.buildSeconds();
    state.counters["changeList_ms"] = changeListMs;
    state.counters["eventsSince_ms"] = eventsMs;
    state.counters["marks_ms"] = marksMs;
    state.counters["clustering_ms"] = clusteringMs;
    state.SetLabel("goal: under 50 ms");
}
BENCHMARK(BM_HistoryLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// --- Comparing text -----------------------------------------------------------------

constexpr int diffLines = 50'000;
constexpr int changedLines = 4'000;
constexpr int changedFrom = 23'000;  // 0-based index of the block's first line
constexpr int toolRuns = 9;

// Two texts of 50,000 lines as TextDiff counts them: 49,999 line breaks and a
// last line without one. A final line break would add an empty 50,001st line
// and take the comparison over the line gate into the summary.
struct DiffFiles {
    std::string older;
    std::string newer;
    TempDir dir{"vosklin-history-bench"};

    DiffFiles() {
        Random random(0xD1FFull);
        for (int line = 0; line < diffLines; ++line) {
            const std::string text = textLine(random);
            const bool changed = line >= changedFrom && line < changedFrom + changedLines;
            const char* end = line + 1 < diffLines ? "\n" : "";
            older += text + end;
            newer += (changed ? editedLine(text, random) : text) + end;
        }
        std::ofstream(oldPath(), std::ios::binary) << older;
        std::ofstream(newPath(), std::ios::binary) << newer;
        if (const char* keep = std::getenv("VOSKLIN_HISTORY_BENCH_KEEP")) {
            std::ofstream(std::string(keep) + "/old.txt", std::ios::binary) << older;
            std::ofstream(std::string(keep) + "/new.txt", std::ios::binary) << newer;
        }
    }
    std::string oldPath() const { return dir.file("old.txt"); }
    std::string newPath() const { return dir.file("new.txt"); }
};

std::unique_ptr<DiffFiles> diffFiles;

DiffFiles& filesToCompare() {
    if (!diffFiles) diffFiles = std::make_unique<DiffFiles>();
    return *diffFiles;
}

// Runs a program with its output sent to /dev/null and returns the wall time
// in ms, process start included (that is what a user waits for). Exit status
// 1 means "the files differ" for both git diff and GNU diff; `expectedStatus`
// says which one counts as success.
double runTool(const std::vector<std::string>& arguments, int expectedStatus) {
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    auto started = Clock::now();
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::system_error(error, std::generic_category(), "posix_spawnp " + arguments[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
    const double elapsed = milliseconds(Clock::now() - started);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != expectedStatus)
        throw std::runtime_error(arguments[0] + " ended with status " + std::to_string(status));
    return elapsed;
}

double toolMedian(const std::vector<std::string>& arguments, int expectedStatus) {
    runTool(arguments, expectedStatus);  // warms the page cache and the program's own files
    std::vector<double> times;
    for (int run = 0; run < toolRuns; ++run) times.push_back(runTool(arguments, expectedStatus));
    return median(times);
}

struct DiffFigures {
    double vosklinMs = 0;
    double gitMs = 0;
    double gnuDiffMs = 0;
    double processStartMs = 0;
    bool measured = false;
};
DiffFigures diffFigures;

void BM_TextDiff(benchmark::State& state) {
    DiffFiles& files = filesToCompare();
    const TextDiff::Result check = TextDiff::compare(files.older, files.newer);
    if (check.kind != TextDiff::Result::Kind::lines) {
        state.SkipWithError("the comparison did not give a line difference");
        return;
    }
    std::int64_t added = 0, removed = 0;
    for (const auto& line : check.lines) {
        added += line.kind == TextDiff::Line::Kind::added;
        removed += line.kind == TextDiff::Line::Kind::removed;
    }

    std::vector<double> times;
    for (auto _ : state) {
        auto started = Clock::now();
        TextDiff::Result result = TextDiff::compare(files.older, files.newer);
        benchmark::DoNotOptimize(result.lines.data());
        times.push_back(milliseconds(Clock::now() - started));
    }
    diffFigures.vosklinMs = median(times);

    // The tools once per process: the framework may call this function more
    // than once while it settles on an iteration count.
    if (!diffFigures.measured) {
        try {
            diffFigures.gitMs =
                toolMedian({"git", "diff", "--no-index", "--no-color", files.oldPath(), files.newPath()}, 1);
            diffFigures.gnuDiffMs = toolMedian({"diff", files.oldPath(), files.newPath()}, 1);
            diffFigures.processStartMs = toolMedian({"true"}, 0);
            diffFigures.measured = true;
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
            return;
        }
    }
    state.counters["lines"] = double(diffLines);
    state.counters["result_lines"] = double(check.lines.size());
    state.counters["added"] = double(added);
    state.counters["removed"] = double(removed);
    state.counters["median_ms"] = diffFigures.vosklinMs;
    state.counters["git_ms"] = diffFigures.gitMs;
    state.counters["gnu_diff_ms"] = diffFigures.gnuDiffMs;
    state.SetLabel("goal: faster than git diff and GNU diff");
}
BENCHMARK(BM_TextDiff)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    int status = 0;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "history_bench: %s\n", error.what());
        status = 1;
    }
    benchmark::Shutdown();
    if (diffFigures.measured) {
        std::printf(
            "\ndiff ratio: vosklin %.2f ms, git %.2f ms, GNU diff %.2f ms (vosklin/git %.2f, vosklin/diff %.2f)\n",
            diffFigures.vosklinMs, diffFigures.gitMs, diffFigures.gnuDiffMs, diffFigures.vosklinMs / diffFigures.gitMs,
            diffFigures.vosklinMs / diffFigures.gnuDiffMs);
        std::printf(
            "  goal: both ratios under 1. The tools' times include starting a process (`true` alone: %.2f ms) "
            "and reading the files; vosklin's is the comparison of two strings in memory.\n",
            diffFigures.processStartMs);
    }
    // Closes the catalog and removes the temporary folders.
    largeCatalog.reset();
    diffFiles.reset();
    return status;
}

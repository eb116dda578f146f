// Writes the large histories bench/window/timeline-bench.mjs shows in the window, straight into
// a home's catalog (no payloads: the timeline and the comparison of moments read only the catalog).
// Every version is a manual one, which the retention pass keeps whatever its age, so the daemon
// leaves a year of history whole.
//
//   window_bench_tool timeline DB FOLDER_ID VERSIONS DAYS NOW
//       VERSIONS versions over the DAYS days before NOW (seconds since 1970): work sessions on
//       three days out of four, saves seconds to minutes apart, a few files edited at a time,
//       new files now and then, renames, and a named moment every 5,000 versions.
//   window_bench_tool compare DB FOLDER_ID FILES NOW
//       FILES files, each kept once two days before NOW; one day before NOW a batch changes 2 %
//       of them, adds 1 %, deletes 1 % and renames 0.5 %.
// Each prints one JSON line: what it wrote and the instants to look at.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "catalog/VersionCatalog.h"
#include "platform/Instant.h"

namespace {

using vosklin::CaptureSource;
using vosklin::FileToTrack;
using vosklin::NewVersion;
using vosklin::VersionCatalog;

using vosklin::bench::Random;

// Distinct digests and slots of the real shape; nobody reads a payload here.
NewVersion versionOf(std::int64_t fileID, double at, std::int64_t bytes, std::uint64_t sequence,
                     const std::string& path, const std::string& batch = {}) {
    vosklin::bench::DeterministicBytes random(sequence + 1);
    char digest[65];
    std::snprintf(digest, sizeof digest, "%016" PRIx64 "%016" PRIx64 "%016" PRIx64 "%016" PRIx64, random.next(),
                  random.next(), random.next(), random.next());
    char slot[64];
    std::snprintf(slot, sizeof slot, "versions/%02" PRIx64 "/%" PRId64 "/%012" PRIu64, std::uint64_t(fileID) & 0xff,
                  fileID, sequence);
    NewVersion version;
    version.fileID = fileID;
    version.capturedAt = double(std::int64_t(at * 1e6)) / 1e6;
    version.digest = digest;
    version.logicalBytes = bytes;
    version.slot = slot;
    version.payloadName = path.substr(path.rfind('/') + 1);
    version.method = vosklin::CloneMethod::copied;
    version.source = CaptureSource::manual;
    if (!batch.empty()) version.batchID = batch;
    return version;
}

constexpr const char* directories[] = {"docs", "src", "src/core", "notes", "drafts", "reports", "data", "design"};
constexpr const char* extensions[] = {"txt", "md", "cpp", "json", "csv", "svg"};

int timeline(VersionCatalog& catalog, const std::string& folder, std::int64_t versions, int days, double now) {
    Random random(0x71AE11E);
    struct File {
        std::int64_t id;
        std::string path;
        std::int64_t bytes;
    };
    std::vector<File> files;
    std::int64_t names = 0;
    auto create = [&](double at) {
        const std::string path = std::string(directories[random.below(std::size(directories))]) + "/file-" +
                                 std::to_string(++names) + "." + extensions[random.below(std::size(extensions))];
        const auto tracked = catalog.trackFilesForCapture({FileToTrack{folder, path, std::nullopt, false,
                                                                       path.substr(path.rfind('.') + 1), at}});
        files.push_back({tracked.front().id, path, std::int64_t(200 + random.below(20'000))});
    };

    // Work on three days out of four, the saves of a day spread over one to three sessions.
    const double start = now - days * 86400.0;
    std::vector<int> workDays;
    for (int day = 0; day < days; ++day)
        if (day == days - 1 || !random.chance(0.25)) workDays.push_back(day);
    std::vector<NewVersion> batch;
    std::uint64_t sequence = 0;
    std::int64_t written = 0, renames = 0, marks = 0;
    double first = 0, last = 0;
    for (std::size_t index = 0; index < workDays.size() && written < versions; ++index) {
        const std::int64_t left = versions - written;
        const std::int64_t today = index + 1 == workDays.size()
                                       ? left
                                       : std::min<std::int64_t>(left, std::int64_t(double(left) / double(workDays.size() - index) *
                                                                                    random.uniform(0.5, 1.5)) + 1);
        const int sessions = 1 + int(random.below(3));
        double at = start + workDays[index] * 86400.0 + random.uniform(7, 10) * 3600;
        std::vector<std::size_t> hot;
        for (std::int64_t save = 0; save < today; ++save) {
            if (save > 0 && save % std::max<std::int64_t>(1, today / sessions) == 0) {
                at += random.uniform(1, 3) * 3600;  // a break between sessions
                hot.clear();
            }
            at += random.chance(0.06) ? random.uniform(0.01, 1.5) : random.uniform(2, 90);
            if (at > now - 60) at = now - 60 + 50 * double(save) / double(today);  // the newest stay in the past
            if (files.size() < 40 || random.chance(0.006)) create(at);
            if (hot.empty() || random.chance(0.05)) {
                hot.clear();
                for (int i = 0; i < 6; ++i) hot.push_back(random.below(files.size()));
                if (random.chance(0.5)) hot.push_back(files.size() - 1);
            }
            File& file = files[hot[random.below(hot.size())]];
            if (random.chance(0.003)) {
                // A rename: the file's versions so far go in under the old path first.
                catalog.recordVersions(batch);
                batch.clear();
                file.path = file.path.substr(0, file.path.rfind('.')) + "-renamed" + file.path.substr(file.path.rfind('.'));
                catalog.recordRename(file.id, file.path, file.path.substr(file.path.rfind('.') + 1), at);
                ++renames;
                at += 1;
            }
            file.bytes = std::max<std::int64_t>(0, file.bytes - 300 + std::int64_t(random.below(700)));
            batch.push_back(versionOf(file.id, at, file.bytes, sequence++, file.path));
            if (written == 0) first = at;
            last = at;
            if (++written % 5000 == 2500) {
                vosklin::MomentMark mark;
                mark.folderID = folder;
                mark.at = double(std::int64_t(at * 1e6)) / 1e6;
                mark.name = "milestone " + std::to_string(++marks);
                catalog.recordMark(mark);
            }
            if (batch.size() >= 10'000) {
                catalog.recordVersions(batch);
                batch.clear();
            }
        }
    }
    catalog.recordVersions(batch);
    std::printf("{\"versions\": %" PRId64 ", \"files\": %zu, \"renames\": %" PRId64 ", \"named\": %" PRId64
                ", \"first\": \"%s\", \"last\": \"%s\"}\n",
                written, files.size(), renames, marks, vosklin::formatInstant(first).c_str(),
                vosklin::formatInstant(last).c_str());
    return 0;
}

int compare(VersionCatalog& catalog, const std::string& folder, std::int64_t count, double now) {
    Random random(0xC0FFEE);
    const double before = now - 2 * 86400, after = now - 86400;
    std::vector<FileToTrack> wanted;
    for (std::int64_t i = 0; i < count; ++i) {
        char path[64];
        std::snprintf(path, sizeof path, "part-%03" PRId64 "/item-%06" PRId64 ".dat", i % 500, i);
        wanted.push_back({folder, path, std::nullopt, false, std::string("dat"), before});
    }
    const auto files = catalog.trackFilesForCapture(wanted);
    std::vector<NewVersion> batch;
    std::uint64_t sequence = 0;
    for (const auto& file : files) batch.push_back(versionOf(file.id, before, 4096, sequence++, file.relativePath));
    catalog.recordVersions(batch);
    batch.clear();

    std::int64_t changed = 0, added = 0, deleted = 0, renamed = 0;
    std::vector<std::int64_t> gone;
    for (const auto& file : files) {
        const double roll = random.unit();
        if (roll < 0.02) {
            batch.push_back(versionOf(file.id, after, 5000, sequence++, file.relativePath, "bench-batch"));
            ++changed;
        } else if (roll < 0.03) {
            gone.push_back(file.id);
            ++deleted;
        } else if (roll < 0.035) {
            catalog.recordRename(file.id, file.relativePath + ".renamed", std::string("renamed"), after);
            ++renamed;
        }
    }
    catalog.markDeletedMany(gone, after);
    std::vector<FileToTrack> fresh;
    for (std::int64_t i = 0; i < count / 100; ++i)
        fresh.push_back({folder, "new/added-" + std::to_string(i) + ".dat", std::nullopt, false, std::string("dat"), after});
    for (const auto& file : catalog.trackFilesForCapture(fresh)) {
        batch.push_back(versionOf(file.id, after, 3000, sequence++, file.relativePath, "bench-batch"));
        ++added;
    }
    catalog.recordVersions(batch);
    std::printf("{\"files\": %" PRId64 ", \"changed\": %" PRId64 ", \"added\": %" PRId64 ", \"deleted\": %" PRId64
                ", \"renamed\": %" PRId64 ", \"from\": \"%s\", \"to\": \"%s\"}\n",
                count, changed, added, deleted, renamed, vosklin::formatInstant(before + 1).c_str(),
                vosklin::formatInstant(after + 1).c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() == 6 && args[0] == "timeline") {
            VersionCatalog catalog(args[1]);
            return timeline(catalog, args[2], std::stoll(args[3]), std::stoi(args[4]), std::stod(args[5]));
        }
        if (args.size() == 5 && args[0] == "compare") {
            VersionCatalog catalog(args[1]);
            return compare(catalog, args[2], std::stoll(args[3]), std::stod(args[4]));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "window_bench_tool: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr,
                 "usage: window_bench_tool timeline DB FOLDER_ID VERSIONS DAYS NOW\n"
                 "       window_bench_tool compare DB FOLDER_ID FILES NOW\n");
    return 2;
}

// The parts of bench/live-bench.sh that need exact timing or many files fast.
//
//   live_bench_tool dirs ROOT COUNT [FILES_PER_DIR=0]
//       Makes COUNT directories below ROOT (which must exist), as a tree with
//       ten subdirectories per directory, breadth first: 100,000 directories
//       reach five levels deep, like a large source or photo tree. With
//       FILES_PER_DIR, each directory also gets that many tiny files.
//
//   live_bench_tool await PATH PID TIMEOUT_S
//       Waits until PATH exists and prints the wall time it was first seen, in
//       microseconds since 1970. Polls every 2 ms within one process, so the
//       wait itself costs the measured daemon next to nothing (a shell loop
//       would fork a `sleep` for every look). Fails when process PID has ended
//       or TIMEOUT_S has passed first.
//
//   live_bench_tool saves ROOT COUNT MEAN_GAP_MS LOG
//       Writes COUNT new small files, spread over ROOT/part-0 .. part-9 (which
//       must exist), one at a time, and appends "PATH<TAB>MICROSECONDS" to LOG
//       for each, the wall time read right after close() returned. The gaps
//       between saves are random in [0.5, 1.5] x MEAN_GAP_MS, so the closes
//       fall at every phase of the daemon's tick rather than in step with it.
//
//   live_bench_tool latency LOG VOSKLIN HOME MERGE_WINDOW_S
//       For every line of LOG, runs `VOSKLIN --home HOME versions PATH --json`
//       and takes the earliest capturedAt at or after the close. Prints one
//       line: count, missing, extra, and in seconds of capturedAt - close -
//       merge window: median, p90, p99, max.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/Instant.h"

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: live_bench_tool dirs ROOT COUNT [FILES_PER_DIR]\n"
                 "       live_bench_tool await PATH PID TIMEOUT_S\n"
                 "       live_bench_tool saves ROOT COUNT MEAN_GAP_MS LOG\n"
                 "       live_bench_tool latency LOG VOSKLIN HOME MERGE_WINDOW_S\n");
    return 2;
}

bool writeSmallFile(const std::string& path, const std::string& text) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const bool written = ::write(fd, text.data(), text.size()) == ssize_t(text.size());
    return ::close(fd) == 0 && written;
}

std::int64_t wallMicroseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000;
}

int makeDirectories(const std::string& root, long count, long filesPerDirectory) {
    // Directory i (1-based) sits in directory (i - 1) / 10; directory 0 is the root.
    std::vector<std::string> paths(std::size_t(count) + 1);
    paths[0] = root;
    for (long i = 1; i <= count; ++i) {
        paths[std::size_t(i)] = paths[std::size_t((i - 1) / 10)] + "/d" + std::to_string(i);
        if (::mkdir(paths[std::size_t(i)].c_str(), 0755) != 0 && errno != EEXIST) {
            std::perror(paths[std::size_t(i)].c_str());
            return 1;
        }
        for (long f = 0; f < filesPerDirectory; ++f) {
            const std::string file = paths[std::size_t(i)] + "/note-" + std::to_string(f) + ".txt";
            if (!writeSmallFile(file, "directory " + std::to_string(i) + " note " + std::to_string(f) + "\n")) {
                std::perror(file.c_str());
                return 1;
            }
        }
    }
    return 0;
}

// True while `pid` runs; a child the shell has not reaped yet is a zombie, not running.
bool isRunning(long pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(stat, text)) return false;
    const auto end = text.rfind(')');
    return end != std::string::npos && end + 2 < text.size() && text[end + 2] != 'Z' && text[end + 2] != 'X';
}

int awaitPath(const std::string& path, long pid, double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    struct stat status {};
    while (::stat(path.c_str(), &status) != 0) {
        if (!isRunning(pid)) {
            std::fprintf(stderr, "process %ld ended before %s appeared\n", pid, path.c_str());
            return 1;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            std::fprintf(stderr, "%s did not appear within %g s\n", path.c_str(), timeoutSeconds);
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::printf("%lld\n", static_cast<long long>(wallMicroseconds()));
    return 0;
}

int makeSaves(const std::string& root, long count, double meanGapMs, const std::string& logPath) {
    std::mt19937_64 random(20251122);
    std::uniform_real_distribution<double> gap(0.5 * meanGapMs, 1.5 * meanGapMs);
    std::vector<std::pair<std::string, std::int64_t>> closes;
    closes.reserve(std::size_t(count));
    for (long k = 0; k < count; ++k) {
        const std::string path = root + "/part-" + std::to_string(k % 10) + "/save-" + std::to_string(k) + ".txt";
        // Distinct contents, a little over a line, as a small text save would be.
        std::string text = "save " + std::to_string(k) + " of " + std::to_string(count) + "\n";
        text.resize(200, '.');
        text.back() = '\n';
        if (!writeSmallFile(path, text)) {
            std::perror(path.c_str());
            return 1;
        }
        closes.emplace_back(path, wallMicroseconds());
        std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(gap(random)));
    }
    // Written after the saves so the log's own writes never fall between two of them.
    std::ofstream log(logPath, std::ios::app);
    for (const auto& [path, at] : closes) log << path << '\t' << at << '\n';
    return log.good() ? 0 : 1;
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::optional<nlohmann::json> versionsOf(const std::string& vosklin, const std::string& home, const std::string& path) {
    const std::string command =
        shellQuoted(vosklin) + " --home " + shellQuoted(home) + " versions " + shellQuoted(path) + " --json 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return std::nullopt;
    std::string output;
    char buffer[4096];
    while (std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, got);
    if (::pclose(pipe) != 0) return std::nullopt;  // no history of it at all
    auto json = nlohmann::json::parse(output, nullptr, false);
    if (json.is_discarded()) return std::nullopt;
    return json;
}

double quantile(const std::vector<double>& sorted, double q) {
    // Nearest rank: the smallest value with at least q of the samples at or below it.
    const auto rank = std::size_t(std::ceil(q * double(sorted.size())));
    return sorted[std::min(sorted.size(), std::max<std::size_t>(rank, 1)) - 1];
}

int measureLatency(const std::string& logPath, const std::string& vosklin, const std::string& home,
                   double mergeWindow) {
    std::ifstream log(logPath);
    std::string line;
    std::vector<double> latencies;
    long count = 0, missing = 0, extra = 0;
    while (std::getline(log, line)) {
        const auto tab = line.rfind('\t');
        if (tab == std::string::npos) continue;
        ++count;
        const std::string path = line.substr(0, tab);
        const double closedAt = double(std::stoll(line.substr(tab + 1))) / 1e6;
        auto json = versionsOf(vosklin, home, path);
        std::optional<double> first;
        long versions = 0;
        if (json && json->contains("versions")) {
            for (const auto& version : (*json)["versions"]) {
                ++versions;
                auto at = vosklin::parseInstant(version.value("capturedAt", std::string()));
                // Microsecond rounding on both sides: allow that much before the close.
                if (at && *at >= closedAt - 2e-6 && (!first || *at < *first)) first = at;
            }
        }
        if (!first) {
            ++missing;
            std::fprintf(stderr, "no version of %s after its close\n", path.c_str());
            continue;
        }
        if (versions > 1) ++extra;
        latencies.push_back(*first - closedAt - mergeWindow);
    }
    if (latencies.empty()) {
        std::printf("%ld %ld %ld nan nan nan nan\n", count, missing, extra);
        return 1;
    }
    std::sort(latencies.begin(), latencies.end());
    const std::size_t n = latencies.size();
    const double median = n % 2 ? latencies[n / 2] : (latencies[n / 2 - 1] + latencies[n / 2]) / 2;
    std::printf("%ld %ld %ld %.3f %.3f %.3f %.3f\n", count, missing, extra, median, quantile(latencies, 0.90),
                quantile(latencies, 0.99), latencies.back());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const std::string command = argv[1];
    if (command == "dirs" && (argc == 4 || argc == 5))
        return makeDirectories(argv[2], std::atol(argv[3]), argc == 5 ? std::atol(argv[4]) : 0);
    if (command == "await" && argc == 5) return awaitPath(argv[2], std::atol(argv[3]), std::atof(argv[4]));
    if (command == "saves" && argc == 6) return makeSaves(argv[2], std::atol(argv[3]), std::atof(argv[4]), argv[5]);
    if (command == "latency" && argc == 6) return measureLatency(argv[2], argv[3], argv[4], std::atof(argv[5]));
    return usage();
}

// SHA-256 of a 1 GiB file through PayloadDigest, against what OpenSSL itself
// manages on this machine (`openssl speed`). The file sits in the page cache,
// so the figure is hashing plus the cost of getting the bytes out of the kernel,
// not the disk.
//
// Two smaller measurements run alongside to tell the costs apart when the
// ratio is poor: reading the file alone in the same chunks, and EVP over a
// buffer already in memory.

#include <benchmark/benchmark.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "platform/PosixFileSystem.h"
#include "store/PayloadDigest.h"
#include "store/Sha256.h"

namespace {

using vosklin::PayloadDigest;
using vosklin::PosixFileSystem;
using vosklin::Sha256;
using Clock = std::chrono::steady_clock;

constexpr std::size_t fileBytes = std::size_t(1) << 30;
constexpr std::size_t chunk = PayloadDigest::chunkSize;
constexpr int timedRuns = 5;
// `openssl speed` counts in thousands of bytes, so MB here are 10^6 bytes too.
constexpr double megabyte = 1e6;

// Writes the test file and returns the SHA-256 of what was written, so the
// benchmark can check PayloadDigest's answer and not just its speed.
std::string writeTestFile(PosixFileSystem& fileSystem, const std::string& path) {
    vosklin::bench::DeterministicBytes bytes(20250301);
    std::vector<std::uint64_t> buffer(chunk / sizeof(std::uint64_t));
    Sha256 expected;
    auto file = fileSystem.createExclusive(path, 0600);
    for (std::size_t written = 0; written < fileBytes; written += chunk) {
        for (auto& word : buffer) word = bytes.next();
        expected.update(buffer.data(), chunk);
        fileSystem.writeAll(file.get(), buffer.data(), chunk);
    }
    // Flushed now so that write-back does not compete with the timed reads.
    fileSystem.syncFile(file.get());
    return expected.hex();
}

struct Measured {
    double bytes = 0;
    double seconds = 0;
    double megabytesPerSecond() const { return seconds > 0 ? bytes / megabyte / seconds : 0; }
};

void reportRate(benchmark::State& state, const Measured& measured) {
    state.SetBytesProcessed(std::int64_t(measured.bytes));
    state.counters["MB_per_s"] = measured.megabytesPerSecond();
}

std::optional<Measured> digestRun;

void BM_FileDigest(benchmark::State& state, const std::string& path, const std::string& expected) {
    PosixFileSystem fileSystem;
    PayloadDigest digest(fileSystem);
    Measured measured;
    for (auto _ : state) {
        auto started = Clock::now();
        std::string result = digest.fileDigest(path);
        measured.seconds += std::chrono::duration<double>(Clock::now() - started).count();
        measured.bytes += double(fileBytes);
        if (result != expected) {
            state.SkipWithError("PayloadDigest disagrees with the digest of the bytes written");
            return;
        }
    }
    reportRate(state, measured);
    digestRun = measured;
}

// The reads alone, in PayloadDigest's chunk size: the part of the cost that
// OpenSSL's own figure does not include.
void BM_ReadOnly(benchmark::State& state, const std::string& path) {
    PosixFileSystem fileSystem;
    std::unique_ptr<char[]> buffer(new char[chunk]);
    Measured measured;
    for (auto _ : state) {
        auto started = Clock::now();
        auto file = fileSystem.openForReading(path);
        std::size_t total = 0;
        while (std::size_t count = fileSystem.read(file.get(), buffer.get(), chunk)) total += count;
        benchmark::DoNotOptimize(buffer.get());
        measured.seconds += std::chrono::duration<double>(Clock::now() - started).count();
        measured.bytes += double(total);
    }
    reportRate(state, measured);
}

// EVP over the same amount of data from one buffer that stays in cache: the
// hashing alone, as the library links it.
void BM_EvpInMemory(benchmark::State& state) {
    std::vector<std::uint64_t> buffer(chunk / sizeof(std::uint64_t));
    vosklin::bench::DeterministicBytes bytes(7);
    for (auto& word : buffer) word = bytes.next();
    Measured measured;
    for (auto _ : state) {
        auto started = Clock::now();
        Sha256 hash;
        for (std::size_t done = 0; done < fileBytes; done += chunk) hash.update(buffer.data(), chunk);
        benchmark::DoNotOptimize(hash.hex());
        measured.seconds += std::chrono::duration<double>(Clock::now() - started).count();
        measured.bytes += double(fileBytes);
    }
    reportRate(state, measured);
}

// Thousands of bytes per second for 1 MiB blocks, from the result line of
// `openssl speed`, e.g. "sha256         1684013.06k".
std::optional<double> opensslThousandsOfBytesPerSecond() {
    std::FILE* pipe = ::popen("openssl speed -evp sha256 -bytes 1048576 -seconds 3 2>/dev/null", "r");
    if (!pipe) return std::nullopt;
    std::optional<double> found;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        for (auto& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
        if (name != "sha256") continue;
        std::string last;
        for (std::string word; words >> word;) last = word;
        if (last.empty() || last.back() != 'k') continue;
        last.pop_back();
        char* end = nullptr;
        double value = std::strtod(last.c_str(), &end);
        if (end && *end == '\0' && value > 0) found = value;
    }
    int status = ::pclose(pipe);
    if (status != 0) return std::nullopt;
    return found;
}

int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    vosklin::bench::TempDir dir("vosklin-digest-bench");
    const std::string path = dir.file("one-gibibyte.bin");
    PosixFileSystem fileSystem;
    std::fprintf(stderr, "Writing a 1 GiB test file to %s...\n", path.c_str());
    const std::string expected = writeTestFile(fileSystem, path);
    // One untimed pass so every page is cached before anything is measured.
    if (PayloadDigest(fileSystem).fileDigest(path) != expected) {
        std::fprintf(stderr, "PayloadDigest disagrees with the digest of the bytes written\n");
        return 1;
    }

    benchmark::RegisterBenchmark("BM_FileDigest/1GiB", BM_FileDigest, path, expected)
        ->Iterations(timedRuns)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("BM_ReadOnly/1GiB", BM_ReadOnly, path)
        ->Iterations(timedRuns)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("BM_EvpInMemory/1GiB", BM_EvpInMemory)
        ->Iterations(timedRuns)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    // The test file goes before the comparison; nothing below needs it.
    fileSystem.removeFile(path);

    if (!digestRun) {
        std::printf("digest/openssl ratio: not measured (BM_FileDigest did not run)\n");
        return 0;
    }
    std::fprintf(stderr, "Running openssl speed -evp sha256 (3 s)...\n");
    auto openssl = opensslThousandsOfBytesPerSecond();
    if (!openssl) {
        std::printf("digest/openssl ratio: unknown (could not run or read `openssl speed`)\n");
        return 1;
    }
    double vosklinRate = digestRun->megabytesPerSecond();
    double opensslRate = *openssl * 1000 / megabyte;
    std::printf("digest/openssl ratio: %.2f (vosklin %.0f MB/s, openssl %.0f MB/s)\n", vosklinRate / opensslRate,
                vosklinRate, opensslRate);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Caught here so that the folder with the test file is removed on the way out.
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "digest_bench: %s\n", error.what());
        return 1;
    }
}

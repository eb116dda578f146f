#pragma once

// Small helpers shared by the benchmark executables (header only: every .cpp
// in this folder becomes its own program).

#include <dirent.h>
#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>

#include "platform/Logger.h"

namespace vosklin::bench {

// Keeps quiet, remembering the errors so a run that hit one says so.
class CountingLogger final : public Logger {
public:
    void log(LogLevel level, const std::string& message) override {
        if (level != LogLevel::error) return;
        std::lock_guard guard(lock_);
        if (errors_++ == 0) firstError_ = message;
    }
    std::int64_t errors() {
        std::lock_guard guard(lock_);
        return errors_;
    }
    std::string firstError() {
        std::lock_guard guard(lock_);
        return firstError_;
    }

private:
    std::mutex lock_;
    std::int64_t errors_ = 0;
    std::string firstError_;
};


namespace detail {

// The folders a Ctrl-C or a kill must still remove. Plain arrays, because the
// signal handler may only use async-signal-safe calls.
inline std::array<std::array<char, 256>, 4> liveFolders{};

// Removes everything under `path` and then the folder, with nothing but
// async-signal-safe calls. `path` is a scratch buffer: names are appended to it
// while descending and cut off again; `depth` bounds the recursion (a store is
// five levels deep).
inline void removeTreeFromSignal(char* path, std::size_t length, std::size_t capacity, int depth) {
    int dir = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (dir >= 0) {
        alignas(8) char entries[4096];
        for (;;) {
            long count = ::syscall(SYS_getdents64, dir, entries, sizeof entries);
            if (count <= 0) break;
            for (long offset = 0; offset < count;) {
                auto* entry = reinterpret_cast<dirent64*>(entries + offset);
                offset += entry->d_reclen;
                if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
                if (::unlinkat(dir, entry->d_name, 0) == 0 || errno != EISDIR || depth == 0) continue;
                std::size_t nameLength = std::strlen(entry->d_name);
                if (length + 1 + nameLength >= capacity) continue;
                path[length] = '/';
                std::memcpy(path + length + 1, entry->d_name, nameLength + 1);
                removeTreeFromSignal(path, length + 1 + nameLength, capacity, depth - 1);
                path[length] = '\0';
            }
        }
        ::close(dir);
    }
    ::rmdir(path);
}

inline void removeFolderFromSignal(const char* folder) {
    static char path[4096];
    std::size_t length = std::strlen(folder);
    if (length >= sizeof path) return;
    std::memcpy(path, folder, length + 1);
    removeTreeFromSignal(path, length, sizeof path, 8);
}

extern "C" inline void removeFoldersAndExit(int number) {
    for (auto& folder : liveFolders)
        if (folder[0] != '\0') removeFolderFromSignal(folder.data());
    ::_exit(128 + number);
}

inline void track(const std::string& path) {
    static bool handlersInstalled = false;
    if (!handlersInstalled) {
        std::signal(SIGINT, removeFoldersAndExit);
        std::signal(SIGTERM, removeFoldersAndExit);
        handlersInstalled = true;
    }
    for (auto& folder : liveFolders) {
        if (folder[0] == '\0' && path.size() < folder.size()) {
            std::memcpy(folder.data(), path.c_str(), path.size() + 1);
            return;
        }
    }
}

inline void untrack(const std::string& path) {
    for (auto& folder : liveFolders)
        if (path == folder.data()) folder[0] = '\0';
}

}  // namespace detail

// A fresh folder under `base` (/tmp unless given), removed with everything in
// it when the object goes, or when the run is interrupted with SIGINT or
// SIGTERM. Real folders on purpose: the figures should include the file system
// and SQLite's WAL as the app meets them.
class TempDir {
public:
    explicit TempDir(const std::string& prefix, const std::string& base = "/tmp") {
        std::string pattern = base + "/" + prefix + "-XXXXXX";
        if (!::mkdtemp(pattern.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
        path_ = pattern;
        detail::track(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        detail::untrack(path_);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// xorshift64*: cheap, deterministic bytes that do not compress or repeat in
// any way SHA-256 could benefit from.
class DeterministicBytes {
public:
    explicit DeterministicBytes(std::uint64_t seed) : state_(seed ? seed : 0x9E3779B97F4A7C15ull) {}

    std::uint64_t next() {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return state_ * 0x2545F4914F6CDD1Dull;
    }

private:
    std::uint64_t state_;
};

// Draws for the generated histories, repeatable from a seed.
class Random {
public:
    explicit Random(std::uint64_t seed) : bytes_(seed) {}
    std::uint64_t next() { return bytes_.next(); }
    // In [0, 1).
    double unit() { return double(next() >> 11) * 0x1.0p-53; }
    double uniform(double low, double high) { return low + (high - low) * unit(); }
    std::size_t below(std::size_t count) { return std::size_t(next() % count); }
    bool chance(double probability) { return unit() < probability; }

private:
    DeterministicBytes bytes_;
};

// Where scratch folders go: $VOSKLIN_BENCH_DIR, else `fallback`.
inline std::string scratchBase(const char* fallback) {
    const char* base = std::getenv("VOSKLIN_BENCH_DIR");
    return base && *base ? base : fallback;
}

// The file system `path` lies on, by name, for the figures' heading.
inline std::string fileSystemName(const std::string& path) {
    struct statfs info {};
    if (::statfs(path.c_str(), &info) != 0) return "unknown";
    switch (static_cast<unsigned long>(info.f_type)) {
        case 0xEF53: return "ext4";
        case 0x58465342: return "xfs";
        case 0x9123683E: return "btrfs";
        case 0x01021994: return "tmpfs";
        case 0x794C7630: return "overlayfs";
        default: {
            char hex[32];
            std::snprintf(hex, sizeof hex, "0x%lx", static_cast<unsigned long>(info.f_type));
            return hex;
        }
    }
}

}  // namespace vosklin::bench

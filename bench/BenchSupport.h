#pragma once

// Small helpers shared by the benchmark executables (header only: every .cpp
// in this folder becomes its own program).

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace vosklin::bench {

namespace detail {

// The folders a Ctrl-C or a kill must still remove. Plain arrays, because the
// signal handler may only use async-signal-safe calls.
inline std::array<std::array<char, 256>, 4> liveFolders{};

// Removes the files directly in `path` and then the folder; the benchmarks
// never create subfolders.
inline void removeFolderFromSignal(const char* path) {
    int dir = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        alignas(8) char entries[4096];
        for (;;) {
            long count = ::syscall(SYS_getdents64, dir, entries, sizeof entries);
            if (count <= 0) break;
            for (long offset = 0; offset < count;) {
                auto* entry = reinterpret_cast<dirent64*>(entries + offset);
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    ::unlinkat(dir, entry->d_name, 0);
                offset += entry->d_reclen;
            }
        }
        ::close(dir);
    }
    ::rmdir(path);
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

// A fresh folder under /tmp, removed with everything in it when the object
// goes, or when the run is interrupted with SIGINT or SIGTERM. Real folders on
// purpose: the figures should include the file system and SQLite's WAL as the
// app meets them.
class TempDir {
public:
    explicit TempDir(const std::string& prefix) {
        std::string pattern = "/tmp/" + prefix + "-XXXXXX";
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

}  // namespace vosklin::bench

#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/PosixFileSystem.h"

namespace vosklin::test {

// The real file system, with faults on request: fail the next matching call
// with a chosen errno (ENOSPC on a write, EIO on a read, EOPNOTSUPP on a
// clone...), or run a hook before every mutating call (a crash point).
class FaultyFileSystem final : public FileSystem {
public:
    enum class Operation {
        create, read, write, syncFile, syncDirectory, syncFileSystem, clone, copy, makeDirectory, rename,
        exchange, removeFile, removeDirectory, renameAt, removeAt, setAttribute, makeSymlink, lock, list,
    };

    // Fails the next `times` calls of `operation` whose path contains `pathPart` with `error`.
    void fail(Operation operation, int error, int times = 1, std::string pathPart = "");
    // Called before every mutating operation with its path; may throw.
    std::function<void(Operation, const std::string&)> beforeMutation;
    // How many calls of each operation were made.
    int count(Operation operation) const;

    std::optional<FileStatus> status(const std::string& path) override { return real_.status(path); }
    std::optional<FileStatus> linkStatus(const std::string& path) override { return real_.linkStatus(path); }
    FileStatus status(int fd) override { return real_.status(fd); }
    std::vector<DirectoryEntry> listDirectory(const std::string& path) override;
    // Every directory listed so far, in order.
    std::vector<std::string> listedDirectories() const;
    std::string readLink(const std::string& path) override { return real_.readLink(path); }
    std::string resolvedPath(const std::string& path) override { return real_.resolvedPath(path); }

    UniqueFd openForReading(const std::string& path) override;
    UniqueFd createExclusive(const std::string& path, mode_t mode) override;
    std::size_t read(int fd, void* buffer, std::size_t size) override;
    void writeAll(int fd, const void* data, std::size_t size) override;
    void syncFile(int fd) override;
    void syncDirectory(const std::string& path) override;
    void syncFileSystem(const std::string& path) override;
    std::size_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) override;
    void cloneFile(int source, int destination, const std::string& destinationPath) override;
    std::uint64_t copyContents(int source, int destination, std::uint64_t most,
                               const std::string& destinationPath) override;
    bool tryLockShared(int fd) override;

    void setMode(int fd, mode_t mode) override { real_.setMode(fd, mode); }
    void setTimes(int fd, const timespec& a, const timespec& m) override { real_.setTimes(fd, a, m); }
    void setLinkTimes(const std::string& p, const timespec& a, const timespec& m) override {
        real_.setLinkTimes(p, a, m);
    }
    std::vector<std::string> attributeNames(int fd) override { return real_.attributeNames(fd); }
    std::optional<std::string> attribute(int fd, const std::string& name) override {
        return real_.attribute(fd, name);
    }
    void setAttribute(int fd, const std::string& name, std::string_view value) override;
    std::optional<std::string> linkAttribute(const std::string& path, const std::string& name) override {
        return real_.linkAttribute(path, name);
    }

    bool makeDirectory(const std::string& path, mode_t mode) override;
    void makeSymlink(const std::string& target, const std::string& path) override;
    void rename(const std::string& from, const std::string& to) override;
    void exchange(const std::string& first, const std::string& second) override;
    void removeFile(const std::string& path) override;
    void removeDirectory(const std::string& path) override;

    UniqueFd openDirectoryBeneath(const std::string& root, const std::string& relative) override {
        return real_.openDirectoryBeneath(root, relative);
    }
    std::optional<FileStatus> statAt(int directory, const std::string& name) override {
        return real_.statAt(directory, name);
    }
    void renameAt(int directory, const std::string& from, const std::string& to, bool exchange) override;
    void removeAt(int directory, const std::string& name, bool isDirectory) override;
    void syncDirectory(int directory) override { real_.syncDirectory(directory); }

private:
    struct Fault {
        Operation operation;
        int error;
        int remaining;
        std::string pathPart;
    };
    // Counts the call, runs the hook for mutations and throws a pending fault.
    void check(Operation operation, const std::string& path, bool mutating);
    std::string pathOf(int fd) const;

    PosixFileSystem real_;
    mutable std::mutex lock_;
    std::vector<Fault> faults_;
    std::map<Operation, int> counts_;
    std::map<int, std::string> paths_;  // descriptors this wrapper opened
    std::vector<std::string> listed_;
};

}  // namespace vosklin::test

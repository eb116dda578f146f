#pragma once

#include "platform/FileSystem.h"

namespace vosklin {

// FileSystem over the Linux system calls. Stateless and thread-safe.
class PosixFileSystem final : public FileSystem {
public:
    std::optional<FileStatus> status(const std::string& path) override;
    std::optional<FileStatus> linkStatus(const std::string& path) override;
    FileStatus status(int fd) override;
    std::vector<DirectoryEntry> listDirectory(const std::string& path) override;
    std::string readLink(const std::string& path) override;
    std::string resolvedPath(const std::string& path) override;

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

    void setMode(int fd, mode_t mode) override;
    void setTimes(int fd, const timespec& accessed, const timespec& modified) override;
    void setLinkTimes(const std::string& path, const timespec& accessed, const timespec& modified) override;
    std::vector<std::string> attributeNames(int fd) override;
    std::optional<std::string> attribute(int fd, const std::string& name) override;
    void setAttribute(int fd, const std::string& name, std::string_view value) override;
    std::optional<std::string> linkAttribute(const std::string& path, const std::string& name) override;

    bool makeDirectory(const std::string& path, mode_t mode) override;
    void makeSymlink(const std::string& target, const std::string& path) override;
    void rename(const std::string& from, const std::string& to) override;
    void exchange(const std::string& first, const std::string& second) override;
    void removeFile(const std::string& path) override;
    void removeDirectory(const std::string& path) override;

    UniqueFd openDirectoryBeneath(const std::string& root, const std::string& relative) override;
    std::optional<FileStatus> statAt(int directory, const std::string& name) override;
    void renameAt(int directory, const std::string& from, const std::string& to, bool exchange) override;
    void removeAt(int directory, const std::string& name, bool isDirectory) override;
    void syncDirectory(int directory) override;
};

}  // namespace vosklin

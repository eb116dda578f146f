#include "support/FaultyFileSystem.h"

#include "platform/FileSystemError.h"

namespace vosklin::test {

void FaultyFileSystem::fail(Operation operation, int error, int times, std::string pathPart) {
    std::lock_guard guard(lock_);
    faults_.push_back({operation, error, times, std::move(pathPart)});
}

int FaultyFileSystem::count(Operation operation) const {
    std::lock_guard guard(lock_);
    auto found = counts_.find(operation);
    return found == counts_.end() ? 0 : found->second;
}

std::string FaultyFileSystem::pathOf(int fd) const {
    std::lock_guard guard(lock_);
    auto found = paths_.find(fd);
    return found == paths_.end() ? "(descriptor " + std::to_string(fd) + ")" : found->second;
}

void FaultyFileSystem::check(Operation operation, const std::string& path, bool mutating) {
    if (mutating && beforeMutation) beforeMutation(operation, path);
    std::lock_guard guard(lock_);
    ++counts_[operation];
    for (auto& fault : faults_) {
        if (fault.operation != operation || fault.remaining <= 0) continue;
        if (!fault.pathPart.empty() && path.find(fault.pathPart) == std::string::npos) continue;
        --fault.remaining;
        throw FileSystemError(fault.error, "injected", path);
    }
}

std::vector<DirectoryEntry> FaultyFileSystem::listDirectory(const std::string& path) {
    check(Operation::list, path, false);
    {
        std::lock_guard guard(lock_);
        listed_.push_back(path);
    }
    return real_.listDirectory(path);
}

std::vector<std::string> FaultyFileSystem::listedDirectories() const {
    std::lock_guard guard(lock_);
    return listed_;
}

UniqueFd FaultyFileSystem::openForReading(const std::string& path) {
    UniqueFd fd = real_.openForReading(path);
    std::lock_guard guard(lock_);
    paths_[fd.get()] = path;
    return fd;
}

UniqueFd FaultyFileSystem::createExclusive(const std::string& path, mode_t mode) {
    check(Operation::create, path, true);
    UniqueFd fd = real_.createExclusive(path, mode);
    std::lock_guard guard(lock_);
    paths_[fd.get()] = path;
    return fd;
}

std::size_t FaultyFileSystem::read(int fd, void* buffer, std::size_t size) {
    check(Operation::read, pathOf(fd), false);
    return real_.read(fd, buffer, size);
}

void FaultyFileSystem::writeAll(int fd, const void* data, std::size_t size) {
    check(Operation::write, pathOf(fd), true);
    real_.writeAll(fd, data, size);
}

void FaultyFileSystem::syncFile(int fd) {
    check(Operation::syncFile, pathOf(fd), true);
    real_.syncFile(fd);
}

void FaultyFileSystem::syncDirectory(const std::string& path) {
    check(Operation::syncDirectory, path, true);
    real_.syncDirectory(path);
}

void FaultyFileSystem::syncFileSystem(const std::string& path) {
    check(Operation::syncFileSystem, path, true);
    real_.syncFileSystem(path);
}

std::size_t FaultyFileSystem::readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
    check(Operation::read, pathOf(fd), false);
    return real_.readAt(fd, buffer, size, offset);
}

void FaultyFileSystem::cloneFile(int source, int destination, const std::string& destinationPath) {
    check(Operation::clone, destinationPath, true);
    real_.cloneFile(source, destination, destinationPath);
}

std::uint64_t FaultyFileSystem::copyContents(int source, int destination, std::uint64_t most,
                                             const std::string& destinationPath) {
    check(Operation::copy, destinationPath, true);
    return real_.copyContents(source, destination, most, destinationPath);
}

bool FaultyFileSystem::tryLockShared(int fd) {
    check(Operation::lock, pathOf(fd), false);
    return real_.tryLockShared(fd);
}

void FaultyFileSystem::setAttribute(int fd, const std::string& name, std::string_view value) {
    check(Operation::setAttribute, pathOf(fd), true);
    real_.setAttribute(fd, name, value);
}

bool FaultyFileSystem::makeDirectory(const std::string& path, mode_t mode) {
    check(Operation::makeDirectory, path, true);
    return real_.makeDirectory(path, mode);
}

void FaultyFileSystem::makeSymlink(const std::string& target, const std::string& path) {
    check(Operation::makeSymlink, path, true);
    real_.makeSymlink(target, path);
}

void FaultyFileSystem::rename(const std::string& from, const std::string& to) {
    check(Operation::rename, from, true);
    real_.rename(from, to);
}

void FaultyFileSystem::exchange(const std::string& first, const std::string& second) {
    check(Operation::exchange, first, true);
    real_.exchange(first, second);
}

void FaultyFileSystem::removeFile(const std::string& path) {
    check(Operation::removeFile, path, true);
    real_.removeFile(path);
}

void FaultyFileSystem::removeDirectory(const std::string& path) {
    check(Operation::removeDirectory, path, true);
    real_.removeDirectory(path);
}

void FaultyFileSystem::renameAt(int directory, const std::string& from, const std::string& to, bool exchange) {
    check(Operation::renameAt, to, true);
    real_.renameAt(directory, from, to, exchange);
}

void FaultyFileSystem::removeAt(int directory, const std::string& name, bool isDirectory) {
    check(Operation::removeAt, name, true);
    real_.removeAt(directory, name, isDirectory);
}

}  // namespace vosklin::test

#include "platform/PosixFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <deque>
#include <memory>
#include <vector>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

[[noreturn]] void fail(const char* operation, const std::string& path) {
    throw FileSystemError(errno, operation, path);
}

std::string describeFd(int fd) { return "(descriptor " + std::to_string(fd) + ")"; }

FileStatus fromStat(const struct stat& st) {
    FileStatus status;
    if (S_ISREG(st.st_mode)) status.type = FileType::regular;
    else if (S_ISDIR(st.st_mode)) status.type = FileType::directory;
    else if (S_ISLNK(st.st_mode)) status.type = FileType::symlink;
    else status.type = FileType::other;
    status.size = st.st_size;
    status.mode = st.st_mode & 07777;
    status.inode = st.st_ino;
    status.device = st.st_dev;
    status.accessed = st.st_atim;
    status.modified = st.st_mtim;
    return status;
}

bool isAbsent(int error) { return error == ENOENT || error == ENOTDIR; }

// A path handed to an *at() call: the directory it is resolved from and the
// name within it. A path the kernel would refuse as too long (PATH_MAX counts
// the whole string) is reached through a chain of directory descriptors, each
// opened from the last with a piece of the path short enough, so that the depth
// of a tree never decides whether it can be read or written.
class AtPath {
public:
    explicit AtPath(std::string path) {
        if (path.size() < PATH_MAX) {
            name_ = std::move(path);
            return;
        }
        while (path.size() > 1 && path.back() == '/') path.pop_back();
        const std::size_t slash = path.find_last_of('/');
        name_ = path.substr(slash + 1);
        std::string parent = path.substr(0, slash);
        if (parent.empty()) parent = "/";
        int from = AT_FDCWD;
        std::size_t start = 0;
        while (start < parent.size()) {
            std::size_t end = parent.size();
            if (end - start >= PATH_MAX) {
                end = parent.rfind('/', start + PATH_MAX - 1);
                if (end == std::string::npos || end <= start) throw FileSystemError(ENAMETOOLONG, "open", path);
            }
            std::string piece = parent.substr(start, end - start);
            if (piece.empty()) piece = "/";
            const int next = ::openat(from, piece.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
            if (next < 0) throw FileSystemError(errno, "open", parent.substr(0, end));
            directory_.reset(next);
            from = next;
            start = end + 1;
        }
    }

    int at() const { return directory_ ? directory_.get() : AT_FDCWD; }
    const char* name() const { return name_.c_str(); }
    // A path naming the same item through /proc, for the calls that have no *at() form.
    std::string procPath() const {
        return directory_ ? descriptorPath(directory_.get()) + "/" + name_ : name_;
    }

private:
    UniqueFd directory_;
    std::string name_;
};

// The AtPath of `path`, or nothing when a parent on the way is missing.
std::optional<AtPath> reachUnlessAbsent(const std::string& path) {
    try {
        return AtPath(path);
    } catch (const FileSystemError& error) {
        if (isAbsent(error.errorNumber())) return std::nullopt;
        throw;
    }
}

}  // namespace

std::optional<FileStatus> PosixFileSystem::status(const std::string& path) {
    struct stat st {};
    const auto reached = reachUnlessAbsent(path);
    if (!reached) return std::nullopt;
    const AtPath& at = *reached;
    if (::fstatat(at.at(), at.name(), &st, 0) != 0) {
        if (isAbsent(errno)) return std::nullopt;
        fail("stat", path);
    }
    return fromStat(st);
}

std::optional<FileStatus> PosixFileSystem::linkStatus(const std::string& path) {
    struct stat st {};
    const auto reached = reachUnlessAbsent(path);
    if (!reached) return std::nullopt;
    const AtPath& at = *reached;
    if (::fstatat(at.at(), at.name(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (isAbsent(errno)) return std::nullopt;
        fail("lstat", path);
    }
    return fromStat(st);
}

FileStatus PosixFileSystem::status(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) fail("fstat", describeFd(fd));
    return fromStat(st);
}

std::vector<DirectoryEntry> PosixFileSystem::listDirectory(const std::string& path) {
    AtPath at(path);
    const int fd = ::openat(at.at(), at.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("opendir", path);
    std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(fd), ::closedir);
    if (!directory) {
        ::close(fd);
        fail("opendir", path);
    }
    std::vector<DirectoryEntry> entries;
    errno = 0;
    while (dirent* entry = ::readdir(directory.get())) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        FileType type = FileType::other;
        switch (entry->d_type) {
            case DT_REG: type = FileType::regular; break;
            case DT_DIR: type = FileType::directory; break;
            case DT_LNK: type = FileType::symlink; break;
            default: break;
        }
        entries.push_back({std::move(name), type});
        errno = 0;
    }
    if (errno != 0) fail("readdir", path);
    return entries;
}

std::string PosixFileSystem::readLink(const std::string& path) {
    std::string target(PATH_MAX, '\0');
    AtPath at(path);
    ssize_t length = ::readlinkat(at.at(), at.name(), target.data(), target.size());
    if (length < 0) fail("readlink", path);
    target.resize(std::size_t(length));
    return target;
}

std::string PosixFileSystem::resolvedPath(const std::string& path) {
    if (path.size() < PATH_MAX) {
        std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), std::free);
        if (!resolved) fail("realpath", path);
        return resolved.get();
    }
    // realpath(3) refuses what is longer than PATH_MAX: resolve it one component at a
    // time, with the calls above, which reach any depth.
    std::deque<std::string> pending;
    auto queue = [&](const std::string& text, bool first) {
        std::vector<std::string> parts;
        for (std::size_t start = 0; start <= text.size();) {
            std::size_t end = text.find('/', start);
            if (end == std::string::npos) end = text.size();
            if (end > start) parts.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        if (first) pending.insert(pending.begin(), parts.begin(), parts.end());
        else pending.insert(pending.end(), parts.begin(), parts.end());
    };
    queue(absolutePath(path), false);
    std::string resolved = "/";
    int links = 0;
    while (!pending.empty()) {
        const std::string component = std::move(pending.front());
        pending.pop_front();
        if (component == ".") continue;
        if (component == "..") {
            resolved = parentPath(resolved);
            continue;
        }
        const std::string candidate = joinPath(resolved, component);
        const auto found = linkStatus(candidate);
        if (!found) throw FileSystemError(ENOENT, "realpath", path);
        if (found->type != FileType::symlink) {
            if (!pending.empty() && !found->isDirectory()) throw FileSystemError(ENOTDIR, "realpath", path);
            resolved = candidate;
            continue;
        }
        if (++links > 40) throw FileSystemError(ELOOP, "realpath", path);
        const std::string target = readLink(candidate);
        if (!target.empty() && target.front() == '/') resolved = "/";
        queue(target, true);
    }
    return resolved;
}

UniqueFd PosixFileSystem::openForReading(const std::string& path) {
    // O_NONBLOCK only for the open itself: a named pipe without a writer (or a
    // device) would otherwise hold the caller in open(2) indefinitely.
    AtPath at(path);
    int fd = ::openat(at.at(), at.name(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) fail("open", path);
    UniqueFd file(fd);
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) fail("fcntl", path);
    return file;
}

UniqueFd PosixFileSystem::createExclusive(const std::string& path, mode_t mode) {
    AtPath at(path);
    int fd = ::openat(at.at(), at.name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) fail("create", path);
    return UniqueFd(fd);
}

std::size_t PosixFileSystem::read(int fd, void* buffer, std::size_t size) {
    for (;;) {
        ssize_t count = ::read(fd, buffer, size);
        if (count >= 0) return std::size_t(count);
        if (errno != EINTR) fail("read", describeFd(fd));
    }
}

void PosixFileSystem::writeAll(int fd, const void* data, std::size_t size) {
    auto bytes = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t count = ::write(fd, bytes, size);
        if (count < 0) {
            if (errno == EINTR) continue;
            fail("write", describeFd(fd));
        }
        bytes += count;
        size -= std::size_t(count);
    }
}

void PosixFileSystem::syncFile(int fd) {
    if (::fsync(fd) != 0) fail("fsync", describeFd(fd));
}

void PosixFileSystem::syncDirectory(const std::string& path) {
    AtPath at(path);
    int fd = ::openat(at.at(), at.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("open", path);
    UniqueFd directory(fd);
    if (::fsync(directory.get()) != 0) fail("fsync", path);
}

void PosixFileSystem::syncFileSystem(const std::string& path) {
    AtPath at(path);
    int fd = ::openat(at.at(), at.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("open", path);
    UniqueFd directory(fd);
    if (::syncfs(directory.get()) != 0) fail("syncfs", path);
}

std::size_t PosixFileSystem::readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
    auto bytes = static_cast<char*>(buffer);
    std::size_t total = 0;
    while (total < size) {
        ssize_t count = ::pread(fd, bytes + total, size - total, off_t(offset + total));
        if (count < 0) {
            if (errno == EINTR) continue;
            fail("pread", describeFd(fd));
        }
        if (count == 0) break;
        total += std::size_t(count);
    }
    return total;
}

void PosixFileSystem::cloneFile(int source, int destination, const std::string& destinationPath) {
    if (::ioctl(destination, FICLONE, source) != 0) fail("clone", destinationPath);
}

std::uint64_t PosixFileSystem::copyContents(int source, int destination, std::uint64_t most,
                                            const std::string& destinationPath) {
    for (;;) {
        ssize_t count = ::copy_file_range(source, nullptr, destination, nullptr, std::size_t(most), 0);
        if (count >= 0) return std::uint64_t(count);
        if (errno == EINTR) continue;
        // Kernels and file systems that cannot do it in-kernel say so; copy by hand.
        if (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL) break;
        fail("copy", destinationPath);
    }
    static constexpr std::size_t chunk = 1 << 20;
    std::unique_ptr<char[]> buffer(new char[chunk]);
    const std::size_t count = read(source, buffer.get(), std::size_t(std::min<std::uint64_t>(most, chunk)));
    writeAll(destination, buffer.get(), count);
    return count;
}

bool PosixFileSystem::tryLockShared(int fd) {
    for (;;) {
        if (::flock(fd, LOCK_SH | LOCK_NB) == 0) return true;
        if (errno == EINTR) continue;
        if (errno == EWOULDBLOCK) return false;
        fail("flock", describeFd(fd));
    }
}

void PosixFileSystem::setMode(int fd, mode_t mode) {
    if (::fchmod(fd, mode) != 0) fail("chmod", describeFd(fd));
}

void PosixFileSystem::setTimes(int fd, const timespec& accessed, const timespec& modified) {
    const timespec times[2] = {accessed, modified};
    if (::futimens(fd, times) != 0) fail("utimens", describeFd(fd));
}

void PosixFileSystem::setLinkTimes(const std::string& path, const timespec& accessed, const timespec& modified) {
    const timespec times[2] = {accessed, modified};
    AtPath at(path);
    if (::utimensat(at.at(), at.name(), times, AT_SYMLINK_NOFOLLOW) != 0) fail("utimensat", path);
}

std::vector<std::string> PosixFileSystem::attributeNames(int fd) {
    for (;;) {
        ssize_t size = ::flistxattr(fd, nullptr, 0);
        if (size < 0) {
            if (errno == ENOTSUP) return {};
            fail("listxattr", describeFd(fd));
        }
        std::string buffer(std::size_t(size), '\0');
        ssize_t got = ::flistxattr(fd, buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == ERANGE) continue;  // the list grew between the two calls
            fail("listxattr", describeFd(fd));
        }
        std::vector<std::string> names;
        std::size_t start = 0;
        while (start < std::size_t(got)) {
            std::size_t end = buffer.find('\0', start);
            if (end == std::string::npos || end > std::size_t(got)) end = std::size_t(got);
            if (end > start) names.push_back(buffer.substr(start, end - start));
            start = end + 1;
        }
        return names;
    }
}

std::optional<std::string> PosixFileSystem::attribute(int fd, const std::string& name) {
    for (;;) {
        ssize_t size = ::fgetxattr(fd, name.c_str(), nullptr, 0);
        if (size < 0) {
            if (errno == ENODATA || errno == ENOTSUP) return std::nullopt;
            fail("getxattr", describeFd(fd));
        }
        std::string value(std::size_t(size), '\0');
        ssize_t got = ::fgetxattr(fd, name.c_str(), value.data(), value.size());
        if (got < 0) {
            if (errno == ERANGE) continue;
            if (errno == ENODATA) return std::nullopt;
            fail("getxattr", describeFd(fd));
        }
        value.resize(std::size_t(got));
        return value;
    }
}

void PosixFileSystem::setAttribute(int fd, const std::string& name, std::string_view value) {
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) != 0) fail("setxattr", describeFd(fd));
}

std::optional<std::string> PosixFileSystem::linkAttribute(const std::string& path, const std::string& name) {
    const auto at = reachUnlessAbsent(path);
    if (!at) return std::nullopt;
    const std::string reachable = at->procPath();
    for (;;) {
        ssize_t size = ::lgetxattr(reachable.c_str(), name.c_str(), nullptr, 0);
        if (size < 0) {
            if (errno == ENODATA || errno == ENOTSUP || isAbsent(errno)) return std::nullopt;
            fail("lgetxattr", path);
        }
        std::string value(std::size_t(size), '\0');
        ssize_t got = ::lgetxattr(reachable.c_str(), name.c_str(), value.data(), value.size());
        if (got < 0) {
            if (errno == ERANGE) continue;
            if (errno == ENODATA || isAbsent(errno)) return std::nullopt;
            fail("lgetxattr", path);
        }
        value.resize(std::size_t(got));
        return value;
    }
}

bool PosixFileSystem::makeDirectory(const std::string& path, mode_t mode) {
    AtPath at(path);
    if (::mkdirat(at.at(), at.name(), mode) == 0) return true;
    if (errno == EEXIST) return false;
    fail("mkdir", path);
}

void PosixFileSystem::makeSymlink(const std::string& target, const std::string& path) {
    AtPath at(path);
    if (::symlinkat(target.c_str(), at.at(), at.name()) != 0) fail("symlink", path);
}

void PosixFileSystem::rename(const std::string& from, const std::string& to) {
    AtPath source(from), destination(to);
    if (::renameat(source.at(), source.name(), destination.at(), destination.name()) != 0) fail("rename", from + " -> " + to);
}

void PosixFileSystem::exchange(const std::string& first, const std::string& second) {
    AtPath one(first), other(second);
    if (::renameat2(one.at(), one.name(), other.at(), other.name(), RENAME_EXCHANGE) != 0)
        fail("exchange", first + " <-> " + second);
}

void PosixFileSystem::removeFile(const std::string& path) {
    AtPath at(path);
    if (::unlinkat(at.at(), at.name(), 0) != 0) fail("unlink", path);
}

void PosixFileSystem::removeDirectory(const std::string& path) {
    AtPath at(path);
    if (::unlinkat(at.at(), at.name(), AT_REMOVEDIR) != 0) fail("rmdir", path);
}

UniqueFd PosixFileSystem::openDirectoryBeneath(const std::string& root, const std::string& relative) {
    AtPath at(root);
    int fd = ::openat(at.at(), at.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("open", root);
    UniqueFd current(fd);
    std::string walked = root;
    std::size_t start = 0;
    while (start < relative.size()) {
        std::size_t end = relative.find('/', start);
        if (end == std::string::npos) end = relative.size();
        const std::string component = relative.substr(start, end - start);
        start = end + 1;
        if (component.empty() || component == ".") continue;
        walked += "/" + component;
        if (component == "..") throw FileSystemError(EPERM, "open", walked);
        int next = ::openat(current.get(), component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0) fail("open", walked);
        current.reset(next);
    }
    return current;
}

std::optional<FileStatus> PosixFileSystem::statAt(int directory, const std::string& name) {
    struct stat st {};
    if (::fstatat(directory, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) return std::nullopt;
        fail("fstatat", name);
    }
    return fromStat(st);
}

void PosixFileSystem::renameAt(int directory, const std::string& from, const std::string& to, bool exchange) {
    if (::renameat2(directory, from.c_str(), directory, to.c_str(), exchange ? RENAME_EXCHANGE : 0) != 0)
        fail(exchange ? "exchange" : "rename", from + " -> " + to);
}

void PosixFileSystem::removeAt(int directory, const std::string& name, bool isDirectory) {
    if (::unlinkat(directory, name.c_str(), isDirectory ? AT_REMOVEDIR : 0) != 0) fail("unlink", name);
}

void PosixFileSystem::syncDirectory(int directory) {
    if (::fsync(directory) != 0) fail("fsync", describeFd(directory));
}

}  // namespace vosklin

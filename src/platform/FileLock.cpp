#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/FileSystemError.h"

namespace vosklin {

namespace {

UniqueFd openLockFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd) throw FileSystemError(errno, "open", path);
    return fd;
}

int operation(FileLock::Mode mode) { return mode == FileLock::Mode::shared ? LOCK_SH : LOCK_EX; }

}  // namespace

FileLock FileLock::acquire(const std::string& path, Mode mode) {
    UniqueFd fd = openLockFile(path);
    while (::flock(fd.get(), operation(mode)) != 0)
        if (errno != EINTR) throw FileSystemError(errno, "flock", path);
    return FileLock(std::move(fd));
}

FileLock FileLock::tryAcquire(const std::string& path, Mode mode, double seconds) {
    UniqueFd fd = openLockFile(path);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        if (::flock(fd.get(), operation(mode) | LOCK_NB) == 0) return FileLock(std::move(fd));
        if (errno != EWOULDBLOCK && errno != EINTR) throw FileSystemError(errno, "flock", path);
        if (std::chrono::steady_clock::now() >= deadline) return FileLock(UniqueFd());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace vosklin

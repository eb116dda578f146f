#include "platform/DiskSpace.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/FileSystemError.h"
#include "platform/UniqueFd.h"

namespace vosklin::DiskSpace {

namespace {

constexpr unsigned extentsPerCall = 256;

// The unshared bytes of one open regular file, or nothing when FIEMAP is not supported.
std::optional<std::int64_t> unsharedExtentBytes(int fd) {
    std::vector<char> buffer(sizeof(fiemap) + extentsPerCall * sizeof(fiemap_extent));
    auto* map = reinterpret_cast<fiemap*>(buffer.data());
    std::int64_t total = 0;
    std::uint64_t start = 0;
    for (;;) {
        std::fill(buffer.begin(), buffer.end(), 0);
        map->fm_start = start;
        map->fm_length = FIEMAP_MAX_OFFSET - start;
        // No FIEMAP_FLAG_SYNC: payloads are synced when captured, and forcing it would write back every file measured.
        map->fm_extent_count = extentsPerCall;
        if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0) {
            if (errno == EOPNOTSUPP || errno == ENOTTY || errno == EINVAL) return std::nullopt;
            throw FileSystemError(errno, "fiemap", "");
        }
        if (map->fm_mapped_extents == 0) return total;
        bool last = false;
        for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = map->fm_extents[i];
            // Inline and unwritten extents still take room; only sharing makes bytes someone else's.
            if (!(extent.fe_flags & FIEMAP_EXTENT_SHARED)) total += std::int64_t(extent.fe_length);
            if (extent.fe_flags & FIEMAP_EXTENT_LAST) last = true;
            start = extent.fe_logical + extent.fe_length;
        }
        if (last) return total;
    }
}

std::int64_t privateBytesAt(int directory, const char* name) {
    struct stat status {};
    if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) return 0;
        throw FileSystemError(errno, "stat", name);
    }
    const std::int64_t allocated = std::int64_t(status.st_blocks) * 512;
    if (S_ISREG(status.st_mode)) {
        UniqueFd fd(::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY));
        if (!fd) return errno == ENOENT ? 0 : allocated;
        return unsharedExtentBytes(fd.get()).value_or(allocated);
    }
    if (!S_ISDIR(status.st_mode)) return allocated;
    UniqueFd fd(::openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT) return 0;
        throw FileSystemError(errno, "open", name);
    }
    DIR* listing = ::fdopendir(::dup(fd.get()));
    if (!listing) throw FileSystemError(errno, "opendir", name);
    std::int64_t total = allocated;
    while (dirent* entry = ::readdir(listing)) {
        const std::string child = entry->d_name;
        if (child == "." || child == "..") continue;
        try {
            total += privateBytesAt(fd.get(), child.c_str());
        } catch (...) {
            ::closedir(listing);
            throw;
        }
    }
    ::closedir(listing);
    return total;
}

}  // namespace

std::optional<std::int64_t> availableBytes(const std::string& path) {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
    return std::int64_t(volume.f_bavail) * std::int64_t(volume.f_frsize);
}

std::int64_t privateBytes(const std::string& path) {
    try {
        return privateBytesAt(AT_FDCWD, path.c_str());
    } catch (const FileSystemError& error) {
        throw FileSystemError(error.errorNumber(), "measure", path);
    }
}

}  // namespace vosklin::DiskSpace

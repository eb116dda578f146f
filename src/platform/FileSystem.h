#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileStatus.h"
#include "platform/UniqueFd.h"

namespace vosklin {

// The one door through which Vosklin touches the file system for anything that
// writes, syncs, clones or can fail in an interesting way. Production code uses
// PosixFileSystem; tests wrap it to inject ENOSPC, EIO, a refused clone or a
// crash at a chosen step.
//
// Contract: every failure is thrown as FileSystemError carrying errno, the
// operation and the path. The exceptions are the look-ups that answer "nothing
// there" as a value (status on a missing path). Implementations are safe to
// call from several threads at once; they hold no state of their own between
// calls. Paths are byte strings as the kernel sees them (not necessarily UTF-8).
class FileSystem {
public:
    virtual ~FileSystem() = default;

    // --- Metadata -----------------------------------------------------------
    // stat(2), following links. Absent when nothing is there (ENOENT, ENOTDIR).
    virtual std::optional<FileStatus> status(const std::string& path) = 0;
    // lstat(2): a link is described as itself. Absent when nothing is there.
    virtual std::optional<FileStatus> linkStatus(const std::string& path) = 0;
    virtual FileStatus status(int fd) = 0;
    // The entries of a directory, without "." and "..", in no particular order.
    virtual std::vector<DirectoryEntry> listDirectory(const std::string& path) = 0;
    virtual std::string readLink(const std::string& path) = 0;
    // realpath(3): the absolute path with every link resolved.
    virtual std::string resolvedPath(const std::string& path) = 0;

    // --- Descriptors --------------------------------------------------------
    // O_RDONLY, never following a final link (ELOOP for a link).
    virtual UniqueFd openForReading(const std::string& path) = 0;
    // O_WRONLY | O_CREAT | O_EXCL: EEXIST when anything is there already.
    virtual UniqueFd createExclusive(const std::string& path, mode_t mode) = 0;
    // Reads up to `size` bytes; 0 at the end of the file. Retries EINTR.
    virtual std::size_t read(int fd, void* buffer, std::size_t size) = 0;
    virtual void writeAll(int fd, const void* data, std::size_t size) = 0;
    virtual void syncFile(int fd) = 0;
    virtual void syncDirectory(const std::string& path) = 0;
    // syncfs(2): everything written to the file system holding `path` reaches the disk.
    virtual void syncFileSystem(const std::string& path) = 0;
    // pread(2): up to `size` bytes at `offset`; fewer only at the end of the file.
    virtual std::size_t readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) = 0;
    // ioctl(FICLONE): share the source's blocks. Throws with the kernel's errno
    // (EOPNOTSUPP, EXDEV, EINVAL... when the file system cannot clone).
    virtual void cloneFile(int source, int destination, const std::string& destinationPath) = 0;
    // Copies up to `most` bytes from the source's position to the destination's
    // (copy_file_range, in the kernel; read and write where it cannot). Returns the
    // bytes copied, 0 only at the source's end: callers loop, and may stop in between.
    virtual std::uint64_t copyContents(int source, int destination, std::uint64_t most,
                                       const std::string& destinationPath) = 0;
    // flock(LOCK_SH | LOCK_NB): false when another process holds it exclusively.
    virtual bool tryLockShared(int fd) = 0;

    // --- Attributes ---------------------------------------------------------
    virtual void setMode(int fd, mode_t mode) = 0;
    virtual void setTimes(int fd, const timespec& accessed, const timespec& modified) = 0;
    virtual void setLinkTimes(const std::string& path, const timespec& accessed, const timespec& modified) = 0;
    virtual std::vector<std::string> attributeNames(int fd) = 0;
    virtual std::optional<std::string> attribute(int fd, const std::string& name) = 0;
    virtual void setAttribute(int fd, const std::string& name, std::string_view value) = 0;
    // lgetxattr(2) of a path, not following a link. Absent when the attribute is not set.
    virtual std::optional<std::string> linkAttribute(const std::string& path, const std::string& name) = 0;

    // --- Names --------------------------------------------------------------
    // mkdir(2). Returns false, without throwing, when something already exists there.
    virtual bool makeDirectory(const std::string& path, mode_t mode) = 0;
    virtual void makeSymlink(const std::string& target, const std::string& path) = 0;
    virtual void rename(const std::string& from, const std::string& to) = 0;
    // renameat2(RENAME_EXCHANGE): swaps two existing items atomically.
    virtual void exchange(const std::string& first, const std::string& second) = 0;
    virtual void removeFile(const std::string& path) = 0;
    virtual void removeDirectory(const std::string& path) = 0;

    // --- Relative to an open directory, never following a link ---------------
    // Writes into a user's folder go through these, so that a link swapped into
    // the path after it was checked cannot send them anywhere else.
    //
    // Opens `root` and then each component of `relative` below it with
    // O_NOFOLLOW: ELOOP when any of them is a symbolic link, ENOTDIR when one
    // is not a directory.
    virtual UniqueFd openDirectoryBeneath(const std::string& root, const std::string& relative) = 0;
    // fstatat(AT_SYMLINK_NOFOLLOW). Absent when nothing is there.
    virtual std::optional<FileStatus> statAt(int directory, const std::string& name) = 0;
    // renameat within one directory; with `exchange`, RENAME_EXCHANGE (both must exist).
    virtual void renameAt(int directory, const std::string& from, const std::string& to, bool exchange) = 0;
    // unlinkat of a file (or, with `isDirectory`, an empty directory).
    virtual void removeAt(int directory, const std::string& name, bool isDirectory) = 0;
    virtual void syncDirectory(int directory) = 0;
};

// The path by which the kernel reaches what `fd` refers to ("/proc/self/fd/N"):
// work inside an opened directory through it without resolving its path again.
std::string descriptorPath(int fd);

// Helpers built only from the interface above, so an injected fault reaches them too.

// mkdir -p. Existing directories are fine; anything else in the way throws ENOTDIR.
void makeDirectories(FileSystem& fileSystem, const std::string& path, mode_t mode = 0755);
// `path` made absolute with every symbolic link in its parent folders resolved,
// the last component left as it is (a link stays a link). Parents that no
// longer exist are kept as written.
std::string resolveParentLinks(FileSystem& fileSystem, const std::string& path);
// The whole contents of a (small) file; failures are thrown.
std::string readWholeFile(FileSystem& fileSystem, const std::string& path);
// rm -rf without following links. Nothing at the path is not an error.
void removeAll(FileSystem& fileSystem, const std::string& path);

}  // namespace vosklin

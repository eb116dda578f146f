#include "platform/RegularFile.h"

#include <cerrno>

#include "platform/FileSystemError.h"

namespace vosklin {

std::optional<OpenedFile> openRegularFile(FileSystem& fileSystem, const std::string& path,
                                          const FileStatus* expected) {
    UniqueFd fd;
    try {
        fd = fileSystem.openForReading(path);
    } catch (const FileSystemError& error) {
        // A link (ELOOP) or a socket (ENXIO) is not a regular file either.
        if (error.errorNumber() == ELOOP || error.errorNumber() == ENXIO) return std::nullopt;
        throw;
    }
    FileStatus status = fileSystem.status(fd.get());
    if (!status.isRegular()) return std::nullopt;
    if (expected && (status.device != expected->device || status.inode != expected->inode)) return std::nullopt;
    return OpenedFile{std::move(fd), status};
}

}  // namespace vosklin

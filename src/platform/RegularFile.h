#pragma once

#include <optional>
#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// A regular file opened for reading, with what fstat says of it.
struct OpenedFile {
    UniqueFd fd;
    FileStatus status;
};

// Opens `path` only if it is a regular file. The open never waits (a named
// pipe without a writer, a device) and what was opened is checked with fstat
// afterwards, so nothing swapped in after an earlier look slips through. With
// `expected`, it must also be that very file (same device and inode).
// Nothing when it is not: a pipe, socket, device, directory or link, or
// another file. Any other failure is thrown as FileSystemError.
std::optional<OpenedFile> openRegularFile(FileSystem& fileSystem, const std::string& path,
                                          const FileStatus* expected = nullptr);

}  // namespace vosklin

#include "platform/AtomicFile.h"

#include <sys/random.h>

#include <cstdio>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

std::string uniqueSiblingName(const std::string& path, std::string_view tag) {
    unsigned char random[8] = {};
    std::size_t filled = 0;
    while (filled < sizeof random) {
        ssize_t got = ::getrandom(random + filled, sizeof random - filled, 0);
        if (got > 0) filled += std::size_t(got);
    }
    char hex[17] = {};
    for (std::size_t i = 0; i < sizeof random; ++i) std::snprintf(hex + 2 * i, 3, "%02x", random[i]);
    return path + "." + std::string(tag) + "-" + hex;
}

void writeFileAtomically(FileSystem& fileSystem, const std::string& path, std::string_view contents, mode_t mode,
                         Durability durability) {
    const std::string temporary = uniqueSiblingName(path, "tmp");
    try {
        {
            UniqueFd file = fileSystem.createExclusive(temporary, mode);
            fileSystem.writeAll(file.get(), contents.data(), contents.size());
            if (durability == Durability::synced) fileSystem.syncFile(file.get());
        }
        fileSystem.rename(temporary, path);
    } catch (...) {
        try {
            if (fileSystem.linkStatus(temporary)) fileSystem.removeFile(temporary);
        } catch (...) {
            // The original failure is the one worth reporting.
        }
        // A write through the descriptor knows no path: the failure is said of the file being written.
        try {
            throw;
        } catch (const FileSystemError& error) {
            if (error.path() == temporary || error.path().starts_with("(descriptor "))
                throw FileSystemError(error.errorNumber(), error.operation(), path);
            throw;
        }
    }
    if (durability == Durability::synced) fileSystem.syncDirectory(parentPath(path));
}

}  // namespace vosklin

#include "platform/FileSystem.h"

#include <cerrno>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {
void makeDirectories(FileSystem& fileSystem, const std::string& path, mode_t mode) {
    if (path.empty() || path == "/" || path == ".") return;
    if (auto existing = fileSystem.status(path)) {
        if (existing->isDirectory()) return;
        throw FileSystemError(ENOTDIR, "mkdir", path);
    }
    makeDirectories(fileSystem, parentPath(path), mode);
    if (!fileSystem.makeDirectory(path, mode)) {
        auto raced = fileSystem.status(path);
        if (!raced || !raced->isDirectory()) throw FileSystemError(ENOTDIR, "mkdir", path);
    }
}

std::string resolveParentLinks(FileSystem& fileSystem, const std::string& path) {
    const std::string normal = absolutePath(path);
    if (normal == "/") return normal;
    const std::string parent = parentPath(normal);
    const std::string name = lastComponent(normal);
    try {
        return joinPath(fileSystem.resolvedPath(parent), name);
    } catch (const FileSystemError&) {
        // The parent is gone (a deleted folder): resolve what is left of it.
        return joinPath(resolveParentLinks(fileSystem, parent), name);
    }
}

std::string readWholeFile(FileSystem& fileSystem, const std::string& path) {
    UniqueFd file = fileSystem.openForReading(path);
    std::string text;
    char buffer[8192];
    while (std::size_t count = fileSystem.read(file.get(), buffer, sizeof buffer)) text.append(buffer, count);
    return text;
}

std::string descriptorPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

void removeAll(FileSystem& fileSystem, const std::string& path) {
    auto status = fileSystem.linkStatus(path);
    if (!status) return;
    if (status->isDirectory()) {
        // The listing says what each entry is: files go without a stat of their own.
        for (const auto& entry : fileSystem.listDirectory(path)) {
            const std::string child = path + "/" + entry.name;
            if (entry.type != FileType::regular && entry.type != FileType::symlink) {
                removeAll(fileSystem, child);
                continue;
            }
            try {
                fileSystem.removeFile(child);
            } catch (const FileSystemError& error) {
                if (error.errorNumber() != ENOENT) throw;  // gone already is what was asked
            }
        }
        fileSystem.removeDirectory(path);
    } else {
        fileSystem.removeFile(path);
    }
}

}  // namespace vosklin

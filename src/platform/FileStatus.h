#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace vosklin {

enum class FileType { regular, directory, symlink, other };

// What stat(2) says of one item, in the units the rest of the program uses.
struct FileStatus {
    FileType type = FileType::other;
    std::int64_t size = 0;
    mode_t mode = 0;  // permission bits only
    std::uint64_t inode = 0;
    dev_t device = 0;
    timespec accessed{};
    timespec modified{};

    bool isRegular() const { return type == FileType::regular; }
    bool isDirectory() const { return type == FileType::directory; }
    bool isSymlink() const { return type == FileType::symlink; }
    // Seconds since 1970 with the nanoseconds as a fraction.
    double modifiedAt() const { return double(modified.tv_sec) + double(modified.tv_nsec) / 1e9; }
};

struct DirectoryEntry {
    std::string name;
    FileType type = FileType::other;  // from d_type; `other` also when the file system did not say
};

}  // namespace vosklin

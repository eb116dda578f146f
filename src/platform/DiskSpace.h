#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// What a volume and the files on it take, asked of the kernel directly.
// Read-only; failures are thrown as FileSystemError unless said otherwise.
namespace DiskSpace {

// Bytes an unprivileged user may still write on the volume holding `path`
// (statvfs f_bavail × f_frsize); nothing when the volume cannot say.
std::optional<std::int64_t> availableBytes(const std::string& path);

// Bytes of `path` on disk that no other file shares: the extents FIEMAP does
// not flag as shared (a reflink clone shares all of its extents with its
// source until one side is written). A directory counts everything under it,
// without following links. Where FIEMAP is not supported (tmpfs, for one)
// every allocated block counts as private. A path that is gone counts 0.
std::int64_t privateBytes(const std::string& path);

}  // namespace DiskSpace
}  // namespace vosklin

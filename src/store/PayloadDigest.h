#pragma once

#include <cstdint>
#include <stop_token>
#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// Fingerprints and sizes of payloads.
//
// Digests are SHA-256 (OpenSSL, which uses the CPU's SHA extensions), written
// as 64 lowercase hexadecimal characters. Files are read in 1 MiB chunks, so
// memory does not grow with size. Only regular files are read, opened without
// blocking and checked after the open (a pipe or device put in a file's place
// is never waited on). `stop` is looked at between chunks. Failures are thrown
// as FileSystemError: EINVAL for what is not a regular file, ECANCELED when
// stopped, the read's own errno otherwise.
class PayloadDigest {
public:
    static constexpr std::size_t chunkSize = 1 << 20;

    explicit PayloadDigest(FileSystem& fileSystem);

    // SHA-256 of the file's bytes.
    std::string fileDigest(const std::string& path, std::stop_token stop = {});
    // One SHA-256 over the package: for each regular file, in the order of
    // their relative paths, the path's bytes and then the file's contents. The
    // same names with the same contents always give the same digest.
    std::string packageDigest(const std::string& path, std::stop_token stop = {});
    // The size the user sees: a file's size, or the sum of a package's files.
    std::int64_t logicalSize(const std::string& path, bool isPackage);

private:
    FileSystem& fileSystem_;
};

}  // namespace vosklin

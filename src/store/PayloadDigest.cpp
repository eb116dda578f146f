#include "store/PayloadDigest.h"

#include <cerrno>
#include <memory>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/RegularFile.h"
#include "store/PackageContents.h"
#include "store/Sha256.h"

namespace vosklin {
namespace {

void feedFile(FileSystem& fileSystem, const std::string& path, Sha256& hash, char* buffer, std::stop_token stop) {
    auto file = openRegularFile(fileSystem, path);
    if (!file) throw FileSystemError(EINVAL, "open", path);
    for (std::size_t count = 0;;) {
        // Asked after a whole chunk only: a file smaller than one always finishes.
        if (count == PayloadDigest::chunkSize && stop.stop_requested()) throw FileSystemError(ECANCELED, "read", path);
        count = fileSystem.read(file->fd.get(), buffer, PayloadDigest::chunkSize);
        if (count == 0) break;
        hash.update(buffer, count);
    }
}

}  // namespace

PayloadDigest::PayloadDigest(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

std::string PayloadDigest::fileDigest(const std::string& path, std::stop_token stop) {
    std::unique_ptr<char[]> buffer(new char[chunkSize]);
    Sha256 hash;
    feedFile(fileSystem_, path, hash, buffer.get(), stop);
    return hash.hex();
}

std::string PayloadDigest::packageDigest(const std::string& path, std::stop_token stop) {
    std::unique_ptr<char[]> buffer(new char[chunkSize]);
    Sha256 hash;
    for (const auto& file : packageFiles(fileSystem_, path)) {
        hash.update(file.relativePath.data(), file.relativePath.size());
        feedFile(fileSystem_, joinPath(path, file.relativePath), hash, buffer.get(), stop);
    }
    return hash.hex();
}

std::int64_t PayloadDigest::logicalSize(const std::string& path, bool isPackage) {
    if (!isPackage) {
        auto status = fileSystem_.linkStatus(path);
        return status ? status->size : 0;
    }
    std::int64_t total = 0;
    for (const auto& file : packageFiles(fileSystem_, path)) total += file.size;
    return total;
}

}  // namespace vosklin

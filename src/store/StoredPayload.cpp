#include "store/StoredPayload.h"

#include <memory>
#include <stdexcept>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/PathJson.h"
#include "store/CloneError.h"
#include "store/PayloadDigest.h"
#include "store/Sha256.h"

namespace vosklin {
namespace {

bool climbs(std::string_view relative) {
    for (std::size_t start = 0; start <= relative.size();) {
        std::size_t end = relative.find('/', start);
        if (end == std::string_view::npos) end = relative.size();
        if (relative.substr(start, end - start) == "..") return true;
        start = end + 1;
    }
    return false;
}

// Hashes the whole file through `file` from its start; with `out`, writes what it read there too.
std::string hashFrom(FileSystem& fileSystem, int file, std::ostream* out) {
    std::unique_ptr<char[]> buffer(new char[PayloadDigest::chunkSize]);
    Sha256 hash;
    for (std::uint64_t offset = 0;;) {
        const std::size_t count = fileSystem.readAt(file, buffer.get(), PayloadDigest::chunkSize, offset);
        if (count == 0) break;
        hash.update(buffer.get(), count);
        if (out) out->write(buffer.get(), std::streamsize(count));
        offset += count;
    }
    return hash.hex();
}

}  // namespace

StoredPayload::StoredPayload(FileSystem& fileSystem, const VersionStoreLayout& layout, StoredVersion version,
                             bool isPackage)
    : fileSystem_(fileSystem), layout_(layout), version_(std::move(version)), isPackage_(isPackage) {}

std::string StoredPayload::locate() const {
    const std::string& slot = version_.slot;
    const std::string& name = version_.payloadName;
    // The catalog is only a file: what it says is checked before the file system is asked.
    if (slot.empty() || isAbsolutePath(slot) || climbs(slot) || name.empty() || name == "." || name == ".." ||
        name.find('/') != std::string::npos)
        throw StoredPayloadError::outsideStore(version_.id, DisplayName::of(slot + "/" + name));
    const std::string path = layout_.payloadPath(slot, name);
    std::string resolved;
    try {
        if (!fileSystem_.linkStatus(path)) throw StoredPayloadError::missing(version_.id);
        resolved = fileSystem_.resolvedPath(path);
    } catch (const FileSystemError&) {
        throw StoredPayloadError::missing(version_.id);  // a link to nothing, or a slot made unreadable
    }
    std::string relative;
    if (!relativeTo(fileSystem_.resolvedPath(layout_.root()), resolved, relative))
        throw StoredPayloadError::outsideStore(version_.id, DisplayName::of(slot + "/" + name));
    return path;
}

std::string StoredPayload::digestOf(const std::string& path) const {
    PayloadDigest digests(fileSystem_);
    return isPackage_ ? digests.packageDigest(path) : digests.fileDigest(path);
}

void StoredPayload::verifyCopy(const std::string& copyPath) const {
    if (digestOf(copyPath) != version_.digest) throw StoredPayloadError::damaged(version_.id);
}

std::string StoredPayload::read() const {
    if (isPackage_) throw std::logic_error("A package is not read as one file");
    UniqueFd file = fileSystem_.openForReading(locate());
    std::string bytes;
    std::unique_ptr<char[]> buffer(new char[PayloadDigest::chunkSize]);
    Sha256 hash;
    while (const std::size_t count = fileSystem_.read(file.get(), buffer.get(), PayloadDigest::chunkSize)) {
        // Longer than the version ever was: damaged, and not worth holding in memory.
        if (std::int64_t(bytes.size() + count) > version_.logicalBytes) throw StoredPayloadError::damaged(version_.id);
        hash.update(buffer.get(), count);
        bytes.append(buffer.get(), count);
    }
    if (hash.hex() != version_.digest) throw StoredPayloadError::damaged(version_.id);
    return bytes;
}

void StoredPayload::streamTo(std::ostream& out) const {
    if (isPackage_) throw std::logic_error("A package is not streamed as one file");
    // Hashed first and streamed after, through one descriptor: no damaged byte goes out
    // unnoticed, and a payload of any size needs no second copy on disk.
    UniqueFd file = fileSystem_.openForReading(locate());
    if (hashFrom(fileSystem_, file.get(), nullptr) != version_.digest) throw StoredPayloadError::damaged(version_.id);
    if (hashFrom(fileSystem_, file.get(), &out) != version_.digest) throw StoredPayloadError::damaged(version_.id);
    out.flush();
}

void StoredPayload::exportTo(PayloadCloner& cloner, const std::string& destination) const {
    cloner.clone(locate(), destination);
    try {
        verifyCopy(destination);
    } catch (...) {
        // Only what this call made is removed: the clone refused to go over anything.
        try {
            removeAll(fileSystem_, destination);
        } catch (const FileSystemError&) {
        }
        throw;
    }
}

}  // namespace vosklin

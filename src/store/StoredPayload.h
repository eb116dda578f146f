#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "catalog/StoredVersion.h"
#include "platform/FileSystem.h"
#include "store/PayloadCloner.h"
#include "store/StoredPayloadError.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// One version's bytes as the store holds them, handed out only when they still
// match the version's digest. Every read that puts a version's content in front
// of the user (cat, diff, restore, rewind) goes through here, so damage in the
// store is an error that names the version instead of bad bytes passed on.
//
// The digest checked is the version's `digest`: SHA-256 of a file's bytes, or
// the package digest (PayloadDigest) of a package directory.
//
// Holds references to the file system and layout, which must outlive it; no
// state of its own beyond the version, so one instance may serve one caller at
// a time. Failures: StoredPayloadError (missing, outsideStore, damaged), and
// FileSystemError / CloneError from reading or copying, passed through.
class StoredPayload {
public:
    StoredPayload(FileSystem& fileSystem, const VersionStoreLayout& layout, StoredVersion version, bool isPackage);

    std::int64_t versionID() const { return version_.id; }
    bool isPackage() const { return isPackage_; }
    const std::string& digest() const { return version_.digest; }

    // Where the payload is. Refused (outsideStore) when the catalog's slot or
    // name is absolute or has a ".." in it, or when a link on the way leads
    // out of the store; missing when nothing is there.
    std::string locate() const;

    // Hashes a copy made of this payload (a scratch copy, an exported file or
    // package) and throws `damaged` when it is not the version's content.
    void verifyCopy(const std::string& copyPath) const;

    // A file's whole content, verified (for comparing). Reading stops as soon as it
    // outgrows the version's logical size, so damage never fills memory.
    std::string read() const;

    // A file's content to `out`. Nothing is written before the whole payload
    // has been hashed and found intact; the bytes streamed afterwards are hashed
    // again, so a payload that changes meanwhile still ends in `damaged`.
    void streamTo(std::ostream& out) const;

    // A copy at `destination` (a reflink where possible; never over anything
    // already there), verified. A damaged copy is removed before the error.
    void exportTo(PayloadCloner& cloner, const std::string& destination) const;

private:
    std::string digestOf(const std::string& path) const;

    FileSystem& fileSystem_;
    const VersionStoreLayout& layout_;
    StoredVersion version_;
    bool isPackage_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// The store's directory tree and its slots.
//
//   <root>/index.sqlite                       the catalog
//   <root>/versions/<low byte hex>/<file id>/<yyyyMMdd-HHmmss[-n]>/
//                                             one slot: the payload and its sidecar
//   <root>/staging/                           scratch space, cleared at will
//   <root>/journal/                           restore and rewind journals
//   <root>/slots.lock                         captures against the orphan sweep
//
// Slot names are made unique by the file system (create-if-absent), not by a
// lock, so concurrent captures of one file never share a slot. Holds a
// reference to the FileSystem, which must outlive it.
class VersionStoreLayout {
public:
    struct Slot {
        std::string relativePath;  // what versions.slot stores: "versions/2a/42/20250301-143205"
        std::string directory;     // absolute

        bool operator==(const Slot&) const = default;
    };

    VersionStoreLayout(std::string root, FileSystem& fileSystem);

    const std::string& root() const { return root_; }
    std::string databasePath() const;
    std::string versionsDirectory() const;
    std::string stagingDirectory() const;
    std::string journalDirectory() const;
    // Captures hold this lock shared from making a slot until its row is
    // recorded; the orphan sweep holds it exclusively while it removes slots,
    // so it never takes a capture's slot for an orphan.
    std::string slotLockPath() const;
    // Names the digest whose text is being read, while it is read: a reader that
    // brings the daemon down leaves it behind, and that digest is not tried again.
    std::string indexingAttemptPath() const;
    std::string slotDirectory(const std::string& slotRelativePath) const;
    std::string payloadPath(const std::string& slotRelativePath, const std::string& payloadName) const;

    // Creates versions, staging and journal (and the root); existing ones are fine.
    void prepareDirectories();
    // Removes every entry of staging; the first failure is thrown.
    void clearStaging();
    // A new, empty slot for a capture of `fileID` at `at`.
    Slot makeSlot(std::int64_t fileID, double at);
    // Removes a slot directory and everything in it, and the file's directory
    // when that was its last slot; a missing slot is fine.
    void removeSlot(const std::string& slotRelativePath);

    // "yyyyMMdd-HHmmss" of the instant in UTC.
    static std::string stamp(double at);

private:
    std::string root_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

#include "store/VersionStoreLayout.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

VersionStoreLayout::VersionStoreLayout(std::string root, FileSystem& fileSystem)
    : root_(std::move(root)), fileSystem_(fileSystem) {}

std::string VersionStoreLayout::databasePath() const { return joinPath(root_, "index.sqlite"); }
std::string VersionStoreLayout::versionsDirectory() const { return joinPath(root_, "versions"); }
std::string VersionStoreLayout::stagingDirectory() const { return joinPath(root_, "staging"); }
std::string VersionStoreLayout::journalDirectory() const { return joinPath(root_, "journal"); }
std::string VersionStoreLayout::slotLockPath() const { return joinPath(root_, "slots.lock"); }
std::string VersionStoreLayout::indexingAttemptPath() const { return joinPath(root_, "indexing.attempt"); }

std::string VersionStoreLayout::slotDirectory(const std::string& slotRelativePath) const {
    return joinPath(root_, slotRelativePath);
}

std::string VersionStoreLayout::payloadPath(const std::string& slotRelativePath, const std::string& payloadName) const {
    return joinPath(slotDirectory(slotRelativePath), payloadName);
}

void VersionStoreLayout::prepareDirectories() {
    // The store holds copies of the user's files: only the user may read it.
    makeDirectories(fileSystem_, root_, 0700);
    for (const auto& directory : {versionsDirectory(), stagingDirectory(), journalDirectory()})
        makeDirectories(fileSystem_, directory, 0700);
}

void VersionStoreLayout::clearStaging() {
    const std::string staging = stagingDirectory();
    for (const auto& entry : fileSystem_.listDirectory(staging)) removeAll(fileSystem_, joinPath(staging, entry.name));
}

std::string VersionStoreLayout::stamp(double at) {
    std::time_t seconds = std::time_t(std::floor(at));
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

VersionStoreLayout::Slot VersionStoreLayout::makeSlot(std::int64_t fileID, double at) {
    char lowByte[3];
    std::snprintf(lowByte, sizeof lowByte, "%02x", unsigned(fileID & 0xFF));
    const std::string parent = "versions/" + std::string(lowByte) + "/" + std::to_string(fileID);
    makeDirectories(fileSystem_, joinPath(root_, parent), 0700);
    const std::string base = stamp(at);
    for (long n = 1;; ++n) {
        std::string name = n == 1 ? base : base + "-" + std::to_string(n);
        std::string relative = parent + "/" + name;
        std::string directory = joinPath(root_, relative);
        bool made;
        try {
            made = fileSystem_.makeDirectory(directory, 0700);
        } catch (const FileSystemError& error) {
            // The file's emptied directory was pruned by a removal in the meantime.
            if (error.errorNumber() != ENOENT) throw;
            makeDirectories(fileSystem_, joinPath(root_, parent), 0700);
            made = fileSystem_.makeDirectory(directory, 0700);
        }
        if (made) return {relative, directory};
        // Something already exists there: an earlier capture in the same second.
        if (n == 1000000) throw FileSystemError(EEXIST, "mkdir", directory);
    }
}

void VersionStoreLayout::removeSlot(const std::string& slotRelativePath) {
    const std::string directory = slotDirectory(slotRelativePath);
    removeAll(fileSystem_, directory);
    // The file's own directory goes with its last slot, so forgotten files leave no trace.
    const std::string fileDirectory = parentPath(directory);
    if (parentPath(parentPath(fileDirectory)) != versionsDirectory()) return;
    try {
        // rmdir refuses a directory that still holds slots: cheaper than listing it after every removal.
        fileSystem_.removeDirectory(fileDirectory);
    } catch (const FileSystemError&) {
        // Other slots are left (or a capture raced in), or it is already gone: either is fine.
    }
}

}  // namespace vosklin

#include "retention/StoreSweeper.h"

#include <unordered_set>

#include "platform/DiskSpace.h"
#include "platform/FileLock.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/StoreSlots.h"

namespace vosklin {

namespace {

constexpr double lockPatience = 2;  // seconds a directory waits for captures in flight

std::vector<std::string> subdirectories(FileSystem& fileSystem, const std::string& path) {
    std::vector<std::string> names;
    std::vector<DirectoryEntry> entries;
    try {
        entries = fileSystem.listDirectory(path);
    } catch (const FileSystemError& error) {
        // Removed since it was listed (its last slot pruned, say): nothing left to sweep there.
        if (error.errorNumber() == ENOENT) return names;
        throw;
    }
    for (const auto& entry : entries) {
        if (entry.type == FileType::other) {
            // The file system did not say what it is.
            auto status = fileSystem.linkStatus(joinPath(path, entry.name));
            if (!status || !status->isDirectory()) continue;
        } else if (entry.type != FileType::directory) {
            continue;
        }
        names.push_back(entry.name);
    }
    return names;
}

bool isEmptyDirectory(FileSystem& fileSystem, const std::string& path) {
    try {
        return fileSystem.listDirectory(path).empty();
    } catch (const FileSystemError&) {
        return false;
    }
}

}  // namespace

StoreSweeper::StoreSweeper(VersionCatalog& catalog, VersionStoreLayout& layout, FileSystem& fileSystem,
                           Logger& logger)
    : catalog_(catalog), layout_(layout), fileSystem_(fileSystem), logger_(logger) {}

SweepReport StoreSweeper::sweep(bool dryRun) {
    SweepReport report;
    const std::string versions = layout_.versionsDirectory();
    if (!fileSystem_.status(versions)) return report;
    const auto misfiled = catalog_.misfiledSlots();
    const std::unordered_set<std::string> elsewhere(misfiled.begin(), misfiled.end());
    const std::string lockPath = layout_.slotLockPath();

    for (const auto& fanOut : subdirectories(fileSystem_, versions)) {
        const std::string fanOutPath = joinPath(versions, fanOut);
        for (const auto& fileName : subdirectories(fileSystem_, fanOutPath)) {
            const std::string fileRelative = "versions/" + fanOut + "/" + fileName;
            const auto fileID = StoreSlots::fileID(fileRelative + "/x");
            if (!fileID) continue;  // not a file directory of ours: not ours to judge
            const std::string filePath = joinPath(fanOutPath, fileName);
            // Which of the directory's slots the catalog does not name.
            std::size_t slotCount = 0;
            auto unreferenced = [&] {
                const auto stamps = subdirectories(fileSystem_, filePath);
                slotCount = stamps.size();
                std::vector<std::string> orphans;
                if (stamps.empty()) return orphans;
                const auto named = catalog_.slotsOfFile(*fileID);
                const std::unordered_set<std::string> referenced(named.begin(), named.end());
                for (const auto& stamp : stamps) {
                    const std::string slot = fileRelative + "/" + stamp;
                    if (!referenced.count(slot) && !elsewhere.count(slot)) orphans.push_back(slot);
                }
                return orphans;
            };
            auto orphans = unreferenced();
            const bool empty = slotCount == 0 && isEmptyDirectory(fileSystem_, filePath);
            if (orphans.empty() && !empty) continue;
            if (dryRun) {
                report.slotsRemoved += std::int64_t(orphans.size());
                for (const auto& slot : orphans) report.bytesRemoved += DiskSpace::privateBytes(layout_.slotDirectory(slot));
                continue;
            }
            auto lock = FileLock::tryAcquire(lockPath, FileLock::Mode::exclusive, lockPatience);
            if (!lock.held()) {
                report.slotsBusy += std::int64_t(orphans.size());
                continue;
            }
            // Captures recorded while we waited are no orphans.
            for (const auto& slot : unreferenced()) {
                try {
                    const std::int64_t bytes = DiskSpace::privateBytes(layout_.slotDirectory(slot));
                    // The file's directory goes with its last slot.
                    layout_.removeSlot(slot);
                    report.bytesRemoved += bytes;
                    ++report.slotsRemoved;
                } catch (const FileSystemError& error) {
                    logger_.error(std::string("An orphaned slot could not be removed: ") + error.what());
                }
            }
            if (empty) {
                try {
                    fileSystem_.removeDirectory(filePath);
                } catch (const FileSystemError&) {
                    // A capture made a slot here after all: it stays.
                }
            }
        }
        if (!dryRun && isEmptyDirectory(fileSystem_, fanOutPath)) {
            auto lock = FileLock::tryAcquire(lockPath, FileLock::Mode::exclusive, lockPatience);
            if (lock.held() && isEmptyDirectory(fileSystem_, fanOutPath)) {
                try {
                    fileSystem_.removeDirectory(fanOutPath);
                } catch (const FileSystemError&) {
                    // Not empty after all: a capture made a file's directory here.
                }
            }
        }
    }

    // Staging holds nothing between operations; what is there was left by one that was killed.
    const std::string staging = layout_.stagingDirectory();
    if (fileSystem_.status(staging)) {
        const auto leftovers = fileSystem_.listDirectory(staging);
        if (dryRun) {
            report.stagingItemsRemoved = std::int64_t(leftovers.size());
        } else if (!leftovers.empty()) {
            auto lock = FileLock::tryAcquire(lockPath, FileLock::Mode::exclusive, lockPatience);
            if (lock.held())
                for (const auto& entry : fileSystem_.listDirectory(staging)) {
                    const std::string path = joinPath(staging, entry.name);
                    try {
                        const std::int64_t bytes = DiskSpace::privateBytes(path);
                        removeAll(fileSystem_, path);
                        report.bytesRemoved += bytes;
                        ++report.stagingItemsRemoved;
                    } catch (const FileSystemError& error) {
                        logger_.error(std::string("A staging leftover could not be removed: ") + error.what());
                    }
                }
        }
    }
    if (!dryRun) logger_.info("Swept " + std::to_string(report.bytesRemoved) + " bytes of orphaned payloads");
    return report;
}

}  // namespace vosklin

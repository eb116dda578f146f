#include "store/CatalogRebuilder.h"

#include <algorithm>
#include <set>

#include "catalog/VersionCatalog.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "store/StoreSlots.h"
#include "store/VersionSidecar.h"

namespace vosklin {
namespace {

// One slot that can be taken into the new catalog.
struct FoundVersion {
    std::string slot;
    std::int64_t fileID = 0;
    VersionSidecar sidecar;
    std::string folderID;
    std::string relativePath;
    bool isPackage = false;
};

bool earlier(const FoundVersion* a, const FoundVersion* b) {
    if (a->sidecar.capturedAt != b->sidecar.capturedAt) return a->sidecar.capturedAt < b->sidecar.capturedAt;
    return a->slot < b->slot;  // "-2" sorts after the plain stamp, as it was made after it
}

const char* const companions[] = {"-wal", "-shm"};

}  // namespace

CatalogRebuilder::CatalogRebuilder(const VersionStoreLayout& layout, FileSystem& fileSystem, Clock& clock,
                                   std::map<std::string, std::string> folderRoots)
    : layout_(layout), fileSystem_(fileSystem), clock_(clock), folderRoots_(std::move(folderRoots)) {}

CatalogRebuilder::Report CatalogRebuilder::rebuild(const Progress& progress) {
    Report report;
    const auto slots = StoreSlots(layout_, fileSystem_).all();
    report.slots = std::int64_t(slots.size());
    auto skip = [&](const std::string& slot, std::string reason) { report.skipped.push_back({slot, std::move(reason)}); };

    std::vector<FoundVersion> found;
    std::int64_t done = 0;
    for (const auto& slot : slots) {
        if (progress) progress(++done, report.slots);
        FoundVersion version;
        version.slot = slot;
        auto fileID = StoreSlots::fileID(slot);
        if (!fileID) {
            skip(slot, "it is not filed under a file number");
            continue;
        }
        version.fileID = *fileID;
        try {
            version.sidecar = VersionSidecar::read(fileSystem_, layout_.slotDirectory(slot));
        } catch (const FileSystemError& error) {
            skip(slot, error.errorNumber() == ENOENT ? std::string("it has no sidecar")
                                                     : std::string("its sidecar cannot be read: ") + error.what());
            continue;
        } catch (const SidecarError& error) {
            skip(slot, std::string("its sidecar cannot be used: ") + error.what());
            continue;
        }
        // The payload is where the sidecar says, whatever the source was called.
        auto payload = fileSystem_.linkStatus(layout_.payloadPath(slot, version.sidecar.payloadName));
        if (!payload) {
            skip(slot, "the payload " + DisplayName::of(version.sidecar.payloadName) + " is missing");
            continue;
        }
        version.isPackage = payload->isDirectory();
        for (const auto& [id, root] : folderRoots_) {
            std::string relative;
            if (relativeTo(root, version.sidecar.originalPath, relative)) {
                version.folderID = id;
                version.relativePath = relative;
                break;
            }
        }
        if (version.folderID.empty()) {
            skip(slot, "it was taken from " + DisplayName::of(version.sidecar.originalPath) +
                           ", which is in no watched folder");
            continue;
        }
        found.push_back(std::move(version));
    }

    // Each file's versions, oldest first; files in order of their newest version, newest first,
    // so that a path two files claim goes to the one written last.
    std::map<std::int64_t, std::vector<const FoundVersion*>> byFile;
    for (const auto& version : found) byFile[version.fileID].push_back(&version);
    std::vector<std::vector<const FoundVersion*>*> files;
    for (auto& [id, versions] : byFile) {
        std::sort(versions.begin(), versions.end(), earlier);
        files.push_back(&versions);
    }
    std::sort(files.begin(), files.end(), [](const auto* a, const auto* b) { return earlier(b->back(), a->back()); });

    RecoveredHistory history;
    std::set<std::pair<std::string, std::string>> taken;
    const double now = clock_.now();
    for (const auto* versions : files) {
        const FoundVersion& newest = *versions->back();
        std::vector<const FoundVersion*> kept;
        for (const auto* version : *versions) {
            if (version->folderID == newest.folderID) kept.push_back(version);
            else skip(version->slot, "its file has newer versions in another folder");
        }
        std::optional<std::string> path;
        for (auto it = kept.rbegin(); it != kept.rend() && !path; ++it)
            if (!taken.count({newest.folderID, (*it)->relativePath})) path = (*it)->relativePath;
        if (!path) {
            for (const auto* version : kept)
                skip(version->slot, "its path " + DisplayName::of(newest.relativePath) +
                                        " belongs to a file written later");
            continue;
        }
        taken.insert({newest.folderID, *path});

        RecoveredHistory::File file;
        file.id = newest.fileID;
        file.folderID = newest.folderID;
        file.relativePath = *path;
        file.isPackage = newest.isPackage;
        if (auto extension = pathExtension(*path); !extension.empty()) file.fileExtension = extension;
        if (auto now_there = fileSystem_.linkStatus(joinPath(folderRoots_.at(newest.folderID), *path)))
            file.inode = now_there->inode;
        else
            file.deletedAt = now;
        history.files.push_back(std::move(file));
        for (const auto* version : kept) {
            RecoveredHistory::Version recovered;
            recovered.fileID = version->fileID;
            recovered.capturedAt = version->sidecar.capturedAt;
            recovered.digest = version->sidecar.digest;
            recovered.logicalBytes = version->sidecar.logicalBytes;
            recovered.slot = version->slot;
            recovered.payloadName = version->sidecar.payloadName;
            recovered.method = version->sidecar.method;
            recovered.isVerified = version->sidecar.verified;
            recovered.source = CaptureSource::crawl;
            recovered.relativePath = version->relativePath;
            history.versions.push_back(std::move(recovered));
        }
    }
    // Version ids follow capture order across the whole store, as they did when captured.
    std::stable_sort(history.versions.begin(), history.versions.end(),
                     [](const auto& a, const auto& b) { return a.capturedAt < b.capturedAt; });
    report.files = std::int64_t(history.files.size());
    report.versions = std::int64_t(history.versions.size());

    // Built under another name first: the old catalog stays in place until the new one is whole.
    const std::string target = layout_.databasePath();
    const std::string scratch = target + ".rebuilding";
    for (const std::string& leftover : {scratch, scratch + "-wal", scratch + "-shm"})
        if (fileSystem_.linkStatus(leftover)) fileSystem_.removeFile(leftover);
    {
        VersionCatalog catalog(scratch);
        catalog.insertRecovered(history);
    }  // closing checkpoints the log into the file and syncs it
    report.setAsideAs = setAsideOldCatalog();
    fileSystem_.rename(scratch, target);
    fileSystem_.syncDirectory(layout_.root());
    return report;
}

std::optional<std::string> CatalogRebuilder::setAsideOldCatalog() {
    const std::string target = layout_.databasePath();
    bool anything = false;
    for (const std::string& path : {target, target + "-wal", target + "-shm"})
        anything = anything || fileSystem_.linkStatus(path).has_value();
    if (!anything) return std::nullopt;
    const std::string stamp = VersionStoreLayout::stamp(clock_.now());
    std::string name;
    for (int n = 1;; ++n) {
        name = "index.sqlite.damaged-" + stamp + (n == 1 ? std::string() : "-" + std::to_string(n));
        const std::string base = joinPath(layout_.root(), name);
        if (!fileSystem_.linkStatus(base) && !fileSystem_.linkStatus(base + "-wal")) break;
    }
    const std::string base = joinPath(layout_.root(), name);
    // The log first: a stale log left under the old name would be replayed into the new catalog.
    for (const char* companion : companions)
        if (fileSystem_.linkStatus(target + companion)) fileSystem_.rename(target + companion, base + companion);
    if (fileSystem_.linkStatus(target)) fileSystem_.rename(target, base);
    return name;
}

}  // namespace vosklin

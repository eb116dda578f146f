#include "capture/CaptureService.h"

#include <set>

#include "capture/SettleGate.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"
#include "store/VersionSidecar.h"

namespace vosklin {

// A unit whose payload is in its slot with its sidecar, waiting to be recorded.
struct CaptureService::Prepared {
    std::size_t resultIndex = 0;
    NewVersion version;
    std::string slotRelativePath;
};

namespace {

constexpr double replacementAge = 120;  // seconds; a swapped-in file older than this is a replacement

std::string canonicalRoot(FileSystem& fileSystem, const std::string& root) {
    try {
        return fileSystem.resolvedPath(absolutePath(root));
    } catch (const FileSystemError&) {
        return absolutePath(root);
    }
}

}  // namespace

CaptureService::CaptureService(VersionCatalog& catalog, VersionStoreLayout& layout, PayloadWriter& writer,
                               PayloadDigest& digest, PayloadVerifier& verifier, FileSystem& fileSystem)
    : catalog_(catalog),
      layout_(layout),
      writer_(writer),
      digest_(digest),
      verifier_(verifier),
      fileSystem_(fileSystem) {}

std::optional<CaptureOutcome> CaptureService::prepare(const CaptureRequest& request, double at, Prepared& prepared) {
    const std::string& unit = request.unit;
    if (!fileSystem_.status(unit)) return CaptureOutcome::skipped(CaptureSkipReason::missing);
    auto link = fileSystem_.linkStatus(unit);
    if (!link) return CaptureOutcome::skipped(CaptureSkipReason::missing);
    if (link->isSymlink()) return CaptureOutcome::skipped(CaptureSkipReason::symlink);
    if (cloudGuard_.isPlaceholder(unit)) return CaptureOutcome::skipped(CaptureSkipReason::cloudPlaceholder);

    std::string relativePath;
    const std::string resolved = resolveParentLinks(fileSystem_, unit);
    if (!relativeTo(canonicalRoot(fileSystem_, request.folderRoot), resolved, relativePath))
        return CaptureOutcome::skipped(CaptureSkipReason::outsideRoot);

    const auto probe = SettleGate::probe(fileSystem_, unit);
    const std::string extension = pathExtension(resolved);
    const std::optional<std::string> fileExtension =
        extension.empty() ? std::nullopt : std::optional<std::string>(extension);

    const TrackedFile before = catalog_.fileAtPath(request.folderID, relativePath).value_or(TrackedFile{});
    const TrackedFile file = catalog_.trackFileForCapture(
        request.folderID, relativePath, probe ? std::optional<std::uint64_t>(probe->inode) : std::nullopt,
        request.isPackage, fileExtension, at);

    WrittenPayload payload;
    try {
        payload = writer_.write(file.id, at, unit, request.isPackage);
    } catch (const CloneError& error) {
        // Deleted between the checks above and the copy: a skip like any other vanished file.
        if (error.kind() == CloneError::Kind::sourceMissing || error.code() == ENOENT)
            return CaptureOutcome::skipped(CaptureSkipReason::missing);
        throw;
    }

    const auto latest = catalog_.newestVersion(file.id);
    if (latest && latest->digest == payload.digest) {
        try {
            layout_.removeSlot(payload.slot.relativePath);
        } catch (const FileSystemError&) {
            // Still unchanged; the orphan sweep takes what is left.
        }
        return CaptureOutcome::unchanged(latest->id);
    }

    // A file swapped for another, older file (dragged over it from elsewhere),
    // as opposed to an application's save-by-rename, whose new file is seconds old.
    const bool isReplacement = request.source == CaptureSource::watcher && probe && before.id != 0 &&
                               before.inode && *before.inode != probe->inode &&
                               probe->modifiedAt < at - replacementAge;

    try {
        prepared.version.fileID = file.id;
        prepared.version.capturedAt = at;
        prepared.version.digest = payload.digest;
        prepared.version.logicalBytes = digest_.logicalSize(payload.payloadPath, request.isPackage);
        prepared.version.slot = payload.slot.relativePath;
        prepared.version.payloadName = payload.payloadName;
        prepared.version.method = payload.clone.method;
        prepared.version.isVerified = verifier_.isVerified(payload.payloadPath, request.isPackage);
        prepared.version.source = request.source;
        prepared.version.batchID = request.batchID;
        prepared.version.isReplacement = isReplacement;
        prepared.slotRelativePath = payload.slot.relativePath;

        VersionSidecar sidecar;
        sidecar.originalPath = unit;
        sidecar.capturedAt = at;
        sidecar.digest = payload.digest;
        sidecar.logicalBytes = prepared.version.logicalBytes;
        sidecar.method = payload.clone.method;
        sidecar.verified = prepared.version.isVerified;
        sidecar.payloadName = payload.payloadName;
        sidecar.write(fileSystem_, payload.slot.directory);
    } catch (...) {
        try {
            layout_.removeSlot(payload.slot.relativePath);
        } catch (const FileSystemError&) {
        }
        throw;
    }
    return std::nullopt;
}

void CaptureService::flush(std::vector<Prepared>& prepared, std::vector<CaptureResult>& results) {
    if (prepared.empty()) return;
    try {
        fileSystem_.syncFileSystem(layout_.root());
    } catch (...) {
        // Not durable, so not recorded: the versions are lost, the user's files are not.
        for (const auto& entry : prepared) {
            results[entry.resultIndex].error = std::current_exception();
            try {
                layout_.removeSlot(entry.slotRelativePath);
            } catch (const FileSystemError&) {
            }
        }
        prepared.clear();
        return;
    }
    for (const auto& entry : prepared) {
        try {
            results[entry.resultIndex].outcome = CaptureOutcome::stored(catalog_.recordVersion(entry.version));
        } catch (...) {
            results[entry.resultIndex].error = std::current_exception();
        }
    }
    prepared.clear();
}

std::vector<CaptureResult> CaptureService::captureBatch(const std::vector<CaptureRequest>& requests,
                                                        const std::function<double()>& instant) {
    std::lock_guard guard(lock_);
    std::vector<CaptureResult> results;
    results.reserve(requests.size());
    std::vector<Prepared> prepared;
    std::set<std::string> unitsInFlight;
    bool layoutReady = false;
    for (const auto& request : requests) {
        // A unit twice in one batch: record the first before comparing the second with it.
        if (unitsInFlight.count(request.unit)) {
            flush(prepared, results);
            unitsInFlight.clear();
        }
        results.push_back({request, std::nullopt, nullptr});
        try {
            if (!layoutReady) {
                layout_.prepareDirectories();
                layoutReady = true;
            }
            Prepared entry;
            entry.resultIndex = results.size() - 1;
            if (auto outcome = prepare(request, instant(), entry)) {
                results.back().outcome = *outcome;
            } else {
                prepared.push_back(std::move(entry));
                unitsInFlight.insert(request.unit);
            }
        } catch (...) {
            results.back().error = std::current_exception();
        }
    }
    flush(prepared, results);
    return results;
}

CaptureOutcome CaptureService::capture(const CaptureRequest& request, double at) {
    auto results = captureBatch({request}, [at] { return at; });
    if (results.front().error) std::rethrow_exception(results.front().error);
    return *results.front().outcome;
}

}  // namespace vosklin

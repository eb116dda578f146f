#include "capture/CaptureService.h"

#include <set>

#include "capture/SettleGate.h"
#include "platform/FileLock.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"
#include "store/VersionSidecar.h"

namespace vosklin {

// One unit on its way through a batch.
struct CaptureService::Candidate {
    std::size_t resultIndex = 0;
    CaptureRequest request;
    double at = 0;
    std::string relativePath;
    std::optional<SettleGate::Probe> probe;
    std::optional<std::uint64_t> previousInode;  // the row's inode before this capture refreshed it
    bool hadRow = false;
    TrackedFile file;
    std::optional<StoredVersion> latest;
    NewVersion version;
    std::string slotRelativePath;
};

namespace {

constexpr double replacementAge = 120;  // seconds; a swapped-in file older than this is a replacement

void removeSlotQuietly(VersionStoreLayout& layout, const std::string& slot) {
    try {
        layout.removeSlot(slot);
    } catch (const FileSystemError&) {
        // The orphan sweep takes what is left.
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

const std::string& CaptureService::canonicalRoot(const std::string& root) {
    auto found = canonicalRoots_.find(root);
    if (found != canonicalRoots_.end()) return found->second;
    std::string canonical;
    try {
        canonical = fileSystem_.resolvedPath(absolutePath(root));
    } catch (const FileSystemError&) {
        canonical = absolutePath(root);
    }
    return canonicalRoots_.emplace(root, canonical).first->second;
}

std::optional<CaptureOutcome> CaptureService::check(const CaptureRequest& request, Candidate& candidate) {
    const std::string& unit = request.unit;
    if (!fileSystem_.status(unit)) return CaptureOutcome::skipped(CaptureSkipReason::missing);
    auto link = fileSystem_.linkStatus(unit);
    if (!link) return CaptureOutcome::skipped(CaptureSkipReason::missing);
    if (link->isSymlink()) return CaptureOutcome::skipped(CaptureSkipReason::symlink);
    // A pipe, socket or device holds no document: there is no file here to keep.
    if (!link->isRegular() && !link->isDirectory()) return CaptureOutcome::skipped(CaptureSkipReason::missing);
    if (cloudGuard_.isPlaceholder(unit)) return CaptureOutcome::skipped(CaptureSkipReason::cloudPlaceholder);
    const std::string resolved = resolveParentLinks(fileSystem_, unit);
    if (!relativeTo(canonicalRoot(request.folderRoot), resolved, candidate.relativePath))
        return CaptureOutcome::skipped(CaptureSkipReason::outsideRoot);
    candidate.probe = SettleGate::probe(fileSystem_, unit);
    if (auto row = catalog_.fileAtPath(request.folderID, candidate.relativePath)) {
        candidate.hadRow = true;
        candidate.previousInode = row->inode;
    }
    return std::nullopt;
}

std::optional<CaptureOutcome> CaptureService::writePayload(Candidate& candidate, std::stop_token stop) {
    const CaptureRequest& request = candidate.request;
    WrittenPayload payload;
    try {
        payload = writer_.write(candidate.file.id, candidate.at, request.unit, request.isPackage, stop);
    } catch (const CloneError& error) {
        // Deleted between the checks and the copy: a skip like any other vanished file.
        if (error.kind() == CloneError::Kind::sourceMissing || error.code() == ENOENT)
            return CaptureOutcome::skipped(CaptureSkipReason::missing);
        throw;
    }
    if (candidate.latest && candidate.latest->digest == payload.digest) {
        removeSlotQuietly(layout_, payload.slot.relativePath);
        return CaptureOutcome::unchanged(candidate.latest->id);
    }
    // The file's last content has no version any more: the user deleted it by hand.
    // Finding the file as it was is no change, so a routine capture does not take it
    // back; a copy that protects the file before Vosklin overwrites it still does.
    const auto& last = candidate.file.lastDigest;
    const bool routine = request.source == CaptureSource::watcher || request.source == CaptureSource::crawl ||
                         request.source == CaptureSource::baseline;
    if (routine && last && *last == payload.digest) {
        removeSlotQuietly(layout_, payload.slot.relativePath);
        return CaptureOutcome::unchanged(candidate.latest ? candidate.latest->id : 0);
    }
    const auto& probe = candidate.probe;
    // A file swapped for another, older file (dragged over it from elsewhere),
    // as opposed to an application's save-by-rename, whose new file is seconds old.
    const bool isReplacement = request.source == CaptureSource::watcher && probe && candidate.hadRow &&
                               candidate.previousInode && *candidate.previousInode != probe->inode &&
                               probe->modifiedAt < candidate.at - replacementAge;
    try {
        NewVersion& version = candidate.version;
        version.fileID = candidate.file.id;
        version.capturedAt = candidate.at;
        version.digest = payload.digest;
        version.logicalBytes = digest_.logicalSize(payload.payloadPath, request.isPackage);
        version.slot = payload.slot.relativePath;
        version.payloadName = payload.payloadName;
        version.method = payload.clone.method;
        version.isVerified = verifier_.isVerified(payload.payloadPath, request.isPackage);
        version.source = request.source;
        version.batchID = request.batchID;
        version.isReplacement = isReplacement;
        candidate.slotRelativePath = payload.slot.relativePath;

        VersionSidecar sidecar;
        sidecar.originalPath = request.unit;
        sidecar.capturedAt = candidate.at;
        sidecar.digest = payload.digest;
        sidecar.logicalBytes = version.logicalBytes;
        sidecar.method = payload.clone.method;
        sidecar.verified = version.isVerified;
        sidecar.payloadName = payload.payloadName;
        sidecar.write(fileSystem_, payload.slot.directory);
    } catch (...) {
        removeSlotQuietly(layout_, payload.slot.relativePath);
        throw;
    }
    return std::nullopt;
}

void CaptureService::record(std::vector<Candidate*>& prepared, std::vector<CaptureResult>& results) {
    if (prepared.empty()) return;
    try {
        fileSystem_.syncFileSystem(layout_.root());
    } catch (...) {
        // Not durable, so not recorded: the versions are lost, the user's files are not.
        for (Candidate* candidate : prepared) {
            results[candidate->resultIndex].error = std::current_exception();
            removeSlotQuietly(layout_, candidate->slotRelativePath);
        }
        return;
    }
    std::vector<NewVersion> versions;
    for (Candidate* candidate : prepared) versions.push_back(candidate->version);
    try {
        auto stored = catalog_.recordVersions(versions);
        for (std::size_t i = 0; i < prepared.size(); ++i)
            results[prepared[i]->resultIndex].outcome = CaptureOutcome::stored(stored[i]);
    } catch (...) {
        // Find the one that fails; record the others each on its own.
        for (Candidate* candidate : prepared) {
            try {
                results[candidate->resultIndex].outcome =
                    CaptureOutcome::stored(catalog_.recordVersion(candidate->version));
            } catch (...) {
                results[candidate->resultIndex].error = std::current_exception();
            }
        }
    }
}

void CaptureService::captureRun(const std::vector<CaptureRequest>& requests, const std::function<double()>& instant,
                                std::vector<CaptureResult>& results, std::stop_token stop) {
    // Phase 1: checks, then every file row in one transaction.
    std::vector<Candidate> candidates;
    candidates.reserve(requests.size());
    for (const auto& request : requests) {
        results.push_back({request, std::nullopt, nullptr});
        Candidate candidate;
        candidate.resultIndex = results.size() - 1;
        candidate.request = request;
        candidate.at = instant();
        try {
            if (auto outcome = check(request, candidate)) results.back().outcome = *outcome;
            else candidates.push_back(std::move(candidate));
        } catch (...) {
            results.back().error = std::current_exception();
        }
    }
    if (candidates.empty()) return;
    try {
        std::vector<FileToTrack> files;
        for (const auto& candidate : candidates) {
            const std::string extension = pathExtension(candidate.relativePath);
            files.push_back({candidate.request.folderID, candidate.relativePath,
                             candidate.probe ? std::optional<std::uint64_t>(candidate.probe->inode) : std::nullopt,
                             candidate.request.isPackage,
                             extension.empty() ? std::nullopt : std::optional<std::string>(extension), candidate.at});
        }
        auto tracked = catalog_.trackFilesForCapture(files);
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            candidates[i].file = tracked[i];
            candidates[i].latest = catalog_.newestVersion(tracked[i].id);
        }
    } catch (...) {
        for (const auto& candidate : candidates) results[candidate.resultIndex].error = std::current_exception();
        return;
    }

    // Phase 2: payloads, digests, sidecars. Until their rows are recorded the
    // new slots belong to no version: the orphan sweep must wait.
    std::optional<FileLock> slotLock;
    try {
        slotLock.emplace(FileLock::acquire(layout_.slotLockPath(), FileLock::Mode::shared));
    } catch (...) {
        for (const auto& candidate : candidates) results[candidate.resultIndex].error = std::current_exception();
        return;
    }
    std::vector<Candidate*> prepared;
    for (auto& candidate : candidates) {
        try {
            if (auto outcome = writePayload(candidate, stop)) results[candidate.resultIndex].outcome = *outcome;
            else prepared.push_back(&candidate);
        } catch (...) {
            results[candidate.resultIndex].error = std::current_exception();
        }
    }

    // Phase 3: durable, then recorded.
    record(prepared, results);
}

std::vector<CaptureResult> CaptureService::captureBatch(const std::vector<CaptureRequest>& requests,
                                                        const std::function<double()>& instant, std::stop_token stop) {
    std::lock_guard guard(lock_);
    canonicalRoots_.clear();  // a root may have been moved or relinked since the last batch
    std::vector<CaptureResult> results;
    results.reserve(requests.size());
    try {
        layout_.prepareDirectories();
    } catch (...) {
        for (const auto& request : requests) results.push_back({request, std::nullopt, std::current_exception()});
        return results;
    }
    // Split into runs of distinct units: a repeated unit is compared with its first capture.
    std::vector<CaptureRequest> run;
    std::set<std::string> units;
    for (const auto& request : requests) {
        if (units.count(request.unit)) {
            captureRun(run, instant, results, stop);
            run.clear();
            units.clear();
        }
        run.push_back(request);
        units.insert(request.unit);
    }
    captureRun(run, instant, results, stop);
    return results;
}

CaptureOutcome CaptureService::capture(const CaptureRequest& request, double at) {
    auto results = captureBatch({request}, [at] { return at; });
    if (results.front().error) std::rethrow_exception(results.front().error);
    return *results.front().outcome;
}

}  // namespace vosklin

#pragma once

#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <stop_token>
#include <vector>

#include "capture/CaptureOutcome.h"
#include "capture/CaptureRequest.h"
#include "capture/CloudFileGuard.h"
#include "capture/PayloadVerifier.h"
#include "catalog/VersionCatalog.h"
#include "platform/FileSystem.h"
#include "store/PayloadDigest.h"
#include "store/PayloadWriter.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// The result of one unit of a batch: its outcome, or the error that stopped it.
struct CaptureResult {
    CaptureRequest request;
    std::optional<CaptureOutcome> outcome;
    std::exception_ptr error;  // set when there is no outcome
};

// Turns one unit (a file, or a package as a whole) into at most one new
// version. Every path into history goes through it.
//
// Per unit, in order: skip what is missing (also when it vanishes during the
// copy, and when what is there is a named pipe, socket or device: nothing a
// version can be made of, and never opened), a symbolic link, a cloud
// placeholder or not strictly inside the folder; track the file's row (an
// "appeared" event first when the path had been tombstoned); clone the unit
// into a new slot and hash the copy; if the digest equals the file's newest
// version, remove the slot and report `unchanged` (also, for the watcher and
// crawls, when it equals the file's last digest whose versions were deleted
// by hand: that content stays deleted until the file changes); otherwise decide the
// replacement and verification flags, write the sidecar, and record the
// version and the file's newest digest in one transaction.
//
// A batch runs in three phases, each unit keeping the steps and outcomes
// above: the checks and the file rows (one transaction for the batch), then
// the payloads and sidecars, then one syncfs of the store and the version rows
// (one transaction). So a version row never exists before its payload is on
// disk, and a batch pays for that once rather than once per file. A unit
// that appears twice in a batch is compared against its first capture.
//
// Failure: capture() throws what stopped it (a skip is not a failure). A
// payload whose sidecar could not be written is removed; one whose row could
// not be recorded is left for the store's orphan sweep. Captures through one
// instance never interleave (an internal lock). Collaborators are borrowed.
class CaptureService {
public:
    CaptureService(VersionCatalog& catalog, VersionStoreLayout& layout, PayloadWriter& writer,
                   PayloadDigest& digest, PayloadVerifier& verifier, FileSystem& fileSystem);

    CaptureOutcome capture(const CaptureRequest& request, double at);
    // Each request gets its own instant from `instant()`, taken as its turn comes.
    // `stop` is looked at between the chunks of each copy and digest: a unit
    // stopped there gets CloneError::cancelled, its slot removed; units already
    // copied are still recorded.
    std::vector<CaptureResult> captureBatch(const std::vector<CaptureRequest>& requests,
                                            const std::function<double()>& instant, std::stop_token stop = {});

private:
    struct Candidate;
    // One run of requests with distinct units, through all three phases.
    void captureRun(const std::vector<CaptureRequest>& requests, const std::function<double()>& instant,
                    std::vector<CaptureResult>& results, std::stop_token stop);
    std::optional<CaptureOutcome> check(const CaptureRequest& request, Candidate& candidate);
    std::optional<CaptureOutcome> writePayload(Candidate& candidate, std::stop_token stop);
    void record(std::vector<Candidate*>& prepared, std::vector<CaptureResult>& results);
    const std::string& canonicalRoot(const std::string& root);

    VersionCatalog& catalog_;
    VersionStoreLayout& layout_;
    PayloadWriter& writer_;
    PayloadDigest& digest_;
    PayloadVerifier& verifier_;
    CloudFileGuard cloudGuard_;
    FileSystem& fileSystem_;
    std::mutex lock_;
    std::map<std::string, std::string> canonicalRoots_;  // folder root -> with links resolved, per batch
};

}  // namespace vosklin

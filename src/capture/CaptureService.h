#pragma once

#include <exception>
#include <functional>
#include <mutex>
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
// copy), a symbolic link, a cloud placeholder or not strictly inside the folder; track the file's row (an
// "appeared" event first when the path had been tombstoned); clone the unit
// into a new slot and hash the copy; if the digest equals the file's newest
// version, remove the slot and report `unchanged`; otherwise decide the
// replacement and verification flags, write the sidecar, and record the
// version and the file's newest digest in one transaction.
//
// Durability: before a version row is written, its payload is on disk. A batch
// pays for that once (syncfs of the store) rather than once per file.
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
    std::vector<CaptureResult> captureBatch(const std::vector<CaptureRequest>& requests,
                                            const std::function<double()>& instant);

private:
    struct Prepared;
    std::optional<CaptureOutcome> prepare(const CaptureRequest& request, double at, Prepared& prepared);
    void flush(std::vector<Prepared>& prepared, std::vector<CaptureResult>& results);

    VersionCatalog& catalog_;
    VersionStoreLayout& layout_;
    PayloadWriter& writer_;
    PayloadDigest& digest_;
    PayloadVerifier& verifier_;
    CloudFileGuard cloudGuard_;
    FileSystem& fileSystem_;
    std::mutex lock_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <string>

#include "store/CloneOutcome.h"
#include "store/PayloadCloner.h"
#include "store/PayloadDigest.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

struct WrittenPayload {
    VersionStoreLayout::Slot slot;
    std::string payloadName;  // where the payload is in the slot: the source's name, see payloadNameFor
    std::string payloadPath;
    CloneOutcome clone;
    std::string digest;  // of the copy in the store, not of the live source
};

// Puts one capture's bytes into a new slot: make the slot, clone the source
// into it under its own name, and hash the copy (so the digest describes
// exactly the bytes kept, even if the source changed meanwhile).
//
// `stop` reaches the copy and the digest, which look at it between chunks; a
// stopped write throws CloneError::cancelled.
//
// Failure: any error of the clone or the digest removes the whole slot and is
// rethrown (a failure of that removal is thrown in its place), so no slot
// without a payload is left behind. Collaborators are borrowed.
class PayloadWriter {
public:
    PayloadWriter(VersionStoreLayout& layout, PayloadCloner& cloner, PayloadDigest& digest);

    WrittenPayload write(std::int64_t fileID, double at, const std::string& source, bool isPackage,
                         std::stop_token stop = {});

    // The payload keeps the source's own name, unless that name is the sidecar's: a
    // user's file called "vosklin-version.json" must not be overwritten by its own
    // sidecar. Readers take the name from the version's payload_name, never from the path.
    static std::string payloadNameFor(const std::string& sourceName);

private:
    VersionStoreLayout& layout_;
    PayloadCloner& cloner_;
    PayloadDigest& digest_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/FileSystem.h"
#include "store/CloneMethod.h"

namespace vosklin {

class SidecarError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The small JSON file beside each payload that describes the version by
// itself, so a slot can be identified without the catalog.
//
// Written pretty-printed with sorted keys (capturedAt, digest, logicalBytes,
// method, originalPath, payloadName, verified, version), the instant in ISO
// 8601 UTC whole seconds with "Z", UTF-8 text unescaped. Paths that are not
// valid UTF-8 follow PathJson.h (an extra "...Bytes" key with the exact bytes).
struct VersionSidecar {
    static constexpr std::string_view fileName = "vosklin-version.json";

    int version = 1;
    std::string originalPath;  // absolute path of the source at capture
    double capturedAt = 0;
    std::string digest;
    std::int64_t logicalBytes = 0;
    CloneMethod method = CloneMethod::unknown;
    bool verified = true;
    std::string payloadName;

    std::string encode() const;
    // Reads what encode writes. Throws SidecarError on anything else, and on a
    // sidecar whose values no capture writes: another format version, a
    // relative originalPath, a digest that is not 64 lowercase hex characters, a
    // negative size, an unknown method, or a payloadName that is not one name.
    static VersionSidecar decode(std::string_view json);

    // Writes slotDirectory + "/vosklin-version.json" atomically; errors are thrown.
    // Not synced: the capture makes its whole batch of slots durable at once.
    void write(FileSystem& fileSystem, const std::string& slotDirectory) const;
    static VersionSidecar read(FileSystem& fileSystem, const std::string& slotDirectory);

    bool operator==(const VersionSidecar&) const = default;
};

}  // namespace vosklin

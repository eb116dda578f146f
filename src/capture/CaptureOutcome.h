#pragma once

#include <cstdint>
#include <string_view>

#include "catalog/StoredVersion.h"

namespace vosklin {

// Why a capture did nothing. Skips are outcomes, not errors.
enum class CaptureSkipReason { cloudPlaceholder, missing, outsideRoot, symlink };

inline std::string_view toString(CaptureSkipReason reason) {
    switch (reason) {
        case CaptureSkipReason::cloudPlaceholder: return "cloudPlaceholder";
        case CaptureSkipReason::missing: return "missing";
        case CaptureSkipReason::outsideRoot: return "outsideRoot";
        case CaptureSkipReason::symlink: return "symlink";
    }
    return "";
}

// What one capture did: stored a new version, found the content unchanged, or skipped.
struct CaptureOutcome {
    enum class Kind { stored, unchanged, skipped };

    Kind kind = Kind::skipped;
    StoredVersion version;             // stored
    std::int64_t unchangedVersionID = 0;  // unchanged: the existing newest version (0: its history was deleted)
    CaptureSkipReason skipReason = CaptureSkipReason::missing;  // skipped

    static CaptureOutcome stored(StoredVersion version) { return {Kind::stored, std::move(version), 0, {}}; }
    static CaptureOutcome unchanged(std::int64_t versionID) { return {Kind::unchanged, {}, versionID, {}}; }
    static CaptureOutcome skipped(CaptureSkipReason reason) { return {Kind::skipped, {}, 0, reason}; }
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// One thing a store check found. Everything but `orphanSlot` is a problem: a
// version the catalog promises that the store cannot give back as recorded.
// An orphan slot (a copy no row refers to, left by a crash between writing it
// and recording it) is a note: harmless, and swept up by pruning.
struct StoreProblem {
    enum class Kind {
        slotMissing,        // the row's slot directory is not there
        payloadMissing,     // the slot lacks the payload the row names
        payloadSizeWrong,   // the payload's size is not the row's logical size
        payloadDigestWrong, // with --read-data: the payload's bytes no longer hash to the row's digest
        payloadUnreadable,  // reading the payload failed
        sidecarMissing,     // the slot has no "vosklin-version.json"
        sidecarUnreadable,  // the sidecar cannot be read or decoded
        sidecarDisagrees,   // a field of the sidecar differs from the row (`field` names it)
        orphanSlot,         // a slot no row refers to (a note)
    };

    Kind kind = Kind::slotMissing;
    std::optional<std::int64_t> versionID;
    std::string slot;
    std::string field;     // for sidecarDisagrees: "digest", "logicalBytes", ...
    std::string detail;    // one line for people; may hold path bytes that are not UTF-8

    bool isNote() const { return kind == Kind::orphanSlot; }
};

inline std::string_view toString(StoreProblem::Kind kind) {
    switch (kind) {
        case StoreProblem::Kind::slotMissing: return "slotMissing";
        case StoreProblem::Kind::payloadMissing: return "payloadMissing";
        case StoreProblem::Kind::payloadSizeWrong: return "payloadSizeWrong";
        case StoreProblem::Kind::payloadDigestWrong: return "payloadDigestWrong";
        case StoreProblem::Kind::payloadUnreadable: return "payloadUnreadable";
        case StoreProblem::Kind::sidecarMissing: return "sidecarMissing";
        case StoreProblem::Kind::sidecarUnreadable: return "sidecarUnreadable";
        case StoreProblem::Kind::sidecarDisagrees: return "sidecarDisagrees";
        case StoreProblem::Kind::orphanSlot: return "orphanSlot";
    }
    return "unknown";
}

}  // namespace vosklin

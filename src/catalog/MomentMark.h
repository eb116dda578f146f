#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// A mark that a user or an operation put on an instant of a folder's history.
struct MomentMark {
    // `rewind` exists only to read old stores; nothing writes it.
    enum class Kind { named, beforeRewind, rewind };

    std::string folderID;
    double at = 0;
    std::optional<std::string> name;
    Kind kind = Kind::named;
    std::optional<double> targetAt;

    bool operator==(const MomentMark&) const = default;
};

std::string_view toString(MomentMark::Kind kind);
std::optional<MomentMark::Kind> markKindFromString(std::string_view text);

}  // namespace vosklin

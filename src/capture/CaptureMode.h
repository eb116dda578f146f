#pragma once

#include <optional>
#include <string_view>

namespace vosklin {

// Per watched folder: `manual` folders get no live captures, only the ones the user asks for.
enum class CaptureMode { automatic, manual };

inline std::string_view toString(CaptureMode mode) { return mode == CaptureMode::manual ? "manual" : "automatic"; }
inline std::optional<CaptureMode> captureModeFromString(std::string_view text) {
    if (text == "automatic") return CaptureMode::automatic;
    if (text == "manual") return CaptureMode::manual;
    return std::nullopt;
}

}  // namespace vosklin

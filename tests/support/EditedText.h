#pragma once

#include <optional>
#include <string>

namespace vosklin::test {

// For tables of damaged inputs: `text` with the first `from` replaced by `to`,
// or `to` alone when `from` is empty; nothing when `text` holds no `from`.
inline std::optional<std::string> editedText(std::string text, const std::string& from, const std::string& to) {
    if (from.empty()) return to;
    const auto at = text.find(from);
    if (at == std::string::npos) return std::nullopt;
    return text.replace(at, from.size(), to);
}

}  // namespace vosklin::test

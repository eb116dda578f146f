#pragma once

#include <optional>
#include <string>

namespace vosklin {

// An instant as a person types it on the command line: ISO 8601 with an
// offset, as `vosklin history` prints ("2025-03-01T14:32:05.25Z"), or a local
// date-time ("2025-03-01 15:32:05", "2025-03-01T15:32", "2025-03-01").
std::optional<double> parseUserInstant(const std::string& text);

}  // namespace vosklin

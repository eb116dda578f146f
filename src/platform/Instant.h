#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// Instants are seconds since 1970-01-01T00:00:00Z as doubles, as the catalog stores them.

// "2025-03-01T14:32:05Z": whole seconds (the fraction is dropped), UTC.
std::string formatInstantSeconds(double instant);
// "2025-03-01T14:32:05.25Z": UTC with the fraction to the microsecond, trailing zeros trimmed.
std::string formatInstant(double instant);
// Parses "YYYY-MM-DDTHH:MM:SS" with an optional fraction and a "Z" or "+HH:MM"/"-HH:MM" offset.
// A missing offset is refused here: callers that accept local times say so explicitly.
std::optional<double> parseInstant(std::string_view text);

}  // namespace vosklin

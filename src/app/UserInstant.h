#pragma once

#include <optional>
#include <string>

#include "platform/Instant.h"

namespace vosklin {

// An instant as a person types it on the command line: ISO 8601 with an
// offset, as `vosklin history` prints ("2025-03-01T14:32:05.25Z"), or a local
// date-time ("2025-03-01 15:32:05", "2025-03-01T15:32", "2025-03-01").
// Impossible dates and times are refused, never rolled over (see readInstant).
InstantReading readUserInstant(const std::string& text);
// The same, without the reason.
std::optional<double> parseUserInstant(const std::string& text);
// "'2025-02-30' is not an instant: it has no day 30 in February 2025; use ...": a
// refusal naming the text, for a reading without an instant.
std::string userInstantRefusal(const std::string& text, const InstantReading& reading);

}  // namespace vosklin

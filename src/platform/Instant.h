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
// An instant read from text, or why the text is not one (a phrase: "has no day 30 in February 2025").
struct InstantReading {
    std::optional<double> instant;
    std::string problem;
};

// Reads "YYYY-MM-DDTHH:MM[:SS[.fraction]]" (a space may stand for the "T") with a
// "Z" or "+HH:MM"/"-HH:MM" offset. Only real calendar dates and clock times are
// instants: February 30, hour 24, minute 60 or second 60 are refused, never
// rolled over into the next day or minute. With `localWithoutOffset`, a text
// without an offset is a local date-time and its time may be left out
// (midnight); a local time the clocks skipped is refused too.
InstantReading readInstant(std::string_view text, bool localWithoutOffset);
// readInstant without local times: a missing offset is refused here, callers that
// accept local times say so explicitly.
std::optional<double> parseInstant(std::string_view text);

}  // namespace vosklin

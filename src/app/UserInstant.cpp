#include "app/UserInstant.h"

namespace vosklin {

InstantReading readUserInstant(const std::string& text) { return readInstant(text, true); }

std::optional<double> parseUserInstant(const std::string& text) { return readUserInstant(text).instant; }

std::string userInstantRefusal(const std::string& text, const InstantReading& reading) {
    return "'" + text + "' is not an instant: it " + reading.problem +
           "; use the form 'vosklin history' prints (2025-03-01T14:32:05Z) or a local date-time (2025-03-01 15:32:05)";
}

}  // namespace vosklin

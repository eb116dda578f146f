#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

class Settings;

// How far back history reaches, one choice for every folder, kept raw in
// "vosklin.historyHorizon". The spans are whole days on purpose (91 and 182,
// not calendar months): thinning must not depend on which month it is.
enum class RetentionHorizon { month, quarter, halfYear, year, forever };

namespace RetentionHorizons {

constexpr const char* settingKey = "vosklin.historyHorizon";
constexpr RetentionHorizon standard = RetentionHorizon::year;

// Every case, in the order a picker lists them.
constexpr std::array<RetentionHorizon, 5> all = {RetentionHorizon::month, RetentionHorizon::quarter,
                                                 RetentionHorizon::halfYear, RetentionHorizon::year,
                                                 RetentionHorizon::forever};

std::string_view toString(RetentionHorizon horizon);
std::optional<RetentionHorizon> fromString(std::string_view text);
// Seconds; `forever` is positive infinity.
double span(RetentionHorizon horizon);
// The string-table key of its label ("settings.storage.keepFor.month", ...).
std::string labelKey(RetentionHorizon horizon);
// The stored choice; absent or unknown reads as `year`.
RetentionHorizon read(Settings& settings);
void write(Settings& settings, RetentionHorizon horizon);

}  // namespace RetentionHorizons
}  // namespace vosklin

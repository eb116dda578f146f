#include "retention/RetentionHorizon.h"

#include <limits>

#include "platform/Settings.h"

namespace vosklin::RetentionHorizons {

std::string_view toString(RetentionHorizon horizon) {
    switch (horizon) {
        case RetentionHorizon::month: return "month";
        case RetentionHorizon::quarter: return "quarter";
        case RetentionHorizon::halfYear: return "halfYear";
        case RetentionHorizon::year: return "year";
        case RetentionHorizon::forever: return "forever";
    }
    return "year";
}

std::optional<RetentionHorizon> fromString(std::string_view text) {
    for (RetentionHorizon horizon : all)
        if (toString(horizon) == text) return horizon;
    return std::nullopt;
}

double span(RetentionHorizon horizon) {
    constexpr double day = 86'400;
    switch (horizon) {
        case RetentionHorizon::month: return 30 * day;
        case RetentionHorizon::quarter: return 91 * day;
        case RetentionHorizon::halfYear: return 182 * day;
        case RetentionHorizon::year: return 365 * day;
        case RetentionHorizon::forever: return std::numeric_limits<double>::infinity();
    }
    return 365 * day;
}

std::string labelKey(RetentionHorizon horizon) { return "settings.storage.keepFor." + std::string(toString(horizon)); }

RetentionHorizon read(Settings& settings) {
    auto text = settings.text(settingKey);
    if (!text) return standard;
    return fromString(*text).value_or(standard);
}

void write(Settings& settings, RetentionHorizon horizon) { settings.set(settingKey, std::string(toString(horizon))); }

}  // namespace vosklin::RetentionHorizons

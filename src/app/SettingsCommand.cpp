#include "app/SettingsCommand.h"

#include <ostream>
#include <stdexcept>

#include "app/CommandError.h"
#include "app/KnownSettings.h"
#include "platform/DisplayName.h"

namespace vosklin {

namespace {

std::string shown(const nlohmann::json& value) {
    if (value.is_string()) return DisplayName::of(value.get<std::string>());
    if (value.is_array()) {
        if (value.empty()) return "(none)";
        std::string list;
        for (const auto& item : value)
            list += (list.empty() ? "" : " ") + (item.is_string() ? DisplayName::of(item.get<std::string>()) : item.dump());
        return list;
    }
    return value.dump();
}

}  // namespace

SettingsCommand::SettingsCommand(AppContext& context, std::ostream& out) : context_(context), out_(out) {}

int SettingsCommand::run(const std::optional<std::string>& key, const std::vector<std::string>& values, bool reset,
                         bool json) {
    auto& settings = context_.settings();
    // What a key holds: its stored value when that is one it takes, else its default.
    auto current = [&](const KnownSettings::Definition& definition) -> std::pair<nlohmann::json, bool> {
        const auto stored = settings.raw(definition.key);
        if (stored.is_null()) return {definition.defaultValue, false};
        if (stored.type() != definition.defaultValue.type() &&
            !(stored.is_number() && definition.defaultValue.is_number()))
            return {definition.defaultValue, false};
        return {stored, true};
    };
    auto record = [&](const KnownSettings::Definition& definition) {
        auto [value, isSet] = current(definition);
        return nlohmann::json{{"key", definition.key},         {"value", value},
                              {"isDefault", !isSet},           {"default", definition.defaultValue},
                              {"meaning", definition.meaning}, {"values", definition.values}};
    };

    if (!key) {
        if (!values.empty() || reset) throw CommandError("Name the setting to change");
        if (json) {
            nlohmann::json list = nlohmann::json::array();
            for (const auto& definition : KnownSettings::all()) list.push_back(record(definition));
            out_ << list.dump(2) << "\n";
            return 0;
        }
        for (const auto& definition : KnownSettings::all()) {
            auto [value, isSet] = current(definition);
            out_ << definition.key << " = " << shown(value) << (isSet ? "" : "  (default)") << "\n"
                 << "    " << definition.meaning << ".\n"
                 << "    Takes " << definition.values << "; default " << shown(definition.defaultValue) << ".\n";
        }
        out_ << "Change one with: vosklin settings KEY VALUE...   (back to its default: vosklin settings KEY --reset)\n";
        return 0;
    }

    const auto* definition = KnownSettings::find(*key);
    if (!definition) {
        std::string known;
        for (const auto& each : KnownSettings::all()) known += (known.empty() ? "" : ", ") + each.key;
        throw CommandError("There is no setting '" + DisplayName::of(*key) + "'; the settings are " + known);
    }
    if (reset && !values.empty()) throw CommandError("Give a value or --reset, not both");
    if (reset) {
        settings.set(definition->key, nullptr);
    } else if (!values.empty()) {
        try {
            settings.set(definition->key, KnownSettings::parse(*definition, values));
        } catch (const std::invalid_argument& error) {
            throw CommandError("Not a value of " + definition->key + ": " + DisplayName::of(error.what()) +
                               "; nothing was changed");
        }
    }
    if (json) {
        out_ << record(*definition).dump(2) << "\n";
        return 0;
    }
    auto [value, isSet] = current(*definition);
    out_ << definition->key << " = " << shown(value) << (isSet ? "" : "  (default)") << "\n";
    return 0;
}

}  // namespace vosklin

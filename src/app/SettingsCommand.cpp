#include "app/SettingsCommand.h"

#include <ostream>
#include <stdexcept>

#include "app/CommandError.h"
#include "app/FolderRequests.h"
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
    auto printRecord = [&](const nlohmann::json& record) {
        out_ << record["key"].get<std::string>() << " = " << shown(record["value"])
             << (record["isDefault"].get<bool>() ? "  (default)" : "") << "\n";
    };

    if (!key) {
        if (!values.empty() || reset) throw CommandError("Name the setting to change");
        if (json) {
            nlohmann::json list = nlohmann::json::array();
            for (const auto& definition : KnownSettings::all())
                list.push_back(FolderRequests::settingRecord(settings, definition));
            out_ << list.dump(2) << "\n";
            return 0;
        }
        for (const auto& definition : KnownSettings::all()) {
            printRecord(FolderRequests::settingRecord(settings, definition));
            out_ << "    " << definition.meaning << ".\n"
                 << "    Takes " << definition.values << "; default " << shown(definition.defaultValue) << ".\n";
        }
        out_ << "Change one with: vosklin settings KEY VALUE...   (back to its default: vosklin settings KEY --reset)\n";
        return 0;
    }

    const auto& definition = FolderRequests::requireSetting(*key);
    if (reset && !values.empty()) throw CommandError("Give a value or --reset, not both");
    if (reset) FolderRequests::changeSetting(settings, definition, std::nullopt);
    else if (!values.empty()) FolderRequests::changeSetting(settings, definition, values);
    const auto record = FolderRequests::settingRecord(settings, definition);
    if (json) out_ << record.dump(2) << "\n";
    else printRecord(record);
    return 0;
}

}  // namespace vosklin

#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "app/AppContext.h"
#include "app/KnownSettings.h"
#include "capture/CaptureEngine.h"

namespace vosklin {

class ApiRequest;

// The window's requests about the watched folders, the settings, the disk
// they take, starting at login, completing a folder's path and the texts it
// shows (see ApiHandlers.h for their shapes). The rules they apply are the
// static functions below, which the command line's commands call too, so a
// refusal reads the same wherever it comes from; failures are ApiError, whose
// message the command line prints as it is.
class FolderRequests {
public:
    // With an engine (in the daemon) a folder's state says whether it is watched live.
    FolderRequests(AppContext& context, CaptureEngine* engine);

    // The answer to `name`, or nothing when it is not one of these requests.
    std::optional<nlohmann::json> answer(const std::string& name, const ApiRequest& request);

    // `folder add`: admits the folder (FolderAdmission's rules) and lists it.
    // Refusals are ApiError(409) with FolderAdmission's message.
    static WatchedFolder addFolder(AppContext& context, const std::string& path, bool manual);
    // A folder by id or path: ApiError(404) with FolderList's message when none is watched so.
    static WatchedFolder requireFolder(AppContext& context, const std::string& idOrPath);
    // "automatic" (or "auto"), "unlimited" or a size such as "20GB": ApiError(400) when not one.
    static FolderBudget readBudget(const std::string& text);
    // "automatic" or "manual": ApiError(400) when not one.
    static CaptureMode readMode(const std::string& text);
    // A `folder list --json` entry: the folder, "reachable" ("unreachableReason"), "versions", "logicalBytes".
    static nlohmann::json listEntry(AppContext& context, const WatchedFolder& folder);

    // `settings --json` of one setting: "key", "value", "isDefault", "default", "meaning", "values".
    static nlohmann::json settingRecord(Settings& settings, const KnownSettings::Definition& definition);
    // The setting named `key`: ApiError(400) naming the settings there are when there is none.
    static const KnownSettings::Definition& requireSetting(const std::string& key);
    // Sets `definition` to `words` as typed (nothing: back to its default). A value it does not
    // take is ApiError(400) and nothing is written.
    static void changeSetting(Settings& settings, const KnownSettings::Definition& definition,
                              const std::optional<std::vector<std::string>>& words);

    // `usage --json`: each folder's ("folderID", "path", "privateBytes", "logicalBytes",
    // "versionCount", "budget", "budgetBytes", "overBudget"), the "total" and "availableBytes".
    static nlohmann::json usage(AppContext& context, const std::vector<WatchedFolder>& folders);

private:
    nlohmann::json folders();
    nlohmann::json complete(const ApiRequest& request);
    nlohmann::json strings();
    nlohmann::json setting(const ApiRequest& request);
    nlohmann::json autostart(const ApiRequest& request);
    WatchedFolder folderOf(const ApiRequest& request);

    AppContext& context_;
    CaptureEngine* engine_;
};

// The systemd user unit that runs `vosklin run --background` at login, for
// `vosklin autostart` and the window's switch. Failures are ApiError.
namespace Autostart {

// $XDG_CONFIG_HOME/systemd/user/vosklin.service (or under ~/.config).
std::string unitPath();
bool isEnabled();
// Writes the unit for this binary and home (`homeOption` as --home gave it) and asks
// systemd to enable it: false when systemctl could not (the unit is written all the same).
bool enable(const std::optional<std::string>& homeOption);
void disable();

}  // namespace Autostart

}  // namespace vosklin

#include "app/FolderRequests.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "app/ApiHandlers.h"
#include "app/ApiRequest.h"
#include "app/ByteCount.h"
#include "app/JsonRecords.h"
#include "bridge/FolderAccess.h"
#include "bridge/FolderAdmission.h"
#include "bridge/FolderListError.h"
#include "platform/AtomicFile.h"
#include "platform/DiskSpace.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/Instant.h"
#include "platform/NaturalOrder.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/PosixFileSystem.h"
#include "platform/StringTable.h"
#include "retention/StorageBudget.h"

namespace vosklin {

namespace {

// A completion lists no more than one screenful.
constexpr std::size_t mostCompletions = 50;

}  // namespace

FolderRequests::FolderRequests(AppContext& context, CaptureEngine* engine) : context_(context), engine_(engine) {}

WatchedFolder FolderRequests::addFolder(AppContext& context, const std::string& path, bool manual) {
    FolderAdmission admission(context.fileSystem(), context.locator(), context.homeDirectory());
    try {
        return context.folders().append(admission.admit(path, manual ? CaptureMode::manual : CaptureMode::automatic,
                                                        context.folders().folders()));
    } catch (const FolderListError& error) {
        throw ApiError(409, error.what());
    }
}

WatchedFolder FolderRequests::requireFolder(AppContext& context, const std::string& idOrPath) {
    try {
        return context.folders().require(idOrPath);
    } catch (const FolderListError& error) {
        throw ApiError(error.kind() == FolderListError::Kind::unknownFolder ? 404 : 409, error.what());
    }
}

FolderBudget FolderRequests::readBudget(const std::string& text) {
    if (text == "automatic" || text == "auto") return {FolderBudget::Kind::automatic, 0};
    if (text == "unlimited") return {FolderBudget::Kind::unlimited, 0};
    const auto reading = readByteCount(text);
    if (!reading.bytes)
        throw ApiError(400, "'" + text + "' is not a budget: it " + reading.problem +
                                "; use automatic, unlimited or a size such as 20GB");
    if (*reading.bytes < FolderBudget::smallestBytes)
        throw ApiError(400, "'" + text + "' is too small for a budget (" + formatByteCount(*reading.bytes) +
                                "); the smallest is " + formatByteCount(FolderBudget::smallestBytes));
    return {FolderBudget::Kind::bytes, *reading.bytes};
}

CaptureMode FolderRequests::readMode(const std::string& text) {
    auto mode = captureModeFromString(text);
    if (!mode) throw ApiError(400, "'" + text + "' is not a mode; use automatic or manual");
    return *mode;
}

nlohmann::json FolderRequests::listEntry(AppContext& context, const WatchedFolder& folder) {
    auto reach = FolderAccess(context.fileSystem()).check(folder);
    std::int64_t versions = 0, bytes = 0;
    if (context.storeExists()) {
        versions = context.readCatalog().folderVersionCount(folder.id);
        bytes = context.readCatalog().folderBytes(folder.id);
    }
    auto entry = toJson(folder);
    entry["reachable"] = reach.reachable;
    if (!reach.reachable) entry["unreachableReason"] = reach.reason;
    entry["versions"] = versions;
    entry["logicalBytes"] = bytes;
    return entry;
}

nlohmann::json FolderRequests::settingRecord(Settings& settings, const KnownSettings::Definition& definition) {
    // What a key holds: its stored value when that is one it takes, else its default.
    nlohmann::json value = settings.raw(definition.key);
    const bool fits = !value.is_null() && (value.type() == definition.defaultValue.type() ||
                                           (value.is_number() && definition.defaultValue.is_number()));
    if (!fits) value = definition.defaultValue;
    return {{"key", definition.key},         {"value", value},
            {"isDefault", !fits},            {"default", definition.defaultValue},
            {"meaning", definition.meaning}, {"values", definition.values}};
}

const KnownSettings::Definition& FolderRequests::requireSetting(const std::string& key) {
    if (const auto* definition = KnownSettings::find(key)) return *definition;
    std::string known;
    for (const auto& each : KnownSettings::all()) known += (known.empty() ? "" : ", ") + each.key;
    throw ApiError(400, "There is no setting '" + DisplayName::of(key) + "'; the settings are " + known);
}

void FolderRequests::changeSetting(Settings& settings, const KnownSettings::Definition& definition,
                                   const std::optional<std::vector<std::string>>& words) {
    if (!words) {
        settings.set(definition.key, nullptr);
        return;
    }
    nlohmann::json value;
    try {
        value = KnownSettings::parse(definition, *words);
    } catch (const std::invalid_argument& error) {
        throw ApiError(400, "Not a value of " + definition.key + ": " + DisplayName::of(error.what()) +
                                "; nothing was changed");
    }
    settings.set(definition.key, value);
}

nlohmann::json FolderRequests::usage(AppContext& context, const std::vector<WatchedFolder>& folders) {
    const std::int64_t freeBytes = DiskSpace::availableBytes(context.layout().root()).value_or(0);
    const bool hasStore = context.storeExists();
    nlohmann::json rows = nlohmann::json::array();
    StorageBudget::Usage total;
    for (const auto& folder : folders) {
        StorageBudget::Usage usage;
        if (hasStore) usage = StorageBudget::measure(folder, context.readCatalog(), context.layout(), freeBytes);
        else usage.budgetBytes = StorageBudget::effectiveBudget(folder.budget, freeBytes);
        nlohmann::json row = {{"folderID", folder.id},
                              {"privateBytes", usage.privateBytes},
                              {"logicalBytes", usage.logicalBytes},
                              {"versionCount", usage.versionCount},
                              {"budgetBytes", nullptr},
                              {"budget", StorageBudget::describe(folder.budget)},
                              {"overBudget", usage.overBudget()}};
        if (usage.budgetBytes) row["budgetBytes"] = *usage.budgetBytes;
        putPath(row, "path", folder.path);
        rows.push_back(row);
        total.privateBytes += usage.privateBytes;
        total.logicalBytes += usage.logicalBytes;
        total.versionCount += usage.versionCount;
    }
    return {{"folders", rows},
            {"total",
             {{"privateBytes", total.privateBytes},
              {"logicalBytes", total.logicalBytes},
              {"versionCount", total.versionCount}}},
            {"availableBytes", freeBytes}};
}

WatchedFolder FolderRequests::folderOf(const ApiRequest& request) {
    const auto folder = request.path("folder");
    if (!folder) throw ApiError(400, "The request names no folder");
    return requireFolder(context_, *folder);
}

nlohmann::json FolderRequests::folders() {
    std::vector<CaptureEngine::FolderState> states;
    if (engine_) states = engine_->folderStates();
    const std::int64_t freeBytes = DiskSpace::availableBytes(context_.layout().root()).value_or(0);
    const bool hasStore = context_.storeExists();
    nlohmann::json list = nlohmann::json::array();
    for (const auto& folder : context_.folders().folders()) {
        auto entry = listEntry(context_, folder);
        const auto state = std::find_if(states.begin(), states.end(),
                                        [&](const auto& each) { return each.folder.id == folder.id; });
        const bool degraded = state != states.end() && state->degraded;
        entry["state"] = !entry["reachable"].get<bool>()           ? "unreachable"
                         : folder.isPaused                         ? "paused"
                         : folder.mode == CaptureMode::manual      ? "manual"
                         : degraded                                ? "degraded"
                                                                   : "recording";
        std::optional<double> lastChange;
        if (hasStore)
            lastChange = context_.readCatalog().newestChange(folder.id, -std::numeric_limits<double>::max(),
                                                             std::numeric_limits<double>::max());
        entry["lastChangeAt"] = lastChange ? nlohmann::json(formatInstant(*lastChange)) : nlohmann::json();
        // Against the catalog's sums, as a retention pass compares: measuring the disk is for `usage`.
        const auto budgetBytes = StorageBudget::effectiveBudget(folder.budget, freeBytes);
        entry["budget"] = StorageBudget::describe(folder.budget);
        entry["budgetBytes"] = budgetBytes ? nlohmann::json(*budgetBytes) : nlohmann::json();
        entry["overBudget"] = budgetBytes && entry["logicalBytes"].get<std::int64_t>() > *budgetBytes;
        list.push_back(entry);
    }
    return {{"folders", list}};
}

nlohmann::json FolderRequests::complete(const ApiRequest& request) {
    const std::string prefix = request.path("prefix").value_or("");
    if (!isAbsolutePath(prefix)) throw ApiError(400, "'prefix' must be an absolute path");
    const std::size_t slash = prefix.rfind('/');
    const std::string parent = slash == 0 ? "/" : prefix.substr(0, slash);
    const std::string piece = prefix.substr(slash + 1);
    const bool showHidden = !piece.empty() && piece.front() == '.';
    auto& fileSystem = context_.fileSystem();
    std::vector<std::string> names;
    try {
        for (const auto& entry : fileSystem.listDirectory(parent)) {
            if (entry.name.compare(0, piece.size(), piece) != 0) continue;
            if (entry.name.front() == '.' && !showHidden) continue;
            // Directories themselves only: a link is not followed, wherever it leads.
            bool isDirectory = entry.type == FileType::directory;
            if (entry.type == FileType::other) {
                const auto status = fileSystem.linkStatus(joinPath(parent, entry.name));
                isDirectory = status && status->isDirectory();
            }
            if (isDirectory) names.push_back(entry.name);
        }
    } catch (const FileSystemError&) {
        names.clear();  // a parent that is not there or cannot be read offers nothing
    }
    std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) { return naturalLess(a, b); });
    nlohmann::json directories = nlohmann::json::array();
    for (const auto& name : names) {
        if (directories.size() == mostCompletions) break;
        const std::string path = joinPath(parent, name);
        // Offered only where one can go on: listed and entered.
        if (::access(path.c_str(), R_OK | X_OK) != 0) continue;
        directories.push_back(displayableUtf8(path));
    }
    return {{"directories", directories}};
}

nlohmann::json FolderRequests::strings() {
    nlohmann::json texts = nlohmann::json::object(), singular = nlohmann::json::object();
    for (const auto& text : StringTable::all()) {
        texts[text.key] = text.text;
        if (text.singular) singular[text.key] = *text.singular;
    }
    return {{"texts", texts}, {"singular", singular}};
}

nlohmann::json FolderRequests::setting(const ApiRequest& request) {
    const auto key = request.text("key");
    if (!key) throw ApiError(400, "The request names no setting");
    const auto& definition = requireSetting(*key);
    // The value as the command line would have it typed: a list takes one word per item.
    const nlohmann::json& value = request.has("value") ? request.json()["value"] : nlohmann::json();
    const ApiError notAValue(400, "The request's \"value\" must be text, a number, true or false, or a list of texts");
    std::optional<std::vector<std::string>> words;
    if (value.is_string()) words = {value.get<std::string>()};
    else if (value.is_boolean()) words = {value.get<bool>() ? "true" : "false"};
    else if (value.is_number()) words = {value.dump()};
    else if (value.is_array()) {
        words.emplace();
        for (const auto& item : value) {
            if (!item.is_string()) throw notAValue;
            words->push_back(item.get<std::string>());
        }
    } else if (!value.is_null()) {
        throw notAValue;
    }
    changeSetting(context_.settings(), definition, words);
    return settingRecord(context_.settings(), definition);
}

nlohmann::json FolderRequests::autostart(const ApiRequest& request) {
    nlohmann::json answer;
    if (const auto enabled = request.flag("enabled")) {
        if (!*enabled) Autostart::disable();
        else if (!Autostart::enable(context_.homeOption()))
            answer["warning"] = "The unit is installed, but 'systemctl --user enable vosklin' did not work here; "
                                "run it from your desktop session.";
    }
    answer["enabled"] = Autostart::isEnabled();
    return answer;
}

std::optional<nlohmann::json> FolderRequests::answer(const std::string& name, const ApiRequest& request) {
    if (name == "strings") return strings();
    if (name == "folders") return folders();
    if (name == "complete") return complete(request);
    if (name == "settings") {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& definition : KnownSettings::all())
            list.push_back(settingRecord(context_.settings(), definition));
        return list;
    }
    if (name == "setting") return setting(request);
    if (name == "usage") {
        if (request.has("folder")) return usage(context_, {folderOf(request)});
        return usage(context_, context_.folders().folders());
    }
    if (name == "autostart") return autostart(request);
    if (name == "folderadd") {
        const auto path = request.path("path");
        // A relative path would be read against the daemon's working folder, which nobody sees.
        if (!path || !isAbsolutePath(*path)) throw ApiError(400, "'path' must be an absolute path");
        return listEntry(context_, addFolder(context_, *path, request.flag("manual").value_or(false)));
    }
    if (name == "folderremove") {
        // The window only stops watching: forgetting a folder's history is the command line's.
        const WatchedFolder folder = folderOf(request);
        context_.folders().remove(folder.id, true);
        nlohmann::json answer = {{"folderID", folder.id}, {"historyKept", true}};
        putPath(answer, "path", folder.path);
        return answer;
    }
    if (name == "folderpause" || name == "folderresume" || name == "foldermode" || name == "folderbudget") {
        WatchedFolder folder = folderOf(request);
        if (name == "foldermode") {
            folder.mode = readMode(request.text("mode").value_or(""));
        } else if (name == "folderbudget") {
            const nlohmann::json& budget = request.has("budget") ? request.json()["budget"] : nlohmann::json();
            if (budget.is_number_unsigned() || budget.is_number_integer()) folder.budget = readBudget(budget.dump());
            else if (budget.is_string()) folder.budget = readBudget(budget.get<std::string>());
            else throw ApiError(400, "The request's \"budget\" must be automatic, unlimited or a size");
        } else {
            folder.isPaused = name == "folderpause";
        }
        context_.folders().replace(folder);
        return listEntry(context_, folder);
    }
    return std::nullopt;
}

namespace Autostart {

std::string unitPath() {
    auto config = processEnvironment("XDG_CONFIG_HOME");
    auto home = processEnvironment("HOME");
    std::string base = config && isAbsolutePath(*config) ? *config : home ? joinPath(*home, ".config") : "";
    if (base.empty()) throw ApiError(409, "Cannot tell where systemd user units go: HOME is not set");
    return joinPath(base, "systemd/user/vosklin.service");
}

bool isEnabled() {
    PosixFileSystem fileSystem;
    return fileSystem.linkStatus(unitPath()).has_value();
}

bool enable(const std::optional<std::string>& homeOption) {
    const std::string unit = unitPath();
    PosixFileSystem fileSystem;
    std::string binary = fileSystem.resolvedPath("/proc/self/exe");
    std::string command = binary + " run --background";
    if (homeOption) command += " --home " + absolutePath(*homeOption);
    else if (auto vosklinHome = processEnvironment("VOSKLIN_HOME")) command += " --home " + absolutePath(*vosklinHome);
    const std::string text =
        "[Unit]\n"
        "Description=Vosklin: keeps a version history of your folders\n"
        "\n"
        "[Service]\n"
        "ExecStart=" + command + "\n"
        "Restart=on-failure\n"
        "Nice=10\n"
        "IOSchedulingClass=idle\n"
        "\n"
        "[Install]\n"
        "WantedBy=default.target\n";
    makeDirectories(fileSystem, parentPath(unit), 0755);
    writeFileAtomically(fileSystem, unit, text, 0644);
    return std::system("systemctl --user daemon-reload >/dev/null 2>&1 && "
                       "systemctl --user enable vosklin.service >/dev/null 2>&1") == 0;
}

void disable() {
    const std::string unit = unitPath();
    std::system("systemctl --user disable vosklin.service >/dev/null 2>&1");
    try {
        PosixFileSystem().removeFile(unit);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() != ENOENT) throw;
    }
}

}  // namespace Autostart

}  // namespace vosklin

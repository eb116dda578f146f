#include "platform/Settings.h"

#include <stdexcept>

#include "platform/AtomicFile.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

std::string Settings::configDirectory(const std::optional<std::string>& homeOption, const Environment& environment) {
    if (homeOption && !homeOption->empty()) return absolutePath(*homeOption);
    if (auto home = environment("VOSKLIN_HOME")) return absolutePath(*home);
    if (auto config = environment("XDG_CONFIG_HOME"); config && isAbsolutePath(*config))
        return joinPath(*config, "vosklin");
    if (auto home = environment("HOME"); home && isAbsolutePath(*home)) return joinPath(*home, ".config/vosklin");
    return absolutePath(".vosklin");
}

Settings::Settings(std::string path, FileSystem& fileSystem, Logger& logger)
    : path_(std::move(path)), fileSystem_(fileSystem), logger_(logger) {}

void Settings::logMalformedOnce(const std::string& key, const std::string& why) {
    if (loggedKeys_.insert(key).second)
        logger_.error("Setting " + key + " in " + path_ + " is " + why + "; using its default");
}

nlohmann::json Settings::load(bool* damaged) {
    std::string text;
    try {
        text = readWholeFile(fileSystem_, path_);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() != ENOENT) {
            logMalformedOnce("(file)", std::string("unreadable: ") + error.what());
            if (damaged) *damaged = true;
        }
        return nlohmann::json::object();
    }
    auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        logMalformedOnce("(file)", "not a JSON object");
        if (damaged) *damaged = true;
        return nlohmann::json::object();
    }
    return json;
}

std::optional<double> Settings::number(const std::string& key) {
    std::lock_guard guard(lock_);
    auto json = load();
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) return std::nullopt;
    if (!found->is_number()) {
        logMalformedOnce(key, "not a number");
        return std::nullopt;
    }
    return found->get<double>();
}

std::optional<bool> Settings::flag(const std::string& key) {
    std::lock_guard guard(lock_);
    auto json = load();
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) return std::nullopt;
    if (!found->is_boolean()) {
        logMalformedOnce(key, "not true or false");
        return std::nullopt;
    }
    return found->get<bool>();
}

std::optional<std::vector<std::string>> Settings::strings(const std::string& key) {
    std::lock_guard guard(lock_);
    auto json = load();
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) return std::nullopt;
    if (!found->is_array() || !std::all_of(found->begin(), found->end(), [](const auto& v) { return v.is_string(); })) {
        logMalformedOnce(key, "not a list of strings");
        return std::nullopt;
    }
    return found->get<std::vector<std::string>>();
}

std::optional<std::string> Settings::text(const std::string& key) {
    std::lock_guard guard(lock_);
    auto json = load();
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) return std::nullopt;
    if (!found->is_string()) {
        logMalformedOnce(key, "not a text");
        return std::nullopt;
    }
    return found->get<std::string>();
}

nlohmann::json Settings::raw(const std::string& key) {
    std::lock_guard guard(lock_);
    auto json = load();
    auto found = json.find(key);
    return found == json.end() ? nlohmann::json() : *found;
}

void Settings::set(const std::string& key, const nlohmann::json& value) {
    std::lock_guard guard(lock_);
    bool damaged = false;
    auto json = load(&damaged);
    if (damaged)
        throw std::runtime_error("The settings file " + path_ + " is damaged; fix or move it aside, nothing was changed");
    if (value.is_null()) json.erase(key);
    else json[key] = value;
    makeDirectories(fileSystem_, parentPath(path_), 0700);
    writeFileAtomically(fileSystem_, path_, json.dump(2) + "\n", 0600);
}

}  // namespace vosklin

#pragma once

#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Environment.h"
#include "platform/FileSystem.h"
#include "platform/Logger.h"

namespace vosklin {

// The user's settings: one JSON object of "vosklin.*" keys in settings.json.
//
// Read on every use, so a change made by another process (the command line
// while the daemon runs) takes effect without a restart. A missing file or
// key reads as absent; a value of the wrong type, or a file that is not a JSON
// object, also reads as absent, so every caller falls back to its default, and
// is logged once per key. Writes replace the file atomically. Thread-safe.
class Settings {
public:
    // settings.json and folders.json live here: the --home directory, else
    // $VOSKLIN_HOME, else $XDG_CONFIG_HOME/vosklin, else ~/.config/vosklin.
    static std::string configDirectory(const std::optional<std::string>& homeOption,
                                       const Environment& environment = processEnvironment);

    Settings(std::string path, FileSystem& fileSystem, Logger& logger);

    const std::string& path() const { return path_; }

    std::optional<double> number(const std::string& key);
    std::optional<bool> flag(const std::string& key);
    std::optional<std::vector<std::string>> strings(const std::string& key);
    std::optional<std::string> text(const std::string& key);
    // The key's value as stored, whatever its type (null when absent), for showing it.
    nlohmann::json raw(const std::string& key);

    // Sets one key, keeping the others; a null value removes the key. A
    // settings file that cannot be read or parsed is refused (std::runtime_error)
    // rather than replaced, so the user's other settings are never lost.
    void set(const std::string& key, const nlohmann::json& value);

private:
    // The settings object; `damaged` is set when the file exists but is not one.
    nlohmann::json load(bool* damaged = nullptr);
    void logMalformedOnce(const std::string& key, const std::string& why);

    std::string path_;
    FileSystem& fileSystem_;
    Logger& logger_;
    std::mutex lock_;
    std::set<std::string> loggedKeys_;
};

}  // namespace vosklin

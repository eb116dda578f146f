#include "app/KnownSettings.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "retention/RetentionHorizon.h"

namespace vosklin::KnownSettings {

const std::vector<Definition>& all() {
    static const std::vector<Definition> definitions = {
        {RetentionHorizons::settingKey, Kind::horizon, "year",
         "How far back history reaches: versions are thinned with age (all of the last day, one per hour for a "
         "week, one per day for a month, one per week after that) and dropped beyond this",
         "month, quarter, halfYear, year or forever"},
        {"vosklin.mergeWindowSeconds", Kind::seconds, 10,
         "Seconds a changed file must be left alone before a version of it is kept",
         "a number of seconds above 0, at most 3600"},
        {"vosklin.excludePatterns", Kind::patterns, nlohmann::json::array(),
         "Names never recorded, besides the built-in ones (caches, build output, editor swap files)",
         "glob patterns, each matched against one name in a path (no '/')"},
        {"vosklin.packageExtensions", Kind::extensions, nlohmann::json::array(),
         "Extensions of folders kept as one document, besides the built-in ones", "extensions such as 'scriv'"},
        {"vosklin.contentSearchDisabled", Kind::flag, false, "Keep the text of versions out of the search index",
         "true or false"},
        {"vosklin.isPaused", Kind::flag, false, "Pause background indexing for every folder", "true or false"},
    };
    return definitions;
}

const Definition* find(const std::string& key) {
    for (const auto& definition : all())
        if (definition.key == key || definition.key == "vosklin." + key) return &definition;
    return nullptr;
}

namespace {

void checkItem(const std::string& item, const char* what) {
    if (item.empty()) throw std::invalid_argument(std::string("an empty ") + what + " matches nothing");
    if (item.size() > 255) throw std::invalid_argument(std::string("a ") + what + " is at most 255 bytes");
    if (item.find('/') != std::string::npos)
        throw std::invalid_argument(std::string("a ") + what + " is matched against one name, so it has no '/'");
    for (unsigned char c : item)
        if (c < 0x20 || c == 0x7f) throw std::invalid_argument(std::string("a ") + what + " has no control characters");
}

}  // namespace

nlohmann::json parse(const Definition& definition, const std::vector<std::string>& words) {
    const bool isList = definition.kind == Kind::patterns || definition.kind == Kind::extensions;
    if (!isList && words.size() != 1) throw std::invalid_argument("it takes one value: " + definition.values);
    switch (definition.kind) {
        case Kind::horizon:
            if (!RetentionHorizons::fromString(words[0]))
                throw std::invalid_argument("'" + words[0] + "' is not one of " + definition.values);
            return words[0];
        case Kind::seconds: {
            const std::string& text = words[0];
            char* end = nullptr;
            const double value = text.empty() ? NAN : std::strtod(text.c_str(), &end);
            const bool plain = !text.empty() && *end == '\0' && text.find_first_of("eEnNiIxX") == std::string::npos;
            if (!plain || !std::isfinite(value) || value <= 0 || value > 3600)
                throw std::invalid_argument("'" + text + "' is not " + definition.values);
            return value;
        }
        case Kind::flag: {
            const std::string& text = words[0];
            if (text == "true" || text == "yes" || text == "on") return true;
            if (text == "false" || text == "no" || text == "off") return false;
            throw std::invalid_argument("'" + text + "' is not true or false");
        }
        case Kind::patterns:
        case Kind::extensions: {
            nlohmann::json list = nlohmann::json::array();
            for (std::string item : words) {
                if (definition.kind == Kind::extensions && !item.empty() && item.front() == '.') item.erase(0, 1);
                checkItem(item, definition.kind == Kind::patterns ? "pattern" : "extension");
                if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
            }
            return list;
        }
    }
    throw std::invalid_argument("unknown kind of setting");
}

}  // namespace vosklin::KnownSettings

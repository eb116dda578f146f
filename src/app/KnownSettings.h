#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace vosklin {

// The "vosklin.*" settings a person may change, with what each means, its
// default and the values it takes. One table for the command line and the
// window, so both refuse the same values with the same words.
namespace KnownSettings {

enum class Kind { horizon, seconds, flag, patterns, extensions };

struct Definition {
    std::string key;      // "vosklin.historyHorizon"
    Kind kind;
    nlohmann::json defaultValue;
    std::string meaning;  // one sentence
    std::string values;   // what may be written, for help and refusals
};

const std::vector<Definition>& all();
// By full key or by the part after "vosklin."; nothing for an unknown key.
const Definition* find(const std::string& key);
// The stored value for `words` as typed (a list takes one word per item).
// Throws std::invalid_argument with the reason when they are not a value of it.
nlohmann::json parse(const Definition& definition, const std::vector<std::string>& words);

}  // namespace KnownSettings
}  // namespace vosklin

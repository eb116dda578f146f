#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vosklin {

// The English texts of the keys the program shows, one table for the command
// line and the web UI. A key that ends in placeholders ("%@" for text, "%lld"
// for a number) takes its arguments in order; a text with a number may have a
// singular form for 1. An unknown key is shown as itself, so a missing text is
// visible rather than silent.
class StringTable {
public:
    static std::string text(const std::string& key, const std::vector<std::string>& arguments = {});
    static std::string count(const std::string& key, long long number, const std::vector<std::string>& more = {});

    struct Text {
        std::string key;
        std::string text;
        std::optional<std::string> singular;  // a counted text's form for 1, when it has one
    };
    // Every text, by key, for a front end that fills the placeholders itself.
    static std::vector<Text> all();
};

}  // namespace vosklin

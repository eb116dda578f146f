#pragma once

#include <optional>
#include <string>

namespace vosklin {

// What the search field hands the search: the text as typed, whether the
// field is in use, and the watched folder's identifier.
struct ContentQuery {
    std::string text;
    bool active = true;
    std::optional<std::string> folder;
};

}  // namespace vosklin

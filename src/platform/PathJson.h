#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace vosklin {

// How a path goes into JSON.
//
// Linux file names are bytes; JSON strings are Unicode. A path that is valid
// UTF-8 is written as it stands under `key`. A path that is not (a name made
// on a Latin-1 system, say) cannot be written losslessly as a JSON string, so
// it is written twice: under `key` with each invalid byte shown as U+FFFD, for
// people, and under `key + "Bytes"` as the exact bytes in lowercase hex, for
// programs. Readers take the "Bytes" form when it is there. The catalog keeps
// such paths byte for byte, so nothing is mangled on the way through.
void putPath(nlohmann::json& object, const std::string& key, const std::string& path);
// Reads back what putPath wrote. Throws nlohmann::json::exception when `key` is absent or not a string.
std::string getPath(const nlohmann::json& object, const std::string& key);

bool isValidUtf8(std::string_view text);
// Length of the valid UTF-8 sequence starting at `at` (1 to 4), or 0 when it is not one.
std::size_t validSequenceLength(std::string_view text, std::size_t at);
// Valid UTF-8 unchanged; each byte that is not part of a valid sequence becomes U+FFFD.
std::string displayableUtf8(std::string_view text);

}  // namespace vosklin

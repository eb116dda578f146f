#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// "0 bytes", "1 byte", "532 bytes", "1.2 kB", "3.4 MB", "12 GB": decimal units, as file managers show them.
std::string formatByteCount(std::int64_t bytes);
// "500", "1.5GB", "20 MiB", "3k": a size as people type it; nothing when it is not one.
std::optional<std::int64_t> parseByteCount(const std::string& text);

}  // namespace vosklin

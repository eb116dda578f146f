#pragma once

#include <cstdint>
#include <string>

namespace vosklin {

// "0 bytes", "1 byte", "532 bytes", "1.2 kB", "3.4 MB", "12 GB": decimal units, as file managers show them.
std::string formatByteCount(std::int64_t bytes);

}  // namespace vosklin

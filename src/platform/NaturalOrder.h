#pragma once

#include <string_view>

namespace vosklin {

// Orders names as people expect in a file manager: case does not matter, and
// runs of digits compare by value, so "b2" comes before "b10" and "Report"
// beside "report". Returns <0, 0 or >0. ASCII letters fold case; other bytes
// compare as they are.
int naturalCompare(std::string_view a, std::string_view b);

inline bool naturalLess(std::string_view a, std::string_view b) { return naturalCompare(a, b) < 0; }

}  // namespace vosklin

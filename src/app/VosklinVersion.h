#pragma once

#include <string_view>

namespace vosklin {

inline constexpr std::string_view vosklinVersion = VOSKLIN_VERSION;

}  // namespace vosklin

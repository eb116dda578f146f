#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// How a payload got into the store; stored as these strings in versions.method.
enum class CloneMethod { cloned, copied, unknown };

std::string_view toString(CloneMethod method);
// A stored string that names no method reads as `unknown`.
CloneMethod cloneMethodFromString(std::string_view text);

}  // namespace vosklin

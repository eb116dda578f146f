#pragma once

#include <string>

namespace vosklin {

// A random (version 4) UUID in upper case, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string makeUuid();
bool isUuid(const std::string& text);

}  // namespace vosklin

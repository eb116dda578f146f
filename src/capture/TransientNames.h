#pragma once

#include <string>
#include <vector>

namespace vosklin {

// Names of files that editors, browsers, downloaders and the system make and
// remove on their own (lock files, swap files, partial downloads...). A unit
// whose own name matches is never captured. The rule looks at the unit's own
// name only, a file or a package directory, not at the folders around it.
class TransientNames {
public:
    static const std::vector<std::string>& patterns();
    static bool isTransient(const std::string& name);
};

}  // namespace vosklin

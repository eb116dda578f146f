#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

// A command that cannot do what was asked, for a reason the user can fix; the
// message is printed as it is, after "vosklin: ".
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vosklin

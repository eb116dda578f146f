#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

// Exit statuses: 0 done, 1 failed, 2 misused (a bad command line), and
// exitSomeUnreadable: done, but some items could not be read and were left out.
inline constexpr int exitSomeUnreadable = 3;

// A command that cannot do what was asked, for a reason the user can fix; the
// message is printed as it is, after "vosklin: ".
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vosklin

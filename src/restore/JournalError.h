#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

// A restore or rewind journal whose bytes are not one this program wrote: not
// JSON, a key missing or of the wrong type, an instant or path that cannot be
// read back. Recovery sets such a journal aside instead of acting on it.
class JournalError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vosklin

#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

// A document of a kind we read whose bytes are damaged or hostile: a broken
// zip, XML that does not parse, an RTF group that never closes, a compound
// file whose sectors point outside it. The indexer records such a digest as
// failed and goes on; it is never retried until the index is cleared.
class TextExtractionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vosklin

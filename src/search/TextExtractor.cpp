#include "search/TextExtractor.h"

namespace vosklin {

TextExtractor::TextExtractor(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

// Not written yet: no payload yields text.
std::optional<std::string> TextExtractor::extract(const std::string&, bool) const { return std::nullopt; }

}  // namespace vosklin

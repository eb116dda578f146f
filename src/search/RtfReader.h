#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// The plain text of an RTF document, as UTF-8.
//
// Reads the RTF syntax itself: control words and symbols, groups, `\uN` with
// its fallback characters skipped (`\ucN`), `\'hh` in the document's code page
// (`\ansicpg`, `\mac`, `\pc`, `\pca`), and skips destinations that hold no
// body text (`\*`, fonttbl, colortbl, stylesheet, info, pict, ...). Paragraph
// and line breaks become line feeds, `\tab` a tab.
//
// The bytes are untrusted: group depth, control-word length and parameter are
// bounded, and the output never exceeds a fixed multiple of the input.
// Throws TextExtractionError on input that is not RTF or is malformed beyond
// reading (not starting with "{\rtf", too deeply nested). Pure; thread-safe.
namespace RtfReader {
std::string text(std::string_view bytes);
}

}  // namespace vosklin

#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// The plain text of an RTF document, as UTF-8.
//
// Reads the RTF syntax itself: control words and symbols, groups, `\uN` with
// its fallback characters skipped (`\ucN`, restored when a group closes;
// a brace also ends the skipping), `\'hh` and raw 8-bit bytes in the code page
// of the current font (`\fcharsetN` or `\cpgN` in the font table) or else of
// the document (`\ansicpg`, `\mac`, `\pc`, `\pca`; 1252 by default and for a
// code page the system cannot convert). Skips destinations that hold no body
// text (`\*`, fonttbl, colortbl, stylesheet, info, pict, field instructions,
// ...) and an embedded object's data, keeping its `\result`; headers, footers
// and footnotes are text the author wrote and are kept where they stand.
// `\par`, `\line`, `\sect`, `\page` and `\row` become line feeds, `\tab`
// and `\cell` a tab. Whatever follows the document's outer group is ignored.
//
// The bytes are untrusted: group depth and numeric parameters are bounded, no
// token costs more than its own bytes (nor does `\binN`), and the output is never more than three bytes per input byte. Any
// byte sequence that is not text becomes U+FFFD; the result is valid UTF-8.
// Throws TextExtractionError on input that is not RTF or is malformed beyond
// reading: not starting with "{\rtf" (after white space), nested more than
// 256 groups deep, or ending inside a group (a cut-off document is damaged,
// not partly read). Pure; thread-safe.
namespace RtfReader {
std::string text(std::string_view bytes);
}

}  // namespace vosklin

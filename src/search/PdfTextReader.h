#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// The text of a PDF document, as UTF-8: each page's text followed by one line
// feed (the line ends and page break the PDF library closes a page with are
// dropped first), in page order, stopping after the page at which the text reaches
// `characterLimit` characters (code points).
//
// Nothing when the document cannot be opened or is locked with a user
// password. The PDF library's complaints about damaged documents are
// silenced rather than written to standard error. Never throws for bad
// bytes. Thread-safe: documents are read one at a time, since the PDF
// library's global state is not meant for concurrent use.
namespace PdfTextReader {
std::optional<std::string> text(std::string_view bytes, std::size_t characterLimit);
}

// Held by every user of the PDF library in this process, for as long as it uses it.
std::mutex& pdfLibraryLock();

}  // namespace vosklin

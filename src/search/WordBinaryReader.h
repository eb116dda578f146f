#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// The plain text of a Word 97–2003 binary document (.doc), as UTF-8.
//
// Reads the compound file (header, FAT, directory, mini stream), finds the
// "WordDocument" stream and its table stream ("0Table" or "1Table" as the FIB
// says), and walks the piece table of the CLX: each piece is either
// compressed (8-bit, code page 1252) or UTF-16LE. Paragraph marks and line
// breaks become line feeds; field codes and other control characters are
// dropped.
//
// The bytes are untrusted: every offset, count and sector chain is checked
// against the input's size and chains are bounded against cycles. Throws
// TextExtractionError on anything that is not such a document or is damaged
// (including encrypted documents). Pure; thread-safe.
namespace WordBinaryReader {
std::string text(std::string_view bytes);
}

}  // namespace vosklin

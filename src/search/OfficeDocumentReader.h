#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vosklin {

// The plain text of the zipped XML word-processing documents, as UTF-8:
// "word/document.xml" of a .docx, "content.xml" of an .odt.
//
// The XML is parsed as a stream (never held whole). A .docx yields the text
// of its runs (w:t), with w:tab as a tab, w:br and w:cr as line feeds and a
// line feed after each paragraph; text kept only for older readers
// (mc:Fallback) is skipped. An .odt yields the text of its paragraphs and
// headings (text:p, text:h, spans and links within them) with white space
// collapsed as the format says, text:tab as a tab, text:line-break as a line
// feed, text:s as its text:c spaces and a line feed after each paragraph;
// comments (office:annotation) are skipped.
//
// The bytes are untrusted: the entry may inflate to at most `entryLimit`
// bytes, elements nest at most `depthLimit` deep, a document type declaration
// (and so any entity it could declare) is refused, and the text stops growing
// at `entryLimit` bytes. Throws TextExtractionError when the zip is damaged,
// the entry is missing or too large, or the XML does not parse or breaks
// those bounds. Pure; thread-safe.
namespace OfficeDocumentReader {
inline constexpr std::uint64_t entryLimit = 64ull * 1024 * 1024;
inline constexpr std::size_t depthLimit = 512;

std::string docxText(std::string_view bytes, std::uint64_t limit = entryLimit);
std::string odtText(std::string_view bytes, std::uint64_t limit = entryLimit);
}  // namespace OfficeDocumentReader

}  // namespace vosklin

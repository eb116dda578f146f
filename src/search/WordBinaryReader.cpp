#include "search/WordBinaryReader.h"

#include <array>
#include <cstdint>
#include <vector>

#include "platform/Utf8.h"
#include "search/CompoundFile.h"
#include "search/TextExtractionError.h"

namespace vosklin {
namespace {

constexpr std::uint16_t wordIdentifier = 0xA5EC;
constexpr std::uint16_t firstWord97Version = 0x00C0;  // earlier versions lay out the header differently
constexpr std::uint16_t encryptedFlag = 0x0100, tableOneFlag = 0x0200;
constexpr std::size_t fcLcbClxIndex = 33;  // the piece table's place among the header's offset/length pairs
constexpr std::uint32_t compressedFlag = 0x40000000;
constexpr std::size_t fieldDepthLimit = 256;

[[noreturn]] void damaged(const std::string& what) { throw TextExtractionError("Word document: " + what); }

struct Reader {
    std::string_view bytes;
    const char* what;

    void need(std::uint64_t at, std::uint64_t count) const {
        if (at > bytes.size() || count > bytes.size() - at) damaged(std::string(what) + " is too short");
    }
    std::uint8_t u8(std::uint64_t at) const {
        need(at, 1);
        return std::uint8_t(bytes[at]);
    }
    std::uint16_t u16(std::uint64_t at) const { return std::uint16_t(u8(at) | u8(at + 1) << 8); }
    std::uint32_t u32(std::uint64_t at) const { return u16(at) | std::uint32_t(u16(at + 2)) << 16; }
};

// What the reader needs from the file information block at the start of the document stream.
struct Header {
    bool tableOne;
    std::uint32_t fcClx, lcbClx;
};

Header readHeader(std::string_view document) {
    const Reader fib{document, "the file information block"};
    if (document.size() < 4 || fib.u16(0) != wordIdentifier) damaged("not a Word document");
    if (fib.u16(2) < firstWord97Version) damaged("written by a Word older than Word 97");
    const auto flags = fib.u16(0x0A);
    if (flags & encryptedFlag) damaged("encrypted");
    // Three variable-length arrays follow the fixed 32 bytes, each after its count.
    std::uint64_t at = 0x20;
    at += 2 + 2 * std::uint64_t(fib.u16(at));
    at += 2 + 4 * std::uint64_t(fib.u16(at));
    const auto pairs = fib.u16(at);
    at += 2;
    if (pairs <= fcLcbClxIndex) damaged("the file information block has no piece table entry");
    at += 8 * fcLcbClxIndex;
    return {bool(flags & tableOneFlag), fib.u32(at), fib.u32(at + 4)};
}

// Turns the document's character codes into UTF-8 text: marks become line
// feeds, a field keeps its result and loses its instructions, and other
// control characters are dropped. UTF-16 surrogates are paired across pieces;
// an unpaired one becomes U+FFFD so the output is always valid UTF-8.
class TextWriter {
public:
    void unit(char16_t unit) {
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            flushHighSurrogate();
            highSurrogate_ = unit;
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            if (highSurrogate_) {
                character(0x10000 + ((std::uint32_t(highSurrogate_) - 0xD800) << 10) + (unit - 0xDC00));
                highSurrogate_ = 0;
            } else {
                character(0xFFFD);
            }
        } else {
            flushHighSurrogate();
            character(unit);
        }
    }

    std::string finish() {
        flushHighSurrogate();
        return std::move(text_);
    }

private:
    void flushHighSurrogate() {
        if (highSurrogate_) character(0xFFFD);
        highSurrogate_ = 0;
    }

    void character(std::uint32_t code) {
        switch (code) {
            case 0x13:  // field begins: its instructions follow
                if (fields_.size() == fieldDepthLimit) damaged("fields nested too deeply");
                fields_.push_back(true);
                ++openInstructions_;
                return;
            case 0x14:  // field separator: its result follows
                if (!fields_.empty() && fields_.back()) {
                    fields_.back() = false;
                    --openInstructions_;
                }
                return;
            case 0x15:  // field ends
                if (!fields_.empty()) {
                    if (fields_.back()) --openInstructions_;
                    fields_.pop_back();
                }
                return;
            default:
                break;
        }
        if (openInstructions_ > 0) return;
        switch (code) {
            case 0x07:  // table cell or row end: a cell per line keeps cells' words apart
            case 0x0B:  // line break
            case 0x0C:  // page or section break
            case 0x0D:  // paragraph end
            case 0x0E:  // column break
                text_ += '\n';
                return;
            case 0x09:
                text_ += '\t';
                return;
            case 0x1E:  // non-breaking hyphen
                text_ += '-';
                return;
            default:
                if (code < 0x20) return;  // pictures, footnote references, optional hyphens, ...
                append(code);
        }
    }

    void append(std::uint32_t code) { appendUtf8(text_, code); }

    std::string text_;
    std::vector<bool> fields_;  // per open field: still in its instructions
    std::size_t openInstructions_ = 0;
    char16_t highSurrogate_ = 0;
};

// Code page 1252 from 0x80 to 0x9F; the rest of the page is Latin-1. The five
// unassigned codes give 0, which is dropped like a control character.
constexpr std::array<char16_t, 32> cp1252High = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

char16_t fromCp1252(std::uint8_t byte) { return byte >= 0x80 && byte < 0xA0 ? cp1252High[byte - 0x80] : byte; }

// The piece table inside the CLX: property runs (0x01) come first and are
// skipped; the piece table (0x02) ends the walk.
std::string_view pieceTable(std::string_view clx) {
    const Reader reader{clx, "the piece table"};
    std::uint64_t at = 0;
    while (at < clx.size()) {
        const auto kind = reader.u8(at);
        if (kind == 0x01) {
            at += 3 + std::uint64_t(reader.u16(at + 1));
        } else if (kind == 0x02) {
            const auto length = reader.u32(at + 1);
            reader.need(at + 5, length);
            return clx.substr(at + 5, length);
        } else {
            damaged("the piece table holds an unknown entry");
        }
    }
    damaged("no piece table");
}

}  // namespace

std::string WordBinaryReader::text(std::string_view bytes) {
    const CompoundFile file(bytes);
    const auto document = file.stream("WordDocument");
    if (!document) damaged("no document stream");
    const auto header = readHeader(*document);
    const auto table = file.stream(header.tableOne ? "1Table" : "0Table");
    if (!table) damaged("no table stream");
    if (header.fcClx > table->size() || header.lcbClx > table->size() - header.fcClx)
        damaged("the piece table lies outside the table stream");
    const auto pieces = pieceTable(std::string_view(*table).substr(header.fcClx, header.lcbClx));

    // n + 1 character positions, then n piece descriptors of 8 bytes.
    if (pieces.size() < 4 || (pieces.size() - 4) % 12 != 0) damaged("the piece table has a wrong length");
    const std::size_t count = (pieces.size() - 4) / 12;
    const Reader reader{pieces, "the piece table"};
    // Pieces never share bytes, so the text cannot have more characters than the stream has bytes.
    if (reader.u32(4 * count) < reader.u32(0) || reader.u32(4 * count) - reader.u32(0) > document->size())
        damaged("the pieces claim more text than the document holds");

    TextWriter writer;
    for (std::size_t i = 0; i < count; ++i) {
        const auto first = reader.u32(4 * i), end = reader.u32(4 * i + 4);
        if (end < first) damaged("the pieces are out of order");
        const auto fc = reader.u32(4 * (count + 1) + 8 * i + 2);
        const bool compressed = fc & compressedFlag;
        const std::uint64_t offset = compressed ? (fc & ~compressedFlag) / 2 : fc;
        const std::uint64_t length = std::uint64_t(end - first) * (compressed ? 1 : 2);
        if (offset > document->size() || length > document->size() - offset)
            damaged("a piece lies outside the document stream");
        const std::string_view piece = std::string_view(*document).substr(offset, length);
        if (compressed) {
            for (const char byte : piece) writer.unit(fromCp1252(std::uint8_t(byte)));
        } else {
            for (std::size_t at = 0; at < piece.size(); at += 2)
                writer.unit(char16_t(std::uint8_t(piece[at]) | std::uint8_t(piece[at + 1]) << 8));
        }
    }
    return writer.finish();
}

}  // namespace vosklin

#include "support/WordDocumentBuilder.h"

namespace vosklin::test {
namespace {

void append32(std::string& b, std::uint32_t value) {
    b.append(4, '\0');
    put32(b, b.size() - 4, value);
}

constexpr std::size_t textStart = 0x400;
constexpr std::uint32_t compressedFlag = 0x40000000;

// A table stream: some leading bytes, then the CLX; returns it and sets the CLX's place.
std::string tableStream(const std::vector<WordPiece>& pieces, const std::vector<std::uint32_t>& offsets,
                        bool propertiesFirst, std::uint32_t& fcClx, std::uint32_t& lcbClx) {
    std::string table(16, '\0');
    fcClx = std::uint32_t(table.size());
    if (propertiesFirst) table += std::string("\x01\x04\x00\x08\x00\x01\x00", 7);  // one run of 4 bytes
    table += '\x02';
    append32(table, std::uint32_t(4 + 12 * pieces.size()));
    std::uint32_t cp = 0;
    append32(table, cp);
    for (const auto& piece : pieces) append32(table, cp += std::uint32_t(piece.bytes.size() / (piece.compressed ? 1 : 2)));
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        table.append(2, '\0');
        append32(table, pieces[i].fc ? *pieces[i].fc
                                     : pieces[i].compressed ? (offsets[i] * 2) | compressedFlag : offsets[i]);
        table.append(2, '\0');
    }
    lcbClx = std::uint32_t(table.size() - fcClx);
    return table;
}

}  // namespace

WordPiece WordPiece::unicode(const std::u16string& text) {
    std::string bytes;
    for (const char16_t unit : text) {
        bytes += char(unit & 0xFF);
        bytes += char(unit >> 8);
    }
    return {bytes, false, std::nullopt};
}

namespace {

struct Streams {
    std::string document, table, decoyTable;
};

Streams streams(const WordDocumentPlan& plan) {
    // Word 97 header layout: 32 fixed bytes, 14 shorts, 22 longs, 93 offset/length pairs.
    std::string document(textStart, '\0');
    put16(document, 0x00, plan.identifier);
    put16(document, 0x02, plan.version);
    put16(document, 0x0A, std::uint16_t((plan.encrypted ? 0x0100 : 0) | (plan.tableOne ? 0x0200 : 0)));
    put16(document, 0x20, 14);
    put16(document, 0x3E, 22);
    put16(document, 0x98, 93);

    std::vector<std::uint32_t> offsets(plan.pieces.size());
    for (std::size_t k = 0; k < plan.pieces.size(); ++k) {
        const std::size_t i = plan.reversedLayout ? plan.pieces.size() - 1 - k : k;
        offsets[i] = std::uint32_t(document.size());
        document += plan.pieces[i].bytes;
    }
    const std::vector<WordPiece> decoy{WordPiece::latin("decoy")};
    const std::vector<std::uint32_t> decoyOffsets{std::uint32_t(document.size())};
    document += decoy[0].bytes;
    std::uint32_t charactersInText = 0;
    for (const auto& piece : plan.pieces) charactersInText += std::uint32_t(piece.bytes.size() / (piece.compressed ? 1 : 2));
    put32(document, 0x4C, charactersInText);
    if (document.size() < plan.minimumSize) document.resize(plan.minimumSize, '\0');

    std::uint32_t fcClx = 0, lcbClx = 0, decoyFc = 0, decoyLcb = 0;
    Streams result;
    result.table = tableStream(plan.pieces, offsets, plan.propertiesFirst, fcClx, lcbClx);
    result.decoyTable = tableStream(decoy, decoyOffsets, false, decoyFc, decoyLcb);
    put32(document, 0x1A2, plan.fcClx.value_or(fcClx));
    put32(document, 0x1A6, plan.lcbClx.value_or(lcbClx));
    result.document = std::move(document);
    return result;
}

}  // namespace

CompoundFileImage buildWordDocument(const WordDocumentPlan& plan) {
    CompoundFileWriter writer(plan.majorVersion);
    if (plan.embeddedDecoy) {  // an embedded document's streams, met first in the directory
        const auto inner = streams({.pieces = {WordPiece::latin("embedded")}});
        writer.add("ObjectPool/_1/WordDocument", inner.document).add("ObjectPool/_1/1Table", inner.table);
    }
    const auto own = streams(plan);
    writer.add("WordDocument", own.document);
    if (!plan.withoutTable) writer.add(plan.tableOne ? "1Table" : "0Table", own.table);
    if (plan.decoyTable) writer.add(plan.tableOne ? "0Table" : "1Table", own.decoyTable);
    return writer.write();
}


}  // namespace vosklin::test

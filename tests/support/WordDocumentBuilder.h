#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/CompoundFileWriter.h"

namespace vosklin::test {

// One run of text of a Word 97–2003 document, as stored: 8-bit code page 1252
// bytes ("compressed") or UTF-16LE.
struct WordPiece {
    std::string bytes;
    bool compressed = true;
    std::optional<std::uint32_t> fc = std::nullopt;  // where the piece table says the piece is, instead of where it was put

    static WordPiece latin(std::string cp1252) { return {std::move(cp1252), true, std::nullopt}; }
    static WordPiece unicode(const std::u16string& text);
};

// A minimal .doc: a document stream with a file information block carrying the
// fields a reader needs (identifier, version, flags, the piece table's place)
// and the pieces' bytes, and a table stream holding the CLX. The defaults make
// a valid document; the other fields bend it for a test.
struct WordDocumentPlan {
    std::vector<WordPiece> pieces = {};  // in character-position order
    bool tableOne = true;
    bool decoyTable = false;     // the other table stream too, whose pieces read "decoy"
    bool withoutTable = false;   // no table stream at all
    bool embeddedDecoy = false;  // an embedded document reading "embedded" in a storage, listed first
    bool propertiesFirst = false;  // property runs before the piece table in the CLX
    bool reversedLayout = false;   // the pieces' bytes stored last piece first
    bool encrypted = false;
    std::uint16_t identifier = 0xA5EC;
    std::uint16_t version = 0x00C1;
    std::size_t minimumSize = 0;  // the document stream padded to this (4096 and up leaves the mini stream)
    int majorVersion = 3;         // of the compound file
    std::optional<std::uint32_t> fcClx = std::nullopt, lcbClx = std::nullopt;
};

CompoundFileImage buildWordDocument(const WordDocumentPlan& plan);

}  // namespace vosklin::test

#include "search/WordBinaryReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "search/TextExtractionError.h"
#include "support/TempDirectory.h"
#include "support/WordDocumentBuilder.h"

namespace vosklin {
namespace {

using test::WordDocumentPlan;
using test::WordPiece;

WordPiece latin(std::string cp1252) { return WordPiece::latin(std::move(cp1252)); }
WordPiece unicode(const std::u16string& text) { return WordPiece::unicode(text); }

struct Readable {
    const char* name;
    WordDocumentPlan plan;
    std::string text;
};

// Documents as Word lays them out, each with the text a reader must get.
std::vector<Readable> readableDocuments() {
    return {
        {"compressed", {.pieces = {latin("Hello, world\r")}}, "Hello, world\n"},
        {"code-page-1252",
         {.pieces = {latin("\x93" "caf\xE9\x94 \x80" "5 \x96 na\xEF" "ve\x85 \x8A\x9F\x81\x8D\r")}},
         "\u201C" "caf\u00E9\u201D \u20AC" "5 \u2013 na\u00EF" "ve\u2026 \u0160\u0178\n"},
        {"unicode", {.pieces = {unicode(u"Привет şirket 日本 \U0001F600\r")}}, "Привет şirket 日本 \U0001F600\n"},
        {"unpaired-surrogates", {.pieces = {unicode(u"a\xD800" "b\xDC00" "c\xD83D")}}, "a\uFFFD" "b\uFFFD" "c\uFFFD"},
        {"mixed-pieces-stored-back-to-front",
         {.pieces = {latin("One "), unicode(u"два "), latin("three "), unicode(u"\xD83D"), unicode(u"\xDE00")},
          .reversedLayout = true},
         "One два three \U0001F600"},
        {"table-one-beside-a-decoy", {.pieces = {latin("in 1Table")}, .tableOne = true, .decoyTable = true}, "in 1Table"},
        {"table-zero-beside-a-decoy", {.pieces = {latin("in 0Table")}, .tableOne = false, .decoyTable = true}, "in 0Table"},
        {"embedded-document-not-taken", {.pieces = {latin("outer")}, .embeddedDecoy = true}, "outer"},
        {"property-runs-before-pieces", {.pieces = {latin("after runs")}, .propertiesFirst = true}, "after runs"},
        {"field-result-kept",
         {.pieces = {latin("See \x13 HYPERLINK \"http://example.org\" \x14the site\x15. "),
                     unicode(u"\x13 IF \x13 PAGE \x14" u"3\x15 = 3 \x14yes\x15 \x13 PAGE \x15|\x14" u"dangling")}},
         "See the site. yes |dangling"},
        {"marks",
         {.pieces = {latin("a\rb\x0B" "c\x0C" "d\x07" "e\x07\x07\tf\x01\x08\x05g\x1Eh\x1Fi\x0Ej")}},
         "a\nb\nc\nd\ne\n\n\tfg-hi\nj"},
        {"large-document-stream", {.pieces = {latin("big\r"), unicode(u"större\r")}, .minimumSize = 20'000}, "big\nstörre\n"},
        {"version-4-file", {.pieces = {latin("four\r")}, .minimumSize = 9000, .majorVersion = 4}, "four\n"},
        {"no-pieces", {}, ""},
    };
}

// These documents are also the fuzzer's seeds; to write them again:
//   VOSKLIN_WRITE_WORD_SEEDS=bench/fuzz/seeds/WordBinaryReader search_tests --gtest_filter='*ReadsTheTextOfEachPiece'
TEST(WordBinaryReaderTest, ReadsTheTextOfEachPiece) {
    const char* seeds = std::getenv("VOSKLIN_WRITE_WORD_SEEDS");
    for (const auto& document : readableDocuments()) {
        const auto bytes = test::buildWordDocument(document.plan).bytes;
        EXPECT_EQ(WordBinaryReader::text(bytes), document.text) << document.name;
        if (seeds && bytes.size() <= 64 * 1024) test::writeFile(std::string(seeds) + "/" + document.name + ".doc", bytes);
    }
}

// Each case breaks one promise of the format; reading must say so, never
// guess, crash or read past the bytes.
TEST(WordBinaryReaderTest, RefusesWhatItCannotRead) {
    const auto hello = [] { return WordDocumentPlan{.pieces = {latin("hello")}}; };
    const auto big = [] { return WordDocumentPlan{.pieces = {latin("hello")}, .minimumSize = 10'000}; };
    struct Case {
        const char* name;
        WordDocumentPlan plan;
        std::function<void(test::CompoundFileImage&)> damage = [](auto&) {};
    };
    const std::vector<Case> cases = {
        {"encrypted", {.pieces = {latin("secret")}, .encrypted = true}},
        {"no table stream", {.pieces = {latin("x")}, .withoutTable = true}},
        {"wrong identifier", {.pieces = {latin("x")}, .identifier = 0x1234}},
        {"older than Word 97", {.pieces = {latin("x")}, .version = 0x0068}},
        {"CLX past the table stream", {.pieces = {latin("x")}, .fcClx = 4000}},
        {"CLX longer than the table stream", {.pieces = {latin("x")}, .lcbClx = 0x7FFFFFF0}},
        {"CLX cut inside the piece table", {.pieces = {latin("x")}, .lcbClx = 20}},
        {"CLX without a piece table", {.pieces = {latin("x")}, .lcbClx = 0}},
        {"piece past the document stream", {.pieces = {WordPiece{"abc", true, 0x40000000u | 20'000u}}}},
        {"unicode piece past the document stream", {.pieces = {WordPiece{"ab", false, 0x3FFFFFF0u}}}},
        {"fields nested beyond reason", {.pieces = {latin(std::string(300, '\x13'))}}},
        {"not a compound file", hello(), [](auto& f) { f.bytes = "Just some text, long enough to be taken for something" + std::string(600, '.'); }},
        {"no document stream", hello(), [](auto& f) { f.bytes[f.entryOffset(1)] = 'X'; }},
        {"sector chain in a cycle", big(), [](auto& f) { f.setFat(f.firstSector.at("WordDocument") + 5, f.firstSector.at("WordDocument")); }},
        {"sector index past the file", big(), [](auto& f) { f.setFat(f.firstSector.at("WordDocument") + 1, 0x00F00000); }},
        {"mini sector index past the mini stream", hello(), [](auto& f) { f.setMiniFat(f.firstSector.at("WordDocument"), 0x00F00000); }},
        {"truncated", big(), [](auto& f) { f.bytes.resize(f.bytes.size() / 2); }},
        {"truncated to a header", hello(), [](auto& f) { f.bytes.resize(512); }},
        {"empty", hello(), [](auto& f) { f.bytes.clear(); }},
    };
    for (const auto& c : cases) {
        auto image = test::buildWordDocument(c.plan);
        c.damage(image);
        EXPECT_THROW(WordBinaryReader::text(image.bytes), TextExtractionError) << c.name;
    }
}

}  // namespace
}  // namespace vosklin

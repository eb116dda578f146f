#include "search/RtfReader.h"

#include <gtest/gtest.h>

#include "platform/PathJson.h"
#include "search/TextExtractionError.h"

namespace vosklin {
namespace {

struct Row {
    const char* what;
    std::string rtf;
    std::string text;
};

// Sixteen code pages in use, then one more (1254, read as 1252) and one the system lacks.
std::string manyCodePages() {
    std::string rtf = "{\\rtf1";
    for (int page : {437, 850, 852, 855, 857, 860, 861, 862, 863, 864, 865, 866, 869, 1250, 1251, 1253})
        rtf += "\\ansicpg" + std::to_string(page) + " \\'41";
    return rtf + "\\ansicpg1254 \\'f0\\ansicpg2 \\'93}";
}

TEST(RtfReaderTest, ReadsTheTextOfEachConstruct) {
    const Row rows[] = {
        {"paragraphs, formatting groups, the space that ends a word",
         R"({\rtf1\ansi\deff0{\fonttbl{\f0\fswiss Helvetica;}}\f0\pard This is {\b bold}\b0  text.\par Second\par})",
         "This is bold text.\nSecond\n"},
        {"control symbols", R"({\rtf1 a\\b\{c\}d\~e\-f\_g\*})", "a\\b{c}d\u00A0ef\u2011g"},
        {"line breaks in the file are not text; a backslash before one is a paragraph", "{\\rtf1 one\r\ntwo\\\r\nthree}",
         "onetwo\nthree"},
        {"tab, line, section, page, table cells",
         R"({\rtf1 a\tab b\line c\sect d\page e\cell f\row})", "a\tb\nc\nd\ne\tf\n"},
        {"named characters", R"({\rtf1\emdash\endash\lquote\rquote\ldblquote\rdblquote\bullet})",
         "\u2014\u2013\u2018\u2019\u201C\u201D\u2022"},
        {"\\u with one fallback character, negative code unit", R"({\rtf1 caf\u233?s \u-223?})", "caf\u00E9s \uFF21"},
        {"\\uc0 and \\uc2", R"({\rtf1\uc0 caf\u233 s\uc2\u8364 EUx})", "caf\u00E9s\u20ACx"},
        {"a \\'hh, a control word and \\bin each count as one fallback character",
         R"({\rtf1\u233\'e9 x\u233\tab y\u233\bin1 xz})", "\u00E9 x\u00E9y\u00E9z"},
        {"a group restores \\uc; a brace ends the fallback", R"({\rtf1\uc2{\uc1\u233?}\u233??x\uc5\u233{y}{\uc5\u233}z})",
         "\u00E9\u00E9x\u00E9y\u00E9z"},
        {"surrogate pair", R"({\rtf1 \u55357 ?\u56832 ?})", "\U0001F600"},
        {"unpaired surrogates", R"({\rtf1 \u55357 ?x\u56832 ?\u55357?\'e9})", "\uFFFDx\uFFFD\uFFFD\u00E9"},
        {"\\'hh in 1252, by default and with \\ansi", R"({\rtf1\ansi caf\'e9 \'93q\'94 \'81})", "caf\u00E9 \u201Cq\u201D \uFFFD"},
        {"\\ansicpg1251", R"({\rtf1\ansi\ansicpg1251 \'cf\'f0\'e8\'e2\'e5\'f2})", "\u041F\u0440\u0438\u0432\u0435\u0442"},
        {"\\mac, \\pc, \\pca", R"({\rtf1\mac \'8e{\pc \'9c}{\pca \'d5}})", "\u00E9\u00A3\u0131"},
        {"raw 8-bit bytes are in the code page too", "{\\rtf1\\ansicpg1251 \xe4\xe0 \xe9}", "\u0434\u0430 \u0439"},
        {"the font's character set decides, and the group restores the font",
         R"({\rtf1\ansi\ansicpg1252\deff0{\fonttbl{\f0\fnil\fcharset0 Arial;}{\f1\fnil\fcharset204 Arial CYR;}})"
         R"(\'e9 {\f1 \'e4\'e0} \'e9 \f1\'e4\plain\'e9})",
         "\u00E9 \u0434\u0430 \u00E9 \u0434\u00E9"},
        {"double-byte characters, escaped or with a raw second byte", R"({\rtf1\ansicpg932 \'82\'a0\'83e \'82})",
         "\u3042\u30C6 \uFFFD"},
        {"a code page the system lacks reads as 1252", R"({\rtf1\ansicpg99999 \'e9\ansicpg1 \'e9})", "\u00E9\u00E9"},
        {"... and so does one past the sixteenth in a document", manyCodePages(), std::string(16, 'A') + "\u00F0\u201C"},
        {"code page 65001 is UTF-8", R"({\rtf1\ansicpg65001 \'e2\'82\'ac\'e2})", "\u20AC\uFFFD"},
        {"destinations without body text are skipped",
         R"({\rtf1{\fonttbl{\f0 Times;}}{\colortbl;\red0\green0\blue0;}{\stylesheet{\s0 Normal;}})"
         R"({\info{\title T}{\author A}}{\*\generator Gen;}{\pict\pngblip 89504e47}{\*\unknown {hidden}}Body})",
         "Body"},
        {"field instructions skipped, result kept",
         R"({\rtf1{\field{\*\fldinst HYPERLINK "http://x"}{\fldrslt link}} {\field{\fldinst PAGE}{\fldrslt 3}}})",
         "link 3"},
        {"an object's data skipped, its result kept",
         R"({\rtf1{\object\objemb{\*\objclass Paint}{\*\objdata 0102}{\result shown{\pict 00}}}})", "shown"},
        {"\\bin skips its bytes, braces and backslashes included", "{\\rtf1{\\pict\\bin5 {}\\}{}After\\bin3 xyzb}",
         "Afterb"},
        {"headers, footers and footnotes are kept in place", R"({\rtf1{\header Top }Body{\footnote  note}})",
         "Top Body note"},
        {"white space and a byte-order mark before; anything after the outer group ignored",
         "\xEF\xBB\xBF \r\n{\\rtf1 x}trailing {\\b junk", "x"},
        {"control characters dropped; parameters saturate rather than wrap",
         "{\\rtf1 a\x01\x7f\\u0?b\\uc0\\u4294967361 c\\uc99999999999999 \\u66 skipped{}d}", "a\x7f" "b\uFFFDcBd"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(RtfReader::text(row.rtf), row.text);
    }
}

TEST(RtfReaderTest, RefusesWhatIsNotAWholeRtfDocument) {
    const std::string deep = "{\\rtf1" + std::string(256, '{') + "x" + std::string(256, '}') + "}";
    const std::string deepest = "{\\rtf1" + std::string(255, '{') + "x" + std::string(255, '}') + "}";
    EXPECT_EQ(RtfReader::text(deepest), "x") << "256 groups, the outer one included, are still read";
    for (const std::string& bad : {std::string(), std::string("hello"), std::string("{\\rt1 x}"), deep,
                                   std::string("{\\rtf1 abc"), std::string("{\\rtf1{\\b x}"),
                                   std::string("{\\rtf1 a\\bin99999 xyz}"), std::string("{\\rtf1 \\")}) {
        SCOPED_TRACE(bad.substr(0, 40));
        EXPECT_THROW(RtfReader::text(bad), TextExtractionError);
    }
}

// Large documents: each read is linear (a quadratic step would not finish in
// the suite's time), the output is exact, and the worst expansion stays in bound.
TEST(RtfReaderTest, ReadsLargeDocumentsWhole) {
    std::string rtf = "{\\rtf1\\ansi{\\fonttbl{\\f0 Times;}}", expected;
    while (rtf.size() < (1u << 20)) {
        rtf += "{\\b word}\\b0  caf\\'e9 \\u8364?{\\*\\bkmkstart a}{\\pict\\bin2 {}}\\par\r\n";
        expected += "word caf\u00E9 \u20AC\n";
    }
    EXPECT_EQ(RtfReader::text(rtf + "}"), expected);

    const std::string undefinedBytes(1u << 20, '\x81');
    const std::string worst = RtfReader::text("{\\rtf1 " + undefinedBytes + "}");
    EXPECT_EQ(worst.size(), 3 * undefinedBytes.size()) << "each undefined byte is one U+FFFD";
    EXPECT_TRUE(isValidUtf8(worst));

    EXPECT_EQ(RtfReader::text("{\\rtf1\\" + std::string(1u << 20, 'a') + "1" + std::string(1u << 20, '9') + " x}"), "x")
        << "a control word and a parameter of any length";
    std::string nested = "{\\rtf1";
    for (int i = 0; i < 5000; ++i) nested += std::string(200, '{') + "y" + std::string(200, '}');
    EXPECT_EQ(RtfReader::text(nested + "}"), std::string(5000, 'y'));
}

}  // namespace
}  // namespace vosklin

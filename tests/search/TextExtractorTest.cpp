// Text extraction from real files: every document is written here, by hand
// (PDF) or with libzip (DOCX, ODT), so what each reader gets is known exactly.
#include "search/TextExtractor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zip.h>

#include <cstdlib>
#include <functional>
#include <tuple>
#include <vector>

#include "platform/FileSystemError.h"
#include "platform/PosixFileSystem.h"
#include "search/OfficeDocumentReader.h"
#include "search/TextExtractionError.h"
#include "support/FaultyFileSystem.h"
#include "support/MinimalPdf.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::TempDirectory;
using test::pdf;
using test::thrown;

// A zip archive of the given entries, deflated.
std::string zipped(const TempDirectory& directory, const std::vector<std::pair<std::string, std::string>>& entries) {
    const std::string path = directory / "archive.zip";
    std::remove(path.c_str());
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_EXCL, &error);
    EXPECT_NE(archive, nullptr);
    for (const auto& [name, contents] : entries) {
        zip_source_t* source = zip_source_buffer(archive, contents.data(), contents.size(), 0);
        EXPECT_GE(zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8), 0);
    }
    EXPECT_EQ(zip_close(archive), 0);
    return test::readFile(path);
}

// Rewrites the uncompressed size a one-entry zip declares, in its local and central headers.
std::string declaringSize(std::string zip, std::uint32_t size) {
    auto put = [&](std::size_t at) {
        for (int i = 0; i < 4; ++i) zip[at + std::size_t(i)] = char(size >> (8 * i));
    };
    put(22);
    const std::size_t central = zip.find("PK\x01\x02");
    EXPECT_NE(central, std::string::npos);
    put(central + 24);
    return zip;
}

const std::string wordNamespace = "http://schemas.openxmlformats.org/wordprocessingml/2006/main";

std::string wordDocument(const std::string& body, const std::string& prefix = "w") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<" + prefix + ":document xmlns:" + prefix +
           "=\"" + wordNamespace +
           "\" xmlns:mc=\"http://schemas.openxmlformats.org/markup-compatibility/2006\"><" + prefix + ":body>" +
           body + "</" + prefix + ":body></" + prefix + ":document>";
}

std::string openDocument(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<office:document-content "
           "xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
           "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\"><office:body><office:text>" +
           body + "</office:text></office:body></office:document-content>";
}

std::string utf16(const std::u16string& text, bool bigEndian) {
    std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (char16_t unit : text) {
        const char high = char(unit >> 8), low = char(unit & 0xFF);
        bytes += bigEndian ? high : low;
        bytes += bigEndian ? low : high;
    }
    return bytes;
}

class TextExtractorTest : public ::testing::Test {
protected:
    std::optional<std::string> extract(const std::string& name, const std::string& contents) {
        return extractor.extract(directory.write(name, contents), false);
    }

    TempDirectory directory;
    PosixFileSystem fileSystem;
    TextExtractor extractor{fileSystem};
};

TEST_F(TextExtractorTest, PdfPagesInOrderEachEndingInALineFeed) {
    EXPECT_EQ(extract("one.pdf", pdf({{"Hello"}})), "Hello\n");
    EXPECT_EQ(extract("Report.PDF", pdf({{"first page"}, {"second"}, {"third page"}})),
              "first page\nsecond\nthird page\n");
}

TEST_F(TextExtractorTest, PdfTextStopsAfterThePageThatReachesTheLimit) {
    // Four pages of 1,000 lines of 100 accented letters, a letter a page:
    // 101,000 characters each with the line feeds (twice as many bytes), so
    // the third page is the one that crosses 256,000 characters.
    const std::vector<std::pair<char, std::string>> letters = {
        {'\xE0', "à"}, {'\xE9', "é"}, {'\xF6', "ö"}, {'\xFC', "ü"}};
    std::vector<std::vector<std::string>> pages;
    for (const auto& letter : letters) pages.emplace_back(1000, std::string(100, letter.first));
    const auto text = extract("long.pdf", pdf(pages));
    ASSERT_TRUE(text);
    std::string expected;
    for (int page = 0; page < 3; ++page) {
        std::string line;
        for (int i = 0; i < 100; ++i) line += letters[std::size_t(page)].second;
        for (int i = 0; i < 1000; ++i) expected += line + "\n";
    }
    EXPECT_TRUE(*text == expected) << "the text is " << text->size() << " bytes, not " << expected.size();
}

TEST_F(TextExtractorTest, LockedOrUnreadablePdfHasNoText) {
    const std::string open = directory.write("open.pdf", pdf({{"secret words"}}));
    const std::string locked = directory / "locked.pdf";
    ASSERT_EQ(std::system(("qpdf --encrypt user owner 256 -- '" + open + "' '" + locked + "'").c_str()), 0);
    EXPECT_EQ(extractor.extract(open, false), "secret words\n");
    EXPECT_EQ(extractor.extract(locked, false), std::nullopt);
    EXPECT_EQ(extract("garbage.pdf", "%PDF-1.4\nthis is not a document at all"), std::nullopt);
    EXPECT_EQ(extract("truncated.pdf", pdf({{"Hello"}}).substr(0, 40)), std::nullopt);
    EXPECT_EQ(extract("blank.pdf", pdf({{}, {}})), std::nullopt) << "blank pages hold nothing to find";
}

TEST_F(TextExtractorTest, WordProcessingDocumentsYieldTheirParagraphs) {
    const std::string docx = wordDocument(
        "<w:p><w:pPr><w:tabs><w:tab w:val=\"left\" w:pos=\"720\"/></w:tabs></w:pPr>"
        "<w:r><w:t>Hello</w:t></w:r><w:r><w:tab/><w:t xml:space=\"preserve\">world </w:t></w:r></w:p>"
        "<w:p><w:r><w:t>şirket</w:t><w:br/><w:t>résumé</w:t><w:cr/><w:delText>gone</w:delText></w:r></w:p>"
        "<w:tbl><w:tr><w:tc><w:p><w:r><w:t>cell &amp; more</w:t></w:r></w:p></w:tc></w:tr></w:tbl>"
        "<mc:AlternateContent><mc:Choice Requires=\"wps\"><w:p><w:r><w:t>box</w:t></w:r></w:p></mc:Choice>"
        "<mc:Fallback><w:p><w:r><w:t>old box</w:t></w:r></w:p></mc:Fallback></mc:AlternateContent>");
    const std::string docxText = "Hello\tworld \nşirket\nrésumé\n\ncell & more\nbox\n";
    EXPECT_EQ(extract("a.docx", zipped(directory, {{"[Content_Types].xml", "<Types/>"}, {"word/document.xml", docx}})),
              docxText);
    // Any prefix may name the namespace.
    EXPECT_EQ(extract("B.DOCX", zipped(directory, {{"word/document.xml",
                                                    wordDocument("<x:p><x:r><x:t>other prefix</x:t></x:r></x:p>",
                                                                 "x")}})),
              "other prefix\n");

    const std::string odt = openDocument(
        "<text:h text:outline-level=\"1\">Title</text:h>\n"
        "<text:p>a<text:tab/>b<text:s text:c=\"3\"/>c<text:line-break/>d <text:span>nested   "
        "<text:a>link</text:a></text:span><text:s/></text:p>\n"
        "<text:p>  lead\n  and trail  <office:annotation><text:p>comment</text:p></office:annotation></text:p>"
        "<text:p/>");
    EXPECT_EQ(extract("a.odt", zipped(directory, {{"mimetype", "application/vnd.oasis.opendocument.text"},
                                                  {"content.xml", odt}})),
              "Title\na\tb   c\nd nested link \nlead and trail\n\n");
    // A document without a word in it has no text.
    EXPECT_EQ(extract("empty.docx", zipped(directory, {{"word/document.xml", wordDocument("")}})), std::nullopt);
}

TEST_F(TextExtractorTest, DamagedOrHostileWordProcessingDocumentsAreErrors) {
    const std::string valid = wordDocument("<w:p><w:r><w:t>fine</w:t></w:r></w:p>");
    std::string deep;
    for (int i = 0; i < 600; ++i) deep += "<w:p>";
    const std::string laughs =
        "<?xml version=\"1.0\"?><!DOCTYPE d [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">]>"
        "<d>&b;&b;&b;&b;</d>";
    const std::string zip = zipped(directory, {{"word/document.xml", valid}});
    std::string damaged = zip;
    for (std::size_t at = 60; at < 90; ++at) damaged[at] = char(~damaged[at]);
    // Each is refused for its own reason, named in the message.
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"not a zip", "PK\x03\x04 but nothing after", "not a readable zip"},
        {"truncated zip", zip.substr(0, zip.size() / 2), "not a readable zip"},
        {"damaged deflate data", damaged, "damaged"},
        {"missing entry", zipped(directory, {{"word/other.xml", valid}}), "no entry"},
        {"malformed XML", zipped(directory, {{"word/document.xml", wordDocument("<w:p><w:r></w:p>")}}),
         "does not parse"},
        {"entity declarations", zipped(directory, {{"word/document.xml", laughs}}), "document type"},
        {"nesting too deep", zipped(directory, {{"word/document.xml", wordDocument(deep)}}), "nests too deeply"},
        {"declared larger than the cap", declaringSize(zip, OfficeDocumentReader::entryLimit + 1), "too large"},
    };
    for (const auto& [what, bytes, reason] : cases) {
        SCOPED_TRACE(what);
        const auto error = thrown<TextExtractionError>([&] { extract("d.docx", bytes); });
        ASSERT_TRUE(error);
        EXPECT_NE(std::string(error->what()).find(reason), std::string::npos) << error->what();
    }
    EXPECT_TRUE(thrown<TextExtractionError>([&] { extract("d.odt", zip); }));  // no content.xml
}

TEST_F(TextExtractorTest, InflationIsBoundedWhateverTheArchiveDeclares) {
    const std::uint64_t cap = 1 << 20;
    const std::string large = wordDocument("<w:p><w:r><w:t>" + std::string(cap, 'x') + "</w:t></w:r></w:p>");
    const std::string zip = zipped(directory, {{"word/document.xml", large}});
    EXPECT_EQ(OfficeDocumentReader::docxText(zip, 2 * cap).size(), cap + 1);
    // Refused from what it declares, and from what comes out when it lies.
    for (const auto& [bytes, reason] : {std::pair{zip, "too large"}, {declaringSize(zip, 100), "inflates too far"}}) {
        const auto error = thrown<TextExtractionError>([&] { OfficeDocumentReader::docxText(bytes, cap); });
        ASSERT_TRUE(error);
        EXPECT_NE(std::string(error->what()).find(reason), std::string::npos) << error->what();
    }
    // Spaces asked for by count grow the text far past the XML, but not past the limit.
    std::string spaces;
    for (int i = 0; i < 2000; ++i) spaces += "<text:s text:c=\"99999999999999999999\"/>";
    const std::string odt = zipped(directory, {{"content.xml", openDocument("<text:p>" + spaces + "</text:p>")}});
    EXPECT_EQ(OfficeDocumentReader::odtText(odt, cap), std::string(cap, ' '));
    // A character the limit falls within is left out whole.
    std::string accents, kept;
    for (int i = 0; i < 200; ++i) accents += "é";
    for (int i = 0; i < 100; ++i) kept += "é";
    const std::string cut = zipped(directory, {{"content.xml", openDocument("<text:p><text:s text:c=\"1000\"/>" +
                                                                            accents + "</text:p>")}});
    EXPECT_EQ(OfficeDocumentReader::odtText(cut, 1201), std::string(1000, ' ') + kept);
}

TEST_F(TextExtractorTest, PlainTextIsUtf8OrUtf16WithAByteOrderMark) {
    const std::string sample = "şirket résumé \xF0\x9F\x98\x80";
    const std::u16string sample16 = u"şirket résumé \U0001F600";
    const std::vector<std::tuple<std::string, std::string, std::optional<std::string>>> cases = {
        {"utf8.txt", sample, sample},
        {"bom.txt", "\xEF\xBB\xBF" + sample, sample},
        {"NOTES.TXT", "upper case", "upper case"},
        {"no-extension", "plain", "plain"},
        {"le.txt", utf16(sample16, false), sample},
        {"be.txt", utf16(sample16, true), sample},
        {"unpaired-high.txt", utf16(u"a\xD800" "b", false), std::nullopt},
        {"unpaired-low.txt", utf16(u"a\xDC00", true), std::nullopt},
        {"odd-length.txt", utf16(u"ab", false) + "c", std::nullopt},
        {"bom-only.txt", "\xFF\xFE", std::nullopt},
        {"empty.txt", "", std::nullopt},
        {"overlong.txt", "a\xC0\xAF", std::nullopt},
        {"surrogate.txt", "a\xED\xA0\x80", std::nullopt},
        {"beyond-unicode.txt", "a\xF4\x90\x80\x80", std::nullopt},
        {"truncated.txt", "a\xE2\x82", std::nullopt},
        {"latin1.txt", "caf\xE9", std::nullopt},
    };
    for (const auto& [name, bytes, expected] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(extract(name, bytes), expected);
    }
}

TEST_F(TextExtractorTest, DocumentKindsAreToldByTheLowerCasedExtension) {
    // Plain text under a document's name goes to that document's reader, not the plain decoder.
    EXPECT_EQ(extract("notes.PdF", "plain words"), std::nullopt);
    for (const char* name : {"a.rtf", "b.DOC", "c.Docx", "d.odt"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(thrown<TextExtractionError>([&] { extract(name, "plain words"); }));
    }
}

TEST_F(TextExtractorTest, SizeLimitIsCheckedBeforeReading) {
    FaultyFileSystem faulty;
    TextExtractor counted(faulty);
    const std::string limit = directory.write("limit.txt", std::string(TextExtractor::sizeLimit, 'a'));
    const std::string over = directory.write("over.txt", std::string(TextExtractor::sizeLimit + 1, 'a'));
    EXPECT_EQ(counted.extract(over, false), std::nullopt);
    EXPECT_EQ(faulty.count(FaultyFileSystem::Operation::read), 0);
    const auto text = counted.extract(limit, false);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->size(), TextExtractor::sizeLimit);
    EXPECT_GT(faulty.count(FaultyFileSystem::Operation::read), 0);
    faulty.fail(FaultyFileSystem::Operation::read, EIO);
    EXPECT_TRUE(thrown<FileSystemError>([&] { counted.extract(limit, false); }));
}

TEST_F(TextExtractorTest, OnlyRtfdPackagesYieldText) {
    const std::string rtf = "{\\rtf1\\ansi Hello\\par}";
    directory.write("x.rtfd/TXT.rtf", rtf);
    directory.write("Y.RTFD/TXT.rtf", rtf);
    directory.write("z.pages/TXT.rtf", rtf);
    directory.write("empty.rtfd/other.rtf", rtf);
    EXPECT_EQ(extractor.extract(directory / "x.rtfd", true), "Hello\n");
    EXPECT_EQ(extractor.extract(directory / "Y.RTFD", true), "Hello\n");
    EXPECT_EQ(extractor.extract(directory / "z.pages", true), std::nullopt);
    EXPECT_EQ(extractor.extract(directory / "empty.rtfd", true), std::nullopt);
}

}  // namespace
}  // namespace vosklin

// Zipped word-processing documents, as the indexer reads them from payloads.
// The first byte chooses what the rest is: 0 a whole archive, read both as a
// .docx and as an .odt; 1 or 2 the document XML of a .docx or an .odt, put
// into a stored (uncompressed) archive here so that mutations reach the XML
// rather than dying on checksums. The text must be valid UTF-8 and within the
// limit. Seeds (bench/fuzz/seeds/OfficeDocument): "docx" and "odt" are
// archives made with Python's zipfile (deflated) holding a short document that
// uses every element the reader knows; "docx-xml" and "odt-xml" are the same
// XML on its own, behind the byte that picks it.
// libFuzzer dictionary: office.dict
#include <array>

#include "FuzzSupport.h"
#include "platform/PathJson.h"
#include "search/OfficeDocumentReader.h"
#include "search/TextExtractionError.h"

namespace {

// Small, so that runs are fast and the text of small inputs reaches it.
constexpr std::uint64_t limit = 16 * 1024;

std::uint32_t crc32(std::string_view bytes) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    std::uint32_t c = 0xFFFFFFFFu;
    for (unsigned char byte : bytes) c = table[(c ^ byte) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

void little(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out += char(value >> (8 * i));
}

// One stored entry: local header, data, central directory, end record.
std::string storedZip(const std::string& name, std::string_view data) {
    const std::uint32_t crc = crc32(data), size = std::uint32_t(data.size());
    std::string zip;
    auto common = [&] {
        little(zip, 20, 2);  // version needed
        little(zip, 0, 2);   // flags
        little(zip, 0, 2);   // stored
        little(zip, 0, 4);   // time and date
        little(zip, crc, 4);
        little(zip, size, 4);
        little(zip, size, 4);
        little(zip, std::uint32_t(name.size()), 2);
        little(zip, 0, 2);  // extra field
    };
    zip += "PK\x03\x04";
    common();
    zip += name;
    zip.append(data);
    const std::uint32_t central = std::uint32_t(zip.size());
    zip += "PK\x01\x02";
    little(zip, 20, 2);  // version made by
    common();
    little(zip, 0, 2);  // comment
    little(zip, 0, 2);  // disk
    little(zip, 0, 2);  // internal attributes
    little(zip, 0, 4);  // external attributes
    little(zip, 0, 4);  // local header offset
    zip += name;
    const std::uint32_t centralSize = std::uint32_t(zip.size()) - central;
    zip += "PK\x05\x06";
    little(zip, 0, 4);  // disks
    little(zip, 1, 2);
    little(zip, 1, 2);
    little(zip, centralSize, 4);
    little(zip, central, 4);
    little(zip, 0, 2);  // comment
    return zip;
}

template <class Read>
void check(Read&& read) {
    using namespace vosklin;
    std::string text;
    if (!fuzz::returnsOrThrows<TextExtractionError>([&] { text = read(); })) return;
    fuzz::require(text.size() <= limit, "the text is longer than the limit");
    fuzz::require(isValidUtf8(text), "the text is not valid UTF-8");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    if (size < 1 || size > 256 * 1024) return 0;
    const auto rest = fuzz::bytes(data + 1, size - 1);
    switch (data[0] % 3) {
    case 0:
        check([&] { return OfficeDocumentReader::docxText(rest, limit); });
        check([&] { return OfficeDocumentReader::odtText(rest, limit); });
        break;
    case 1: check([&] { return OfficeDocumentReader::docxText(storedZip("word/document.xml", rest), limit); }); break;
    default: check([&] { return OfficeDocumentReader::odtText(storedZip("content.xml", rest), limit); }); break;
    }
    return 0;
}

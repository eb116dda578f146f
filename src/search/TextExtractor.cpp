#include "search/TextExtractor.h"

#include <algorithm>

#include "search/OfficeDocumentReader.h"
#include "search/PdfTextReader.h"
#include "search/PlainTextDecoder.h"
#include "search/RtfReader.h"
#include "search/WordBinaryReader.h"

namespace vosklin {

namespace {

std::string lowerCaseExtension(const std::string& path) {
    const auto slash = path.find_last_of('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0) return {};
    std::string extension = name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : char(c); });
    return extension;
}

// Text made only of white space (a PDF of blank pages, a document of empty
// paragraphs) has nothing to find: it counts as no text.
std::optional<std::string> nonEmpty(std::string text) {
    if (text.find_first_not_of(" \t\n\r\f\v") == std::string::npos) return std::nullopt;
    return text;
}

// The whole file, or nothing when it is larger than the limit. The size is
// taken from the open file before anything is read, and the read stops past
// the limit in case the file grew since.
std::optional<std::string> readUpToLimit(FileSystem& fileSystem, const std::string& path) {
    UniqueFd file = fileSystem.openForReading(path);
    const FileStatus status = fileSystem.status(file.get());
    if (status.size < 0 || std::uint64_t(status.size) > TextExtractor::sizeLimit) return std::nullopt;
    std::string bytes(std::size_t(status.size), '\0');
    std::size_t length = 0;
    for (;;) {
        if (length == bytes.size()) {
            if (length > TextExtractor::sizeLimit) return std::nullopt;
            bytes.resize(std::min<std::size_t>(std::max<std::size_t>(length * 2, 4096), TextExtractor::sizeLimit + 1));
        }
        const std::size_t count = fileSystem.read(file.get(), bytes.data() + length, bytes.size() - length);
        if (count == 0) break;
        length += count;
    }
    bytes.resize(length);
    return bytes;
}

}  // namespace

TextExtractor::TextExtractor(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

std::optional<std::string> TextExtractor::extract(const std::string& path, bool isPackage) const {
    const std::string extension = lowerCaseExtension(path);
    if (isPackage) {
        if (extension != "rtfd") return std::nullopt;
        const std::string text = path + "/TXT.rtf";
        const auto status = fileSystem_.status(text);
        if (!status || !status->isRegular()) return std::nullopt;
        const auto bytes = readUpToLimit(fileSystem_, text);
        if (!bytes) return std::nullopt;
        return nonEmpty(RtfReader::text(*bytes));
    }
    const auto bytes = readUpToLimit(fileSystem_, path);
    if (!bytes) return std::nullopt;
    if (extension == "pdf") {
        auto text = PdfTextReader::text(*bytes, pdfCharacterLimit);
        return text ? nonEmpty(std::move(*text)) : std::nullopt;
    }
    if (extension == "rtf") return nonEmpty(RtfReader::text(*bytes));
    if (extension == "doc") return nonEmpty(WordBinaryReader::text(*bytes));
    if (extension == "docx") return nonEmpty(OfficeDocumentReader::docxText(*bytes));
    if (extension == "odt") return nonEmpty(OfficeDocumentReader::odtText(*bytes));
    return PlainTextDecoder::decode(*bytes);
}

}  // namespace vosklin

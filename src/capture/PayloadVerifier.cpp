#include "capture/PayloadVerifier.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/RegularFile.h"

namespace vosklin {
namespace {

enum class Format { none, pdf, zip, png, jpeg, gif };

Format formatOf(const std::string& path) {
    std::string extension = pathExtension(path);
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    static const std::set<std::string> zips = {"zip",  "docx", "xlsx", "pptx", "docm",  "xlsm", "pptm", "odt",
                                               "ods",  "odp",  "odg",  "epub", "jar",   "pages", "numbers", "key"};
    if (extension == "pdf") return Format::pdf;
    if (zips.count(extension)) return Format::zip;
    if (extension == "png") return Format::png;
    if (extension == "jpg" || extension == "jpeg") return Format::jpeg;
    if (extension == "gif") return Format::gif;
    return Format::none;
}

bool endsWith(const std::string& text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

bool PayloadVerifier::isVerified(const std::string& payloadPath, bool isPackage) {
    if (isPackage) return true;
    const Format format = formatOf(payloadPath);
    if (format == Format::none) return true;
    try {
        auto opened = openRegularFile(fileSystem_, payloadPath);
        if (!opened) return false;
        const int file = opened->fd.get();
        const auto size = std::uint64_t(opened->status.size);
        const std::uint64_t window = format == Format::zip ? 65557 : format == Format::pdf ? 1024 : 64;
        const std::uint64_t length = std::min(size, window);
        std::string tail(length, '\0');
        tail.resize(fileSystem_.readAt(file, tail.data(), length, size - length));
        switch (format) {
            case Format::pdf: return tail.find("%%EOF") != std::string::npos;
            case Format::zip: return tail.find(std::string_view("PK\x05\x06", 4)) != std::string::npos;
            case Format::png: return endsWith(tail, std::string_view("IEND\xAE\x42\x60\x82", 8));
            case Format::jpeg: {
                while (!tail.empty() && tail.back() == '\0') tail.pop_back();
                return endsWith(tail, "\xFF\xD9");
            }
            case Format::gif: return !tail.empty() && tail.back() == 0x3B;
            case Format::none: return true;
        }
    } catch (const FileSystemError&) {
        return false;
    }
    return true;
}

}  // namespace vosklin

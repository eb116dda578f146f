#include "search/PdfTextReader.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <climits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vosklin {

namespace {

void ignoreMessage(const std::string&, void*) {}

std::size_t codePoints(const std::vector<char>& utf8) {
    std::size_t count = 0;
    for (char byte : utf8) count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    return count;
}

}  // namespace

std::mutex& pdfLibraryLock() {
    static std::mutex lock;
    return lock;
}

std::optional<std::string> PdfTextReader::text(std::string_view bytes, std::size_t characterLimit) {
    if (bytes.size() > std::size_t(INT_MAX)) return std::nullopt;
    std::lock_guard lock(pdfLibraryLock());
    poppler::set_debug_error_function(&ignoreMessage, nullptr);
    // The document reads `bytes` in place; they outlive it.
    std::unique_ptr<poppler::document> document(poppler::document::load_from_raw_data(bytes.data(), int(bytes.size())));
    if (!document || document->is_locked()) return std::nullopt;
    std::string text;
    std::size_t characters = 0;
    const int pages = document->pages();
    for (int index = 0; index < pages && characters < characterLimit; ++index) {
        std::unique_ptr<poppler::page> page(document->create_page(index));
        if (page) {
            auto utf8 = page->text().to_utf8();
            // The library ends a page with a line end and a page break; one line feed is ours to add.
            while (!utf8.empty() && (utf8.back() == '\f' || utf8.back() == '\n' || utf8.back() == '\r'))
                utf8.pop_back();
            text.append(utf8.data(), utf8.size());
            characters += codePoints(utf8);
        }
        text += '\n';
        ++characters;
    }
    return text;
}

}  // namespace vosklin

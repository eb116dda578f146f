#include "compare/PdfPageRenderer.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>

#include "platform/UniqueFd.h"
#include "search/PdfTextReader.h"

namespace vosklin::PdfPageRenderer {
namespace {

void ignoreMessage(const std::string&, void*) {}

// Under pdfLibraryLock: the document reads `bytes` in place, and they outlive it.
std::unique_ptr<poppler::document> open(std::string_view bytes) {
    if (bytes.size() > std::size_t(INT_MAX)) return nullptr;
    poppler::set_debug_error_function(&ignoreMessage, nullptr);
    std::unique_ptr<poppler::document> document(poppler::document::load_from_raw_data(bytes.data(), int(bytes.size())));
    if (!document || document->is_locked()) return nullptr;
    return document;
}

// The library writes pictures only to a named file: this one lives in memory.
std::optional<std::string> pngOf(const poppler::image& image) {
    UniqueFd file(::memfd_create("vosklin-pdf-page", MFD_CLOEXEC));
    if (!file || !image.save("/proc/self/fd/" + std::to_string(file.get()), "png")) return std::nullopt;
    std::string png;
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        const ssize_t got = ::pread(file.get(), buffer, sizeof buffer, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        png.append(buffer, std::size_t(got));
        offset += got;
    }
    return png;
}

}  // namespace

std::optional<int> pageCount(std::string_view bytes) {
    std::lock_guard lock(pdfLibraryLock());
    auto document = open(bytes);
    if (!document) return std::nullopt;
    return document->pages();
}

std::optional<std::string> renderPng(std::string_view bytes, int pageNumber, int width) {
    width = std::clamp(width, minimumWidth, maximumWidth);
    std::lock_guard lock(pdfLibraryLock());
    auto document = open(bytes);
    if (!document || pageNumber < 1 || pageNumber > document->pages()) return std::nullopt;
    std::unique_ptr<poppler::page> page(document->create_page(pageNumber - 1));
    if (!page) return std::nullopt;
    const auto box = page->page_rect();
    const bool turned = page->orientation() == poppler::page::landscape ||
                        page->orientation() == poppler::page::seascape;
    const double pointsWide = std::abs(turned ? box.height() : box.width());
    const double pointsHigh = std::abs(turned ? box.width() : box.height());
    if (!(pointsWide >= 1) || !(pointsHigh >= 1) || !std::isfinite(pointsWide) || !std::isfinite(pointsHigh))
        return std::nullopt;
    double scale = width / pointsWide;
    if (pointsHigh * scale > maximumHeight) {
        scale = maximumHeight / pointsHigh;
        width = std::max(1, int(pointsWide * scale));
    }
    const int height = std::clamp(int(std::lround(pointsHigh * scale)), 1, maximumHeight);
    poppler::page_renderer renderer;
    renderer.set_render_hint(poppler::page_renderer::antialiasing);
    renderer.set_render_hint(poppler::page_renderer::text_antialiasing);
    // Exactly width x height: the slice is the whole page at this resolution, so
    // rounding in the library cannot add a column.
    const double resolution = 72.0 * scale;
    const poppler::image image = renderer.render_page(page.get(), resolution, resolution, 0, 0, width, height);
    if (!image.is_valid()) return std::nullopt;
    return pngOf(image);
}

}  // namespace vosklin::PdfPageRenderer

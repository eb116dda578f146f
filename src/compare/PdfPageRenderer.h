#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// A PDF's pages as pictures, for comparing documents page by page in the window.
//
// A page is rendered `width` pixels wide (clamped to minimumWidth..maximumWidth)
// and as tall as its shape says, but never taller than `maximumHeight`: a page
// of a hostile shape (a sliver a mile long) is scaled down to fit instead of
// asking for a giant picture. Nothing when the bytes are not a PDF that opens
// without a password, or the page is not there. The PDF library's complaints
// are silenced. Thread-safe: the library is used under pdfLibraryLock.
namespace PdfPageRenderer {

constexpr int minimumWidth = 100;
constexpr int maximumWidth = 2000;
constexpr int maximumHeight = 4 * maximumWidth;

std::optional<int> pageCount(std::string_view bytes);
// The page (from 1) as PNG bytes.
std::optional<std::string> renderPng(std::string_view bytes, int page, int width);

}  // namespace PdfPageRenderer

}  // namespace vosklin

#include "compare/PdfPageRenderer.h"

#include <gtest/gtest.h>

#include "support/MinimalPdf.h"

namespace vosklin {
namespace {

// PNG's header: width and height, big-endian, at bytes 16 and 20.
std::pair<std::uint32_t, std::uint32_t> pngSize(const std::string& png) {
    const auto number = [&](std::size_t at) {
        std::uint32_t value = 0;
        for (std::size_t i = at; i < at + 4; ++i) value = (value << 8) | static_cast<unsigned char>(png[i]);
        return value;
    };
    if (png.size() < 24 || png.compare(1, 3, "PNG") != 0) return {0, 0};
    return {number(16), number(20)};
}

TEST(PdfPageRendererTest, PagesComeOutAsWideAsAskedAndNeverGiant) {
    const std::string document = test::pdf({{"ten chars."}, {"second", "page"}});  // 140 x 52 pt, 100 x 64 pt
    std::string sliver = document;  // the same page, 2 pt wide and 9999 pt tall
    sliver.replace(sliver.find("[0 0 140 52]"), 12, "[0 0 2 9999]");
    const struct {
        const char* name;
        const std::string& bytes;
        int page, width;
        std::uint32_t expectedWidth, expectedHeight;  // 0: nothing rendered
    } cases[] = {
        {"first page", document, 1, 280, 280, 104},
        {"second page (100 x 64 pt), narrower than allowed", document, 2, 10, 100, 64},
        {"wider than allowed", document, 1, 5000, 2000, 743},
        {"a sliver a mile long", sliver, 1, 2000, 1, PdfPageRenderer::maximumHeight},
        {"no page 0", document, 0, 800, 0, 0},
        {"no page 3", document, 3, 800, 0, 0},
    };
    for (const auto& c : cases) {
        const auto png = PdfPageRenderer::renderPng(c.bytes, c.page, c.width);
        EXPECT_EQ(png.has_value(), c.expectedWidth > 0) << c.name;
        if (png) {
            EXPECT_EQ(pngSize(*png), std::make_pair(c.expectedWidth, c.expectedHeight)) << c.name;
        }
    }
    EXPECT_EQ(PdfPageRenderer::pageCount(document), 2);
    EXPECT_EQ(PdfPageRenderer::pageCount("%PDF-1.4 and then nothing"), std::nullopt);
    EXPECT_EQ(PdfPageRenderer::renderPng("not a PDF", 1, 800), std::nullopt);
}

}  // namespace
}  // namespace vosklin

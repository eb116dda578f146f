#pragma once

// A minimal PDF writer for tests and benchmarks that need real PDF bytes
// without fixtures of unknown origin. Header only, so a benchmark can use it
// without linking the tests' support library.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace vosklin::test {

// A PDF whose pages hold the given lines (code page 1252) in 10 pt Helvetica, one under another.
inline std::string pdf(const std::vector<std::vector<std::string>>& pages) {
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>", "",
                                        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"};
    std::string kids;
    for (const auto& lines : pages) {
        std::size_t width = 1;
        for (const auto& line : lines) width = std::max(width, line.size());
        const std::size_t height = 40 + 12 * lines.size();
        std::string content = "BT /F1 10 Tf 12 TL 20 " + std::to_string(height - 20) + " Td";
        for (const auto& line : lines) content += " (" + line + ") Tj T*";
        content += " ET";
        const std::size_t pageNumber = objects.size() + 1;
        kids += std::to_string(pageNumber) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(40 + 10 * width) + " " +
                          std::to_string(height) + "] /Resources << /Font << /F1 3 0 R >> >> /Contents " +
                          std::to_string(pageNumber + 1) + " 0 R >>");
        objects.push_back("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
                          "\nendstream");
    }
    objects[1] = "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>";
    std::string file = "%PDF-1.4\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(file.size());
        file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = file.size();
    file += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t offset : offsets) {
        char entry[21];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        file += entry;
    }
    file += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
            std::to_string(xref) + "\n%%EOF\n";
    return file;
}

}  // namespace vosklin::test

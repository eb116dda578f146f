#include "app/UiAssets.h"

#include <array>
#include <utility>

namespace vosklin {

std::string_view uiContentType(std::string_view path) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 12> types{{
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".woff2", "font/woff2"},
        {".txt", "text/plain; charset=utf-8"},
        {".webmanifest", "application/manifest+json"},
        {".map", "application/json"},
    }};
    for (const auto& [extension, type] : types)
        if (path.ends_with(extension)) return type;
    return "application/octet-stream";
}

std::optional<UiAsset> findUiAsset(std::string_view path) {
    for (std::size_t i = 0; i < embedded::uiFileCount; ++i) {
        const auto& file = embedded::uiFiles[i];
        if (path == file.path)
            return UiAsset{{reinterpret_cast<const char*>(file.bytes), file.size}, uiContentType(path)};
    }
    return std::nullopt;
}

}  // namespace vosklin

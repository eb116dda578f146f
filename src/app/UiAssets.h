#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vosklin {

// The window's files (ui/ in the source tree), built into the binary by
// cmake/EmbedAssets.cmake, so the window works with nothing installed beside it.
struct UiAsset {
    std::string_view bytes;
    std::string_view contentType;
};

// The file at `path` below ui/ ("index.html", "js/api.js"), or nothing.
std::optional<UiAsset> findUiAsset(std::string_view path);

// The type a browser is told for a file of this name, by its extension.
std::string_view uiContentType(std::string_view path);

namespace embedded {
struct File {
    const char* path;
    const unsigned char* bytes;
    std::size_t size;
};
// Defined in the generated source.
extern const File uiFiles[];
extern const std::size_t uiFileCount;
}  // namespace embedded

}  // namespace vosklin

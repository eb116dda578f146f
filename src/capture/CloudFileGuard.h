#pragma once

#include <string>

namespace vosklin {

// Recognises cloud placeholders: files whose content is not on this disk and
// that reading would download. On Linux these are the stand-in files a sync
// client leaves behind with the extension "icloud". Stateless.
class CloudFileGuard {
public:
    bool isPlaceholder(const std::string& path) const;
};

}  // namespace vosklin

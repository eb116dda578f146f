#include "capture/CloudFileGuard.h"

#include <strings.h>

#include "platform/PathNames.h"

namespace vosklin {

bool CloudFileGuard::isPlaceholder(const std::string& path) const {
    return ::strcasecmp(pathExtension(path).c_str(), "icloud") == 0;
}

}  // namespace vosklin

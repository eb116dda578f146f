#include "capture/PackageKinds.h"

#include <algorithm>
#include <cctype>

#include "platform/PathNames.h"
#include "platform/Settings.h"

namespace vosklin {
namespace {

std::string lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

const std::vector<std::string>& PackageKinds::builtInExtensions() {
    // Document bundles people keep in their folders; libraries that are excluded anyway are not repeated here.
    static const std::vector<std::string> extensions = {
        "rtfd", "pages", "numbers", "key", "sparsebundle", "bundle", "scriv", "graffle", "band", "playground",
        "dtbase2", "ulysses", "textbundle", "textpack", "mindnode", "sketch", "scrivtemplate", "oo3", "nb",
    };
    return extensions;
}

PackageKinds::PackageKinds(const std::vector<std::string>& userExtensions) : extensions_(builtInExtensions()) {
    for (auto extension : userExtensions) {
        if (!extension.empty() && extension.front() == '.') extension.erase(0, 1);
        if (!extension.empty()) extensions_.push_back(lower(extension));
    }
}

PackageKinds PackageKinds::fromSettings(Settings& settings) {
    return PackageKinds(settings.strings("vosklin.packageExtensions").value_or(std::vector<std::string>{}));
}

bool PackageKinds::isPackageName(const std::string& name) const {
    const std::string extension = lower(pathExtension(name));
    if (extension.empty() || extension == "app") return false;
    return std::find(extensions_.begin(), extensions_.end(), extension) != extensions_.end();
}

bool PackageKinds::isApplicationName(const std::string& name) { return lower(pathExtension(name)) == "app"; }

}  // namespace vosklin

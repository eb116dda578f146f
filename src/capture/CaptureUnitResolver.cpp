#include "capture/CaptureUnitResolver.h"

#include <vector>

#include "capture/TransientNames.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

CaptureUnitResolver::CaptureUnitResolver(const std::string& root, ExcludeRules excludes, PackageKinds packages,
                                         FileSystem& fileSystem)
    : excludes_(std::move(excludes)), packages_(std::move(packages)), fileSystem_(fileSystem) {
    try {
        root_ = fileSystem_.resolvedPath(absolutePath(root));
    } catch (const FileSystemError&) {
        root_ = absolutePath(root);
    }
}

std::optional<CaptureUnitResolver::Unit> CaptureUnitResolver::resolve(const std::string& path) const {
    if (TransientNames::isTransient(lastComponent(path))) return std::nullopt;
    const std::string resolved = resolveParentLinks(fileSystem_, path);
    std::string relative;
    if (!relativeTo(root_, resolved, relative)) return std::nullopt;
    if (excludes_.excludes(relative)) return std::nullopt;

    // Outermost enclosing package first.
    std::string prefix = root_;
    std::size_t start = 0;
    while (start < relative.size()) {
        std::size_t end = relative.find('/', start);
        if (end == std::string::npos) end = relative.size();
        const std::string name = relative.substr(start, end - start);
        prefix = joinPath(prefix, name);
        const bool application = PackageKinds::isApplicationName(name);
        if (application || packages_.isPackageName(name)) {
            auto status = fileSystem_.linkStatus(prefix);
            if (status && status->isDirectory()) {
                if (application) break;
                if (TransientNames::isTransient(name)) return std::nullopt;
                return Unit{prefix, true};
            }
        }
        start = end + 1;
    }

    auto status = fileSystem_.linkStatus(resolved);
    if (status && status->isDirectory()) return std::nullopt;
    return Unit{resolved, false};
}

}  // namespace vosklin

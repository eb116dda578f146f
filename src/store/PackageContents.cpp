#include "store/PackageContents.h"

#include <algorithm>

#include "platform/PathNames.h"

namespace vosklin {
namespace {

void collect(FileSystem& fileSystem, const std::string& directory, const std::string& prefix,
             std::vector<PackageFile>& files) {
    for (const auto& entry : fileSystem.listDirectory(directory)) {
        const std::string path = joinPath(directory, entry.name);
        auto status = fileSystem.linkStatus(path);
        if (!status) continue;
        const std::string relative = prefix.empty() ? entry.name : prefix + "/" + entry.name;
        if (status->isDirectory()) collect(fileSystem, path, relative, files);
        else if (status->isRegular()) files.push_back({relative, status->size});
    }
}

}  // namespace

std::vector<PackageFile> packageFiles(FileSystem& fileSystem, const std::string& packagePath) {
    std::vector<PackageFile> files;
    collect(fileSystem, packagePath, "", files);
    std::sort(files.begin(), files.end(),
              [](const PackageFile& a, const PackageFile& b) { return a.relativePath < b.relativePath; });
    return files;
}

}  // namespace vosklin

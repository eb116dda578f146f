#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/FileSystem.h"

namespace vosklin {

struct PackageFile {
    std::string relativePath;  // below the package, "/"-separated
    std::int64_t size = 0;
};

// The regular files inside a package directory, at every depth, sorted by
// their relative path (byte order). Links are neither followed nor listed.
std::vector<PackageFile> packageFiles(FileSystem& fileSystem, const std::string& packagePath);

}  // namespace vosklin

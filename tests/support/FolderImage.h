#pragma once

#include <map>
#include <string>

namespace vosklin::test {

// Everything below a folder, byte for byte, to compare a folder before and
// after an operation: each regular file's relative path with its contents,
// each directory as "path/" and each symbolic link as "path@" with its target.
// Meant for test-sized folders (contents are held in memory).
using FolderImage = std::map<std::string, std::string>;

FolderImage imageOf(const std::string& root);
// One line per path that differs (added, gone, or with other contents); empty when equal.
std::string differences(const FolderImage& before, const FolderImage& after);

}  // namespace vosklin::test

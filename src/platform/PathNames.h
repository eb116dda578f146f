#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// Path arithmetic on byte strings. Linux names are bytes, not text, so nothing
// here converts, normalises or validates encodings.
std::string joinPath(std::string_view base, std::string_view name);
// Everything before the last "/" ("/" for "/a", "." for "a").
std::string parentPath(std::string_view path);
// The last component, ignoring trailing slashes.
std::string lastComponent(std::string_view path);
// The extension of a name without the dot, or empty: "a.tar.gz" -> "gz", ".bashrc" -> "".
std::string pathExtension(std::string_view path);
// Collapses "//", "/./" and trailing slashes without touching the file system.
std::string lexicallyNormal(std::string_view path);
// An absolute, lexically normal path: relative paths are taken from the working directory.
std::string absolutePath(std::string_view path);
bool isAbsolutePath(std::string_view path);
// The path of `path` below `root` ("a/b"), or nothing when it is not strictly below it.
bool relativeTo(std::string_view root, std::string_view path, std::string& relative);

}  // namespace vosklin

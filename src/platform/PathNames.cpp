#include "platform/PathNames.h"

#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace vosklin {

std::string joinPath(std::string_view base, std::string_view name) {
    if (base.empty()) return std::string(name);
    if (name.empty()) return std::string(base);
    std::string joined(base);
    if (joined.back() != '/') joined += '/';
    while (!name.empty() && name.front() == '/') name.remove_prefix(1);
    joined += name;
    return joined;
}

static std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

std::string parentPath(std::string_view path) {
    path = withoutTrailingSlashes(path);
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    if (slash == 0) return "/";
    return std::string(withoutTrailingSlashes(path.substr(0, slash)));
}

std::string lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos || path.size() == 1) return std::string(path);
    return std::string(path.substr(slash + 1));
}

std::string pathExtension(std::string_view path) {
    std::string name = lastComponent(path);
    auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {};
    return name.substr(dot + 1);
}

std::string lexicallyNormal(std::string_view path) {
    bool absolute = !path.empty() && path.front() == '/';
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        auto end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        auto part = path.substr(start, end - start);
        if (!part.empty() && part != ".") parts.push_back(part);
        start = end + 1;
    }
    std::string normal = absolute ? "/" : "";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) normal += '/';
        normal += parts[i];
    }
    if (normal.empty()) return std::string(1, '.');
    return normal;
}

bool isAbsolutePath(std::string_view path) { return !path.empty() && path.front() == '/'; }

std::string absolutePath(std::string_view path) {
    if (isAbsolutePath(path)) return lexicallyNormal(path);
    char* cwd = ::getcwd(nullptr, 0);
    std::string base = cwd ? cwd : "/";
    std::free(cwd);
    return lexicallyNormal(joinPath(base, path));
}

bool relativeTo(std::string_view root, std::string_view path, std::string& relative) {
    root = withoutTrailingSlashes(root);
    std::string prefix(root);
    if (prefix != "/") prefix += '/';
    if (path.size() <= prefix.size() || path.substr(0, prefix.size()) != prefix) return false;
    relative = std::string(withoutTrailingSlashes(path.substr(prefix.size())));
    return !relative.empty();
}

}  // namespace vosklin

#pragma once

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

namespace vosklin {

// How a component reads environment variables; injected so tests can set them.
using Environment = std::function<std::optional<std::string>(const std::string& name)>;

// The process environment; an empty value reads as unset.
inline std::optional<std::string> processEnvironment(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    if (!value || !*value) return std::nullopt;
    return std::string(value);
}

}  // namespace vosklin

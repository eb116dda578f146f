#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace vosklin {

// The body of one API request, read field by field with the types the handlers
// expect. Bodies come from outside (another program on the socket, a web page),
// so every accessor checks the type and range of what it reads and throws
// ApiError(400) naming the field when it is wrong; nothing of the JSON library's
// own errors reaches a caller. A value type over the parsed body.
class ApiRequest {
public:
    // Nesting deeper than this is refused before parsing: nothing the API takes is deep.
    static constexpr int maximumDepth = 32;

    // Parses a body as sent on the wire; empty text is an empty object. Throws ApiError(400)
    // for text that is not JSON, too deep, or not an object.
    static ApiRequest parse(const std::string& text);
    // A body built in this process (the command line without a daemon). Throws ApiError(400)
    // unless it is an object (or null, read as empty).
    explicit ApiRequest(nlohmann::json body);

    bool has(const std::string& key) const;
    // A path as PathJson writes it (the exact bytes under key + "Bytes" when present).
    std::optional<std::string> path(const std::string& key) const;
    std::optional<std::string> text(const std::string& key) const;
    std::optional<bool> flag(const std::string& key) const;
    std::optional<std::int64_t> integer(const std::string& key, std::int64_t least, std::int64_t most) const;
    std::optional<double> number(const std::string& key, double least, double most) const;
    // An integer, or decimal digits in a string ("12"), as people and programs send ids.
    std::optional<std::int64_t> identifier(const std::string& key) const;
    // A list of identifiers, each read as identifier() reads one; at most `most` of them.
    std::optional<std::vector<std::int64_t>> identifiers(const std::string& key, std::size_t most) const;

    const nlohmann::json& json() const { return body_; }

private:
    [[noreturn]] void refuse(const std::string& key, const std::string& what) const;

    nlohmann::json body_;
};

}  // namespace vosklin

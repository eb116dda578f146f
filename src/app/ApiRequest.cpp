#include "app/ApiRequest.h"

#include <cmath>

#include "app/ApiHandlers.h"
#include "platform/PathJson.h"

namespace vosklin {
namespace {

// The deepest nesting of arrays and objects in JSON text, counted without parsing
// so that a body of a million '[' never reaches the (recursive) library.
int nestingDepth(const std::string& text, int stopAt) {
    int depth = 0, deepest = 0;
    bool inString = false, escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
            continue;
        }
        if (c == '"') inString = true;
        else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
            if (deepest > stopAt) return deepest;
        } else if (c == ']' || c == '}') --depth;
    }
    return deepest;
}

bool isHex(const std::string& text) {
    if (text.size() % 2 != 0) return false;
    for (char c : text)
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

}  // namespace

ApiRequest ApiRequest::parse(const std::string& text) {
    if (text.empty()) return ApiRequest(nlohmann::json::object());
    if (nestingDepth(text, maximumDepth) > maximumDepth)
        throw ApiError(400, "The request body is nested more than " + std::to_string(maximumDepth) + " levels deep");
    auto body = nlohmann::json::parse(text, nullptr, false);
    if (body.is_discarded()) throw ApiError(400, "The request body is not JSON");
    return ApiRequest(std::move(body));
}

ApiRequest::ApiRequest(nlohmann::json body) : body_(std::move(body)) {
    if (body_.is_null()) body_ = nlohmann::json::object();
    if (!body_.is_object()) throw ApiError(400, "The request body must be a JSON object");
}

void ApiRequest::refuse(const std::string& key, const std::string& what) const {
    throw ApiError(400, "The request's \"" + key + "\" must be " + what);
}

bool ApiRequest::has(const std::string& key) const { return body_.contains(key); }

std::optional<std::string> ApiRequest::path(const std::string& key) const {
    auto bytes = body_.find(key + "Bytes");
    if (bytes != body_.end()) {
        if (!bytes->is_string() || !isHex(bytes->get_ref<const std::string&>()))
            refuse(key + "Bytes", "the path's bytes as hexadecimal text");
        return getPath(body_, key);
    }
    return text(key);
}

std::optional<std::string> ApiRequest::text(const std::string& key) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    if (!found->is_string()) refuse(key, "text");
    return found->get<std::string>();
}

std::optional<bool> ApiRequest::flag(const std::string& key) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    if (!found->is_boolean()) refuse(key, "true or false");
    return found->get<bool>();
}

std::optional<std::int64_t> ApiRequest::integer(const std::string& key, std::int64_t least, std::int64_t most) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    const std::string range = "a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    // Unsigned values above the signed range and floats are never converted: the conversion is not defined.
    if (found->is_number_unsigned()) {
        // Text parses every non-negative number as unsigned, so the lower bound is checked here too.
        const auto value = found->get<std::uint64_t>();
        if (value > std::uint64_t(most) || (least > 0 && value < std::uint64_t(least))) refuse(key, range);
        return std::int64_t(value);
    }
    if (!found->is_number_integer()) refuse(key, range);
    const auto value = found->get<std::int64_t>();
    if (value < least || value > most) refuse(key, range);
    return value;
}

std::optional<double> ApiRequest::number(const std::string& key, double least, double most) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    if (!found->is_number()) refuse(key, "a number");
    const double value = found->get<double>();
    if (!std::isfinite(value) || value < least || value > most) {
        std::ostringstream range;
        range << "a number from " << least << " to " << most;
        refuse(key, range.str());
    }
    return value;
}

std::optional<std::int64_t> ApiRequest::identifier(const std::string& key) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    if (found->is_string()) {
        const std::string& digits = found->get_ref<const std::string&>();
        // Eighteen digits at most, all checked before any arithmetic: no overflow to think about.
        const bool plain = !digits.empty() && digits.size() <= 18 &&
                           digits.find_first_not_of("0123456789") == std::string::npos;
        if (plain && std::stoll(digits) > 0) return std::stoll(digits);
        refuse(key, "a positive whole number");
    }
    return integer(key, 1, INT64_MAX);
}

std::optional<std::vector<std::int64_t>> ApiRequest::identifiers(const std::string& key, std::size_t most) const {
    auto found = body_.find(key);
    if (found == body_.end() || found->is_null()) return std::nullopt;
    if (!found->is_array()) refuse(key, "a list of positive whole numbers");
    if (found->size() > most) refuse(key, "a list of at most " + std::to_string(most) + " ids");
    std::vector<std::int64_t> ids;
    for (const auto& element : *found) {
        const auto id = ApiRequest(nlohmann::json{{key, element}}).identifier(key);
        if (!id) refuse(key, "a list of positive whole numbers");
        ids.push_back(*id);
    }
    return ids;
}

}  // namespace vosklin

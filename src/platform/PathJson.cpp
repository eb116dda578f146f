#include "platform/PathJson.h"

#include <stdexcept>

namespace vosklin {

std::size_t validSequenceLength(std::string_view text, std::size_t at) {
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(at);
    if (lead < 0x80) return 1;
    std::size_t length;
    unsigned min, max = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) length = 2, min = 0x80;
    else if (lead == 0xE0) length = 3, min = 0xA0;
    else if (lead >= 0xE1 && lead <= 0xEC) length = 3, min = 0x80;
    else if (lead == 0xED) length = 3, min = 0x80, max = 0x9F;  // no surrogates
    else if (lead >= 0xEE && lead <= 0xEF) length = 3, min = 0x80;
    else if (lead == 0xF0) length = 4, min = 0x90;
    else if (lead >= 0xF1 && lead <= 0xF3) length = 4, min = 0x80;
    else if (lead == 0xF4) length = 4, min = 0x80, max = 0x8F;
    else return 0;
    if (at + length > text.size()) return 0;
    if (byte(at + 1) < min || byte(at + 1) > max) return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
    return length;
}

namespace {

std::string toHex(std::string_view bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
    }
    return hex;
}

std::string fromHex(std::string_view hex) {
    auto value = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    if (hex.size() % 2 != 0) throw std::invalid_argument("hex text of odd length");
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        int high = value(hex[i]), low = value(hex[i + 1]);
        if (high < 0 || low < 0) throw std::invalid_argument("not hex text");
        bytes += char(high * 16 + low);
    }
    return bytes;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        std::size_t length = validSequenceLength(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

std::string displayableUtf8(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        std::size_t length = validSequenceLength(text, at);
        if (length == 0) {
            shown += "\xEF\xBF\xBD";
            ++at;
        } else {
            shown.append(text.substr(at, length));
            at += length;
        }
    }
    return shown;
}

void putPath(nlohmann::json& object, const std::string& key, const std::string& path) {
    if (isValidUtf8(path)) {
        object[key] = path;
    } else {
        object[key] = displayableUtf8(path);
        object[key + "Bytes"] = toHex(path);
    }
}

std::string getPath(const nlohmann::json& object, const std::string& key) {
    auto bytes = object.find(key + "Bytes");
    if (bytes != object.end()) return fromHex(bytes->get<std::string>());
    return object.at(key).get<std::string>();
}

}  // namespace vosklin

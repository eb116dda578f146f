#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace vosklin {

// A JSON value as an integer of type T, when it is a JSON integer that T holds.
// A fraction, an exponent form, a value out of T's range or anything else
// gives nothing: nlohmann's own get<T>() converts a float such as 1e300
// without a check, which is undefined behaviour, and wraps large integers.
// The files this program writes hold plain integers only.
template <class T>
std::optional<T> jsonInteger(const nlohmann::json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (std::in_range<T>(number)) return T(number);
    } else if (value.is_number_integer()) {
        const auto number = value.get<std::int64_t>();
        if (std::in_range<T>(number)) return T(number);
    }
    return std::nullopt;
}

}  // namespace vosklin

#pragma once

#include <optional>
#include <utility>

namespace vosklin::test {

// What `action` throws as an E (a copy, for checking its kind and message), or
// nothing when it returns. Anything else it throws propagates and fails the test.
template <class E, class Action>
std::optional<E> thrown(Action&& action) {
    try {
        action();
    } catch (const E& error) {
        return error;
    }
    return std::nullopt;
}

// The kind() of the E that `action` throws, or nothing when it returns.
template <class E, class Action>
auto kindThrown(Action&& action) -> std::optional<decltype(std::declval<const E&>().kind())> {
    auto error = thrown<E>(std::forward<Action>(action));
    if (!error) return std::nullopt;
    return error->kind();
}

}  // namespace vosklin::test

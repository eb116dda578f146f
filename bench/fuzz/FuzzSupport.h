#pragma once

// Shared by the libFuzzer targets in this folder. A target passes an input
// when the reader returns a value or throws its own component's error; any
// other exception, or a broken promise the target checks, is reported here
// and ends the run with abort(), which libFuzzer records as a crash.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <typeinfo>

namespace vosklin::fuzz {

inline std::string_view bytes(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "fuzz target failure: %s\n", what.c_str());
    std::abort();
}

inline void require(bool condition, const std::string& what) {
    if (!condition) fail(what);
}

// Runs `read`; returns true when it returned, false when it threw `Error`, and
// aborts on any other exception.
template <class Error, class Read>
bool returnsOrThrows(Read&& read) {
    try {
        read();
        return true;
    } catch (const Error&) {
        return false;
    } catch (const std::exception& error) {
        fail(std::string("unexpected ") + typeid(error).name() + ": " + error.what());
    } catch (...) {
        fail("unexpected exception of an unknown type");
    }
}

// For readers that promise not to throw at all.
struct NothingExpected {};

}  // namespace vosklin::fuzz

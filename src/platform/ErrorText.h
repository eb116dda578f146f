#pragma once

#include <exception>
#include <string>

namespace vosklin {

// The message of a captured exception, for a log line.
inline std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace vosklin

// Instants: the ISO 8601 reader every stored file uses, and the forms a person
// types on the command line, which fall back on it.
#include <cmath>

#include "FuzzSupport.h"
#include "app/UserInstant.h"
#include "platform/Instant.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    const auto text = fuzz::bytes(data, size);
    std::optional<double> instant, typed;
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { instant = parseInstant(text); });
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { typed = parseUserInstant(std::string(text)); });
    if (!instant) return 0;
    fuzz::require(std::isfinite(*instant), "an instant that is not a finite number");
    fuzz::require(typed == instant, "the command line reads an ISO 8601 instant differently");
    // What is written can be read back, to the microsecond it is written with.
    if (*instant >= 0 && *instant < 253402300800.0) {
        const std::string written = formatInstant(*instant);
        const auto read = parseInstant(written);
        fuzz::require(read && std::fabs(*read - *instant) <= 1e-6 * 1.5,
                      "the instant written as " + written + " does not read back");
    }
    return 0;
}

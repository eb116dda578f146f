// Sizes as people type them ("1.5GB", "20 MiB").
#include "FuzzSupport.h"
#include "app/ByteCount.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    std::optional<std::int64_t> count;
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { count = parseByteCount(std::string(fuzz::bytes(data, size))); });
    if (count) {
        fuzz::require(*count >= 0, "a size was read as negative: " + std::to_string(*count));
        fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { formatByteCount(*count); });
    }
    return 0;
}

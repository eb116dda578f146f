#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "app/ByteCount.h"

namespace vosklin {
namespace {

TEST(ByteCountTest, SizesAreReadExactlyInTheirUnits) {
    const std::pair<const char*, std::int64_t> cases[] = {
        {"0", 0},
        {"500", 500},
        {"500 B", 500},
        {"1.5kB", 1'500},
        {"20 MB", 20'000'000},
        {"20gb", 20'000'000'000},
        {"2 TB", 2'000'000'000'000},
        {"1 KiB", 1'024},
        {"1.5 GiB", 1'610'612'736},
        {"3 tib", 3'298'534'883'328},
        {"0.0005 kB", 1},  // rounded to the nearest byte
        {".5 MiB", 524'288},
        {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"8388607.99999999999 TiB", std::numeric_limits<std::int64_t>::max() - 10},
    };
    for (const auto& [text, bytes] : cases) {
        SCOPED_TRACE(text);
        const auto reading = readByteCount(text);
        EXPECT_EQ(reading.bytes, bytes) << reading.problem;
        EXPECT_EQ(parseByteCount(text), bytes);
    }
}

TEST(ByteCountTest, AnythingElseIsRefusedWithTheReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "is empty"},
        {"1e30", "has no unit 'e30'"},
        {"-5", "does not start with a number"},
        {"+5", "does not start with a number"},
        {" 5", "does not start with a number"},
        {"1.5.3", "is not one number"},
        {"5 5", "is not one number"},
        {"5.", "decimal point with no digits"},
        {"5 XB", "has no unit 'XB'"},
        {"5k", "has no unit 'k'"},
        {"5  MB", "more than one space"},
        {"5 MB ", "has no unit 'MB '"},
        {"9223372036854775808", "more bytes than can be counted"},
        {"99999999999999999999999", "more bytes than can be counted"},
        {"8388608 TiB", "more bytes than can be counted"},
        {"9223372036854775.808 kB", "more bytes than can be counted"},
        {"1.0000000000000000001", "more decimals"},
    };
    for (const auto& [text, problem] : cases) {
        SCOPED_TRACE(text);
        const auto reading = readByteCount(text);
        EXPECT_FALSE(reading.bytes.has_value()) << *reading.bytes;
        EXPECT_NE(reading.problem.find(problem), std::string::npos) << reading.problem;
    }
}

}  // namespace
}  // namespace vosklin

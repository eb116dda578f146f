#include "search/CompoundFile.h"

#include <gtest/gtest.h>

#include <functional>

#include "search/TextExtractionError.h"
#include "support/CompoundFileWriter.h"

namespace vosklin {
namespace {

using test::CompoundFileWriter;

std::string pattern(std::size_t size, char seed) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = char(seed + i * 7 + i / 251);
    return bytes;
}

// Streams on both sides of the mini stream cutoff and of sector boundaries, in
// both sector sizes, come back byte for byte; names match in any case.
TEST(CompoundFileTest, StreamsOfEverySizeComeBackWhole) {
    const std::size_t sizes[] = {0, 1, 63, 64, 65, 4095, 4096, 4097, 70'000};
    for (const int version : {3, 4}) {
        CompoundFileWriter writer(version);
        for (const auto size : sizes) writer.add("s" + std::to_string(size), pattern(size, char(size)));
        const auto image = writer.write();
        const CompoundFile file(image.bytes);
        for (const auto size : sizes) {
            const auto stream = file.stream("S" + std::to_string(size));
            ASSERT_TRUE(stream) << "version " << version << ", size " << size;
            EXPECT_EQ(*stream, pattern(size, char(size))) << "version " << version << ", size " << size;
        }
        EXPECT_FALSE(file.stream("s2"));
        EXPECT_FALSE(file.stream("s409"));
    }
}

// Only the root storage's own streams are found, never one deeper down.
TEST(CompoundFileTest, StreamsInStoragesAreNotTheRootsOwn) {
    const auto image = CompoundFileWriter().add("A/B/inner", "deep").add("A/beside", "b").add("outer", "top").write();
    const CompoundFile file(image.bytes);
    EXPECT_EQ(file.stream("outer"), "top");
    EXPECT_FALSE(file.stream("inner"));
    EXPECT_FALSE(file.stream("beside"));
    EXPECT_FALSE(file.stream("A"));
}

// Past 109 FAT sectors the rest are listed in chained DIFAT sectors.
TEST(CompoundFileTest, ReadsFatSectorsListedInDifatSectors) {
    const auto big = pattern(8'000'000, 'x');
    const auto image = CompoundFileWriter().add("big", big).add("small", "tiny").write();
    ASSERT_GE(image.difatSectors, 1u);
    const CompoundFile file(image.bytes);
    EXPECT_EQ(file.stream("big"), big);
    EXPECT_EQ(file.stream("small"), "tiny");
}

// A stream of ten regular sectors and one in the mini stream, damaged one way each.
TEST(CompoundFileTest, DamageIsReportedNotFollowed) {
    const auto writer = CompoundFileWriter().add("big", pattern(5000, 'b')).add("small", pattern(300, 's'));
    const auto pristine = writer.write();
    const auto big = pristine.firstSector.at("big"), small = pristine.firstSector.at("small");
    struct Case {
        const char* name;
        std::function<void(test::CompoundFileImage&)> damage;
        const char* stream;
    };
    const Case cases[] = {
        {"sector chain loops back", [&](auto& f) { f.setFat(big + 3, big + 1); }, "big"},
        {"sector chain points past the file", [&](auto& f) { f.setFat(big + 2, 0x00100000); }, "big"},
        {"sector chain meets a free sector", [&](auto& f) { f.setFat(big + 2, 0xFFFFFFFF); }, "big"},
        {"sector chain ends early", [&](auto& f) { f.setFat(big + 2, 0xFFFFFFFE); }, "big"},
        {"mini chain loops back", [&](auto& f) { f.setMiniFat(small + 1, small); }, "small"},
        {"mini chain points past the mini stream", [&](auto& f) { f.setMiniFat(small, 5000); }, "small"},
        {"stream larger than the file", [&](auto& f) { f.put32(f.entryOffset(1) + 0x78, 0x7FFFFFFF); }, "big"},
        {"directory sibling loops", [&](auto& f) { for (std::uint32_t i = 1; i <= 2; ++i) f.put32(f.entryOffset(i) + 0x44, i); }, "none"},
        {"directory link past the directory", [&](auto& f) { f.put32(f.entryOffset(0) + 0x4C, 900); }, "big"},
        {"file cut short", [&](auto& f) { f.bytes.resize(f.bytes.size() - 1000); }, "big"},
    };
    for (const auto& c : cases) {
        auto image = pristine;
        c.damage(image);
        EXPECT_THROW(CompoundFile(image.bytes).stream(c.stream), TextExtractionError) << c.name;
    }

    // Damage the header itself: nothing can be opened.
    const std::function<void(test::CompoundFileImage&)> headers[] = {
        [](auto& f) { f.bytes[0] = 'X'; },                       // not a compound file
        [](auto& f) { f.bytes.resize(400); },                    // shorter than a header
        [](auto& f) { f.bytes[0x1E] = 12; },                     // version 3 with 4096-byte sectors
        [](auto& f) { f.put32(0x30, 0x00FFFFFF); },              // directory past the end
        [](auto& f) { f.put32(0x2C, 0x00FFFFFF); },              // FAT larger than the file
        [](auto& f) { f.put32(0x4C, 0x00FFFFFF); },              // FAT sector past the end
        [](auto& f) { f.setFat(f.firstDirectorySector, f.firstDirectorySector); },  // directory chain loops
    };
    for (std::size_t k = 0; k < std::size(headers); ++k) {
        auto image = pristine;
        headers[k](image);
        EXPECT_THROW(CompoundFile(image.bytes).stream("big"), TextExtractionError) << "header damage " << k;
    }
}

}  // namespace
}  // namespace vosklin

// A Word 97–2003 document read from arbitrary bytes. Only the reader's own
// error may escape; the text must be valid UTF-8 and no longer than three
// bytes per input byte (every character comes from at least one byte of the
// document stream, and none takes more than three bytes of UTF-8).
//
// Seeds (bench/fuzz/seeds/WordBinaryReader/) are the readable documents of
// tests/search/WordBinaryReaderTest.cpp, written by that test when
// VOSKLIN_WRITE_WORD_SEEDS names a folder (the command is beside the test).
// libFuzzer dictionary: word.dict
#include "FuzzSupport.h"
#include "platform/PathJson.h"
#include "search/TextExtractionError.h"
#include "search/WordBinaryReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    if (size > 256 * 1024) return 0;  // large inputs only make runs slow
    const auto input = fuzz::bytes(data, size);
    std::string text;
    if (!fuzz::returnsOrThrows<TextExtractionError>([&] { text = WordBinaryReader::text(input); })) return 0;
    fuzz::require(isValidUtf8(text), "the text is not valid UTF-8");
    fuzz::require(text.size() <= 3 * size, "the text is longer than the document can hold");
    return 0;
}

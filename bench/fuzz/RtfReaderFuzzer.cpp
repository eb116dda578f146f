// RTF text: the reader must return valid UTF-8 of at most three bytes per
// input byte, or refuse with TextExtractionError; anything else is a fault.
// The seeds are small documents written by hand, one per family of constructs:
// plain paragraphs, \uN and its fallback, code pages of the document and its
// fonts, skipped and kept destinations, and \bin with binary bytes.
// libFuzzer dictionary: rtf.dict
#include "FuzzSupport.h"
#include "platform/PathJson.h"
#include "search/RtfReader.h"
#include "search/TextExtractionError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    if (size > 64 * 1024) return 0;  // large inputs only make runs slow
    const auto input = fuzz::bytes(data, size);
    std::string text;
    if (!fuzz::returnsOrThrows<TextExtractionError>([&] { text = RtfReader::text(input); })) return 0;
    fuzz::require(isValidUtf8(text), "the text is not valid UTF-8");
    fuzz::require(text.size() <= 3 * size, "the text is longer than three bytes per input byte");
    return 0;
}

// Rewind journals as recovery finds them after a crash: any bytes.
#include "FuzzSupport.h"
#include "restore/JournalError.h"
#include "restore/RewindJournal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    fuzz::returnsOrThrows<JournalError>([&] { RewindJournal::decode(fuzz::bytes(data, size)); });
    return 0;
}

// Restore journals as recovery finds them after a crash: any bytes.
// libFuzzer dictionary: json.dict
#include "FuzzSupport.h"
#include "restore/JournalError.h"
#include "restore/RestoreJournal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    RestoreJournal journal;
    if (!fuzz::returnsOrThrows<JournalError>([&] { journal = RestoreJournal::decode(fuzz::bytes(data, size)); }))
        return 0;
    // Recovery writes and removes files named after the id in the journal directory.
    fuzz::require(journal.fileName().find('/') == std::string::npos &&
                      journal.fileName().find('\0') == std::string::npos,
                  "a journal's id names a file outside the journal directory: " + journal.id);
    return 0;
}

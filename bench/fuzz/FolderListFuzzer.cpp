// folders.json, which the user may edit by hand.
// libFuzzer dictionary: json.dict
#include "FuzzSupport.h"
#include "bridge/FolderList.h"
#include "bridge/FolderListError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    try {
        FolderList::parse(fuzz::bytes(data, size), "folders.json");
    } catch (const FolderListError& error) {
        fuzz::require(error.kind() == FolderListError::Kind::malformedList,
                      std::string("a damaged list gave another kind of error: ") + error.what());
    } catch (const std::exception& error) {
        fuzz::fail(std::string("unexpected ") + typeid(error).name() + ": " + error.what());
    }
    return 0;
}

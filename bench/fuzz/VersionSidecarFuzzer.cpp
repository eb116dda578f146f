// The sidecar beside each payload, read when the catalog is rebuilt from the store.
// libFuzzer dictionary: json.dict
#include <cmath>

#include "FuzzSupport.h"
#include "store/VersionSidecar.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    VersionSidecar sidecar;
    if (!fuzz::returnsOrThrows<SidecarError>([&] { sidecar = VersionSidecar::decode(fuzz::bytes(data, size)); }))
        return 0;
    // What was accepted must survive being written again: the sidecar keeps whole seconds.
    VersionSidecar again;
    if (!fuzz::returnsOrThrows<SidecarError>([&] { again = VersionSidecar::decode(sidecar.encode()); }))
        fuzz::fail("an accepted sidecar, written again, is refused:\n" + sidecar.encode());
    sidecar.capturedAt = std::floor(sidecar.capturedAt);
    fuzz::require(again == sidecar, "an accepted sidecar changes when written again:\n" + sidecar.encode());
    return 0;
}

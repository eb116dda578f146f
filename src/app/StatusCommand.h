#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "platform/FileSystem.h"
#include "store/StoreLocator.h"

namespace vosklin {

// What `vosklin status` reports about the store.
struct StatusReport {
    enum class StoreState {
        absent,  // nothing recorded yet
        ready,
        newer,        // written by a newer Vosklin; left untouched
        unavailable,  // could not be opened (detail says why)
    };

    std::string containerRoot;
    std::string storeRoot;
    StoreState storeState = StoreState::absent;
    std::optional<std::int32_t> schemaVersion;
    std::int32_t supportedSchemaVersion = 0;
    std::string detail;
    std::int64_t files = 0;
    std::int64_t liveFiles = 0;
    std::int64_t versions = 0;
    std::int64_t logicalBytes = 0;
};

// `vosklin status`: reads the store without creating it.
class StatusCommand {
public:
    StatusCommand(const StoreLocator& locator, FileSystem& fileSystem);

    StatusReport gather();
    // Prints the report as text or JSON; returns the exit status (non-zero
    // when the store exists but cannot be used).
    int run(bool json, std::ostream& out, std::ostream& err);

private:
    const StoreLocator& locator_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include <vector>

#include "app/AppContext.h"
#include "bridge/WatchedFolder.h"
#include "catalog/UnreadableItems.h"

namespace vosklin {

// What `vosklin status` reports about the store.
struct StatusReport {
    enum class StoreState {
        absent,  // nothing recorded yet
        ready,
        newer,        // written by a newer Vosklin; left untouched
        unavailable,  // could not be opened (detail says why)
        damaged,      // the catalog is damaged or lost while versions are stored (detail says how to rebuild)
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

    struct Folder {
        WatchedFolder folder;
        bool reachable = false;
        std::string unreachableReason;
        std::int64_t files = 0;
        std::int64_t versions = 0;
        std::int64_t logicalBytes = 0;
        UnreadableItems unreadable;  // as the folder's last whole scan found it
    };
    std::vector<Folder> folders;
    std::string foldersProblem;  // the folder list could not be read
};

// `vosklin status`: reads the store without creating it.
class StatusCommand {
public:
    explicit StatusCommand(AppContext& context);

    StatusReport gather();
    // Prints the report as text or JSON; returns the exit status: 1 when the
    // store exists but cannot be used, exitSomeUnreadable when the last scan of
    // a folder could not read all of it.
    int run(bool json, std::ostream& out, std::ostream& err);

private:
    AppContext& context_;
};

}  // namespace vosklin

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vosklin {

// Where watching of one folder resumes.
struct WatchState {
    std::string folderID;
    std::optional<std::int64_t> lastEventID;
    std::optional<double> lastCrawlAt;
    bool baselineDone = false;
    std::optional<std::string> volumeID;

    bool operator==(const WatchState&) const = default;
};

}  // namespace vosklin

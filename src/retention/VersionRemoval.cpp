#include "retention/VersionRemoval.h"

#include "platform/DiskSpace.h"
#include "platform/FileSystemError.h"

namespace vosklin {

std::int64_t VersionRemoval::reclaimableBytes(const std::vector<StoredVersion>& versions) const {
    std::int64_t total = 0;
    for (const auto& version : versions) total += DiskSpace::privateBytes(layout_.slotDirectory(version.slot));
    return total;
}

std::int64_t VersionRemoval::remove(const std::vector<StoredVersion>& versions, const std::function<void()>& pause) {
    std::int64_t leftBehind = 0;
    std::size_t done = 0;
    for (const auto& version : versions) {
        if (pause && done++ % 32 == 0) pause();
        try {
            layout_.removeSlot(version.slot);
        } catch (const FileSystemError&) {
            ++leftBehind;
        }
    }
    return leftBehind;
}

}  // namespace vosklin

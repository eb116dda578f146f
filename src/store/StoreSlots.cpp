#include "store/StoreSlots.h"

#include <algorithm>
#include <charconv>

#include "platform/PathNames.h"

namespace vosklin {

StoreSlots::StoreSlots(const VersionStoreLayout& layout, FileSystem& fileSystem)
    : layout_(layout), fileSystem_(fileSystem) {}

void StoreSlots::walk(const std::function<bool(const std::string&)>& visit) {
    const std::string root = layout_.versionsDirectory();
    if (auto status = fileSystem_.linkStatus(root); !status || !status->isDirectory()) return;
    // d_type may be unknown on some file systems: ask lstat then.
    auto isDirectory = [&](const std::string& path, const DirectoryEntry& entry) {
        if (entry.type != FileType::other) return entry.type == FileType::directory;
        auto status = fileSystem_.linkStatus(path);
        return status && status->isDirectory();
    };
    for (const auto& spread : fileSystem_.listDirectory(root)) {
        const std::string spreadPath = joinPath(root, spread.name);
        if (!isDirectory(spreadPath, spread)) continue;
        for (const auto& file : fileSystem_.listDirectory(spreadPath)) {
            const std::string filePath = joinPath(spreadPath, file.name);
            if (!isDirectory(filePath, file)) continue;
            for (const auto& slot : fileSystem_.listDirectory(filePath)) {
                if (!isDirectory(joinPath(filePath, slot.name), slot)) continue;
                if (!visit("versions/" + spread.name + "/" + file.name + "/" + slot.name)) return;
            }
        }
    }
}

std::vector<std::string> StoreSlots::all() {
    std::vector<std::string> slots;
    walk([&](const std::string& slot) {
        slots.push_back(slot);
        return true;
    });
    std::sort(slots.begin(), slots.end());
    return slots;
}

bool StoreSlots::any() {
    bool found = false;
    walk([&](const std::string&) {
        found = true;
        return false;
    });
    return found;
}

std::optional<std::int64_t> StoreSlots::fileID(const std::string& slotRelativePath) {
    // versions / spread / id / stamp
    const auto first = slotRelativePath.find('/');
    const auto second = first == std::string::npos ? first : slotRelativePath.find('/', first + 1);
    const auto third = second == std::string::npos ? second : slotRelativePath.find('/', second + 1);
    if (third == std::string::npos) return std::nullopt;
    const char* begin = slotRelativePath.data() + second + 1;
    const char* end = slotRelativePath.data() + third;
    std::int64_t id = 0;
    auto [at, error] = std::from_chars(begin, end, id);
    if (error != std::errc() || at != end || begin == end || id <= 0) return std::nullopt;
    return id;
}

}  // namespace vosklin

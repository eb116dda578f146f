#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vosklin {

// When a file came and went, and where a rename took it; stored as these strings.
enum class FileEventKind { deleted, appeared, renamed };

std::string_view toString(FileEventKind kind);
std::optional<FileEventKind> fileEventKindFromString(std::string_view text);

// One row of `file_events`.
struct FileEventRow {
    std::int64_t fileID = 0;
    double at = 0;
    FileEventKind kind = FileEventKind::appeared;
    std::optional<std::string> path;  // the new path of a rename

    bool operator==(const FileEventRow&) const = default;
};

}  // namespace vosklin

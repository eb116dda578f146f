#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bridge/WatchedFolder.h"
#include "platform/FileSystem.h"

namespace vosklin {

// The watched folders, kept in folders.json.
//
// Read on every use (the daemon and the command line share it) and replaced
// atomically on every change, so a crash never leaves half a list. A missing
// file is an empty list; a file that cannot be parsed is refused with
// FolderListError::malformedList rather than silently treated as empty, so a
// later save can never wipe the user's folders. Not synchronised between
// processes beyond the atomic replace: the daemon is the usual writer.
class FolderList {
public:
    FolderList(std::string path, FileSystem& fileSystem);

    const std::string& path() const { return path_; }

    std::vector<WatchedFolder> folders();
    // By id, or by path (made absolute; links resolved when it exists).
    // Throws FolderListError::unknownFolder naming what was asked for.
    WatchedFolder require(const std::string& idOrPath);
    // The watched folder whose root contains `path` (or is it), with the path below the root.
    std::optional<std::pair<WatchedFolder, std::string>> folderContaining(const std::string& path);

    // Adds a folder. A folder removed earlier with its history kept, at the same
    // path, takes its old id back, so its history is found again.
    WatchedFolder append(WatchedFolder folder);
    void replace(const WatchedFolder& folder);
    // Removes a folder from the list. With `keepHistory` its id and path are
    // remembered (as a retired entry) for a later append of the same path.
    void remove(const std::string& id, bool keepHistory);
    std::vector<WatchedFolder> retired();

    struct Contents {
        std::vector<WatchedFolder> folders;
        std::vector<WatchedFolder> retired;
    };
    // The bytes of a folder list; `path` only names it in the message of the
    // FolderListError::malformedList thrown for anything this class does not write.
    static Contents parse(std::string_view text, const std::string& path);

private:
    Contents load();
    void save(const Contents& contents);
    std::string canonical(const std::string& path);

    std::string path_;
    FileSystem& fileSystem_;
};

}  // namespace vosklin

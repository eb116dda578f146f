#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/FileSystem.h"
#include "platform/FileSystemError.h"
#include "store/PayloadCloner.h"

namespace vosklin {

// Writes into a watched folder so that nothing can redirect the write: the
// destination's parent is opened once, walking down from the watched root
// without following any link, and every step after that (the scratch copy,
// its sync, the swap, the removal of what was swapped out) works relative to
// that open directory. A link swapped into the path after the policy check
// makes the open fail (ELOOP) instead of sending the write elsewhere.
//
// A placement: copy the payload (a file, or a package directory) to a scratch
// item ".vosklin-restore-<UUID>" beside the destination, sync it, then swap it
// into place with RENAME_EXCHANGE (or rename it there when nothing is at the
// destination) and remove what was swapped out. At every instant the
// destination holds the old content or the new, whole. Failures are thrown as
// FileSystemError or CloneError; a scratch item left by a failure is removed.
class SafePlacement {
public:
    SafePlacement(FileSystem& fileSystem, PayloadCloner& cloner);

    // Hears the scratch copy once it is made, before anything is swapped: throwing
    // refuses it (a copy that is not the version's content), and the copy is removed.
    using CopyCheck = std::function<void(const std::string& scratchPath)>;

    // `beforeCopy` hears the scratch item's absolute path before it is made (for a journal).
    // `scratchName` may be chosen beforehand (a rewind journals all of them first); empty, one is made.
    void place(const std::string& root, const std::string& relativePath, const std::string& payload,
               const std::function<void(const std::string& scratchPath)>& beforeCopy = nullptr,
               std::string scratchName = "", const CopyCheck& checkCopy = nullptr);
    static std::string makeScratchName();
    // A placement in two halves, for many files at once: stage every scratch
    // copy, make them all durable with one syncFileSystem, then commit each
    // (the swap, and the removal of what was swapped out), then sync once more.
    // Each file is still wholly old or wholly new at every instant, since no
    // swap happens before the copies are on disk. Neither half syncs.
    void stage(const std::string& root, const std::string& relativePath, const std::string& payload,
               const std::string& scratchName, const CopyCheck& checkCopy = nullptr);
    // Once the swap is done the new content is in place, whatever follows: when what was
    // swapped out cannot be removed, it stays under the scratch name (which a journal
    // names, for recovery) and the error is returned, not thrown.
    std::optional<FileSystemError> commit(const std::string& root, const std::string& relativePath,
                                          const std::string& scratchName);
    // Removes the file (or package directory) at root/relativePath; nothing there is fine.
    // With `sync` false the caller syncs (a batch).
    void remove(const std::string& root, const std::string& relativePath, bool sync = true);

    static constexpr std::string_view scratchPrefix = ".vosklin-restore-";

private:
    void removeItem(int directory, const std::string& name);
    // Opens the destination's parent, making missing folders one level at a time.
    UniqueFd openParent(const std::string& root, const std::string& relativePath);

    FileSystem& fileSystem_;
    PayloadCloner& cloner_;
};

}  // namespace vosklin

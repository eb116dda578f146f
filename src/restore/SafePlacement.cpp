#include "restore/SafePlacement.h"

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/Uuid.h"

namespace vosklin {

SafePlacement::SafePlacement(FileSystem& fileSystem, PayloadCloner& cloner)
    : fileSystem_(fileSystem), cloner_(cloner) {}

void SafePlacement::removeItem(int directory, const std::string& name) {
    auto status = fileSystem_.statAt(directory, name);
    if (!status) return;
    if (status->isDirectory()) {
        // Inside an item of our own making (or one being removed): the descriptor path pins the parent.
        removeAll(fileSystem_, joinPath(descriptorPath(directory), name));
    } else {
        fileSystem_.removeAt(directory, name, false);
    }
}

std::string SafePlacement::makeScratchName() { return std::string(scratchPrefix) + makeUuid(); }

UniqueFd SafePlacement::openParent(const std::string& root, const std::string& relativePath) {
    const std::string parent = parentPath(relativePath) == "." ? "" : parentPath(relativePath);
    // Folders that no longer exist (a deleted folder's file coming back) are made, one level at a time.
    std::string made;
    for (std::size_t start = 0; start < parent.size();) {
        std::size_t end = parent.find('/', start);
        if (end == std::string::npos) end = parent.size();
        const std::string component = parent.substr(start, end - start);
        UniqueFd above = fileSystem_.openDirectoryBeneath(root, made);
        if (!fileSystem_.statAt(above.get(), component))
            fileSystem_.makeDirectory(joinPath(descriptorPath(above.get()), component), 0755);
        made = made.empty() ? component : made + "/" + component;
        start = end + 1;
    }
    return fileSystem_.openDirectoryBeneath(root, parent);
}

void SafePlacement::stage(const std::string& root, const std::string& relativePath, const std::string& payload,
                          const std::string& scratchName, const CopyCheck& checkCopy) {
    UniqueFd directory = openParent(root, relativePath);
    try {
        const std::string scratch = joinPath(descriptorPath(directory.get()), scratchName);
        cloner_.clone(payload, scratch);
        if (checkCopy) checkCopy(scratch);
    } catch (...) {
        try {
            removeItem(directory.get(), scratchName);
        } catch (const FileSystemError&) {
            // The failure being reported matters more; recovery sweeps what is left.
        }
        throw;
    }
}

std::optional<FileSystemError> SafePlacement::commit(const std::string& root, const std::string& relativePath,
                                                     const std::string& scratchName) {
    UniqueFd directory = fileSystem_.openDirectoryBeneath(root, parentPath(relativePath) == "." ? "" : parentPath(relativePath));
    const std::string name = lastComponent(relativePath);
    if (!fileSystem_.statAt(directory.get(), name)) {
        fileSystem_.renameAt(directory.get(), scratchName, name, false);
        return std::nullopt;
    }
    fileSystem_.renameAt(directory.get(), scratchName, name, true);
    try {
        removeItem(directory.get(), scratchName);  // now the old content
    } catch (const FileSystemError& error) {
        return error;
    }
    return std::nullopt;
}

void SafePlacement::place(const std::string& root, const std::string& relativePath, const std::string& payload,
                          const std::function<void(const std::string&)>& beforeCopy, std::string scratchName,
                          const CopyCheck& checkCopy) {
    const std::string scratch = scratchName.empty() ? makeScratchName() : scratchName;
    const std::string parent = parentPath(relativePath) == "." ? "" : parentPath(relativePath);
    if (beforeCopy) beforeCopy(joinPath(joinPath(root, parent), scratch));
    stage(root, relativePath, payload, scratch, checkCopy);
    UniqueFd directory = fileSystem_.openDirectoryBeneath(root, parent);
    try {
        // The copy must be on disk before it takes the old content's place.
        auto status = fileSystem_.statAt(directory.get(), scratch);
        if (status && status->isRegular()) {
            UniqueFd file = fileSystem_.openForReading(joinPath(descriptorPath(directory.get()), scratch));
            fileSystem_.syncFile(file.get());
        } else {
            fileSystem_.syncFileSystem(descriptorPath(directory.get()));
        }
        if (auto left = commit(root, relativePath, scratch)) throw *left;
        fileSystem_.syncDirectory(directory.get());
    } catch (...) {
        try {
            removeItem(directory.get(), scratch);
        } catch (const FileSystemError&) {
        }
        throw;
    }
}

void SafePlacement::remove(const std::string& root, const std::string& relativePath, bool sync) {
    const std::string parent = parentPath(relativePath) == "." ? "" : parentPath(relativePath);
    UniqueFd directory;
    try {
        directory = fileSystem_.openDirectoryBeneath(root, parent);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() == ENOENT) return;  // its folder is gone already
        throw;
    }
    removeItem(directory.get(), lastComponent(relativePath));
    if (sync) fileSystem_.syncDirectory(directory.get());
}

}  // namespace vosklin

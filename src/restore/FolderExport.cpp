#include "restore/FolderExport.h"

#include <algorithm>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"

namespace vosklin {

namespace {

bool inside(const std::string& root, const std::string& path) {
    std::string relative;
    return path == root || relativeTo(root, path, relative);
}

// A catalog path that stays below its folder: no empty, "." or ".." component.
bool staysBelow(const std::string& relative) {
    if (relative.empty() || relative.front() == '/') return false;
    std::size_t start = 0;
    while (start <= relative.size()) {
        const auto end = std::min(relative.find('/', start), relative.size());
        const auto part = relative.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        start = end + 1;
    }
    return true;
}

}  // namespace

FolderExport::FolderExport(VersionCatalog& catalog, const VersionStoreLayout& layout, PayloadCloner& cloner,
                           FileSystem& fileSystem)
    : catalog_(catalog), layout_(layout), cloner_(cloner), fileSystem_(fileSystem) {}

std::string FolderExport::checkedDestination(const WatchedFolder& folder, const std::string& destination) {
    const std::string wanted = lexicallyNormal(absolutePath(destination));
    const std::string name = lastComponent(wanted);
    if (name.empty() || name == "." || name == ".." || wanted == "/")
        throw ExportError("Name a new folder to export into, not " + DisplayName::of(destination));
    std::string parent;
    try {
        parent = fileSystem_.resolvedPath(parentPath(wanted));
    } catch (const FileSystemError&) {
        throw ExportError("Cannot export into " + DisplayName::of(wanted) + ": " +
                          DisplayName::of(parentPath(wanted)) + " does not exist");
    }
    const std::string resolved = joinPath(parent, name);
    if (inside(fileSystem_.resolvedPath(layout_.root()), resolved))
        throw ExportError("Will not export into Vosklin's own store (" + DisplayName::of(resolved) + ")");
    std::string folderRoot = folder.path;
    try {
        folderRoot = fileSystem_.resolvedPath(folder.path);
    } catch (const FileSystemError&) {
        // An unreachable folder cannot hold the destination either.
    }
    if (inside(folderRoot, resolved))
        throw ExportError("Will not export " + DisplayName::of(folder.path) + " into itself; choose a folder outside it");
    return resolved;
}

FolderExport::Report FolderExport::run(const WatchedFolder& folder, double instant, const std::string& destination,
                                       const Progress& progress, std::stop_token stop) {
    const std::string root = checkedDestination(folder, destination);
    // mkdir fails when anything is there already: nothing is ever written over.
    try {
        if (!fileSystem_.makeDirectory(root, 0755))
            throw ExportError(DisplayName::of(root) + " already exists; Vosklin exports only into a new folder");
    } catch (const FileSystemError& error) {
        throw ExportError(std::string("Cannot create the folder: ") + error.what());
    }
    Report report;
    report.destination = root;
    try {
        exportFiles(folder, instant, root, report, progress, stop);
        // Copies are not synced one by one; the user's new folder is on disk when this returns.
        fileSystem_.syncFileSystem(root);
    } catch (...) {
        // Everything under `root` is this export's own: it made the folder.
        try {
            removeAll(fileSystem_, root);
        } catch (const std::exception&) {
            // The error below says what went wrong; the remains are the user's to see.
        }
        throw;
    }
    return report;
}

void FolderExport::exportFiles(const WatchedFolder& folder, double instant, const std::string& root,
                               Report& report, const Progress& progress, std::stop_token stop) {
    const auto states = catalog_.stateAt(folder.id, instant);
    const std::string storeRoot = lexicallyNormal(layout_.root());
    for (const auto& state : states) {
        if (stop.stop_requested()) throw ExportError("The export was stopped; nothing of it was kept");
        const std::string& relative = state.file.relativePath;
        if (!staysBelow(relative))
            throw ExportError("The catalog records a path that leaves the folder: " + DisplayName::of(relative));
        const std::string payload =
            lexicallyNormal(layout_.payloadPath(state.version.slot, state.version.payloadName));
        if (!inside(storeRoot, payload) || payload == storeRoot)
            throw ExportError("Version " + std::to_string(state.version.id) + " of " + DisplayName::of(relative) +
                              " has its stored copy recorded outside the store (" + DisplayName::of(payload) + ")");
        const std::string target = joinPath(root, relative);
        makeDirectories(fileSystem_, parentPath(target), 0755);
        try {
            const auto outcome = cloner_.clone(payload, target, stop);
            if (outcome.method == CloneMethod::cloned) ++report.clonedCount;
        } catch (const CloneError& error) {
            throw ExportError("Could not export " + DisplayName::of(relative) + " (version " +
                              std::to_string(state.version.id) + "): " + error.what());
        }
        ++report.fileCount;
        report.logicalBytes += state.version.logicalBytes;
        if (progress) progress(report.fileCount, std::int64_t(states.size()));
    }
}

}  // namespace vosklin

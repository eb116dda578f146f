#include "app/VersionsCommand.h"

#include <cerrno>
#include <cstdlib>

#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"
#include "store/StoredPayload.h"

namespace vosklin {

VersionsCommand::VersionsCommand(AppContext& context, std::ostream& out) : context_(context), out_(out) {}

int VersionsCommand::versions(const std::string& path, bool json) {
    auto found = context_.folders().folderContaining(path);
    if (!found || found->second.empty())
        throw CommandError(DisplayName::of(path) + " is not inside a watched folder (see 'vosklin folder list')");
    const auto& [folder, relative] = *found;
    std::optional<TrackedFile> file;
    if (context_.storeExists()) file = context_.readCatalog().fileAtPath(folder.id, relative);
    if (!file) throw CommandError("Vosklin has no history of " + DisplayName::of(path));
    auto versions = context_.readCatalog().versionsOfFile(file->id, std::numeric_limits<std::int64_t>::max());
    if (json) {
        nlohmann::json object;
        object["file"] = toJson(*file);
        object["versions"] = nlohmann::json::array();
        for (const auto& version : versions) object["versions"].push_back(toJson(version));
        out_ << object.dump(2) << "\n";
        return 0;
    }
    out_ << DisplayName::of(joinPath(folder.path, relative)) << ": " << versions.size()
         << (versions.size() == 1 ? " version" : " versions") << (file->deletedAt ? " (deleted)" : "") << "\n";
    char line[256];
    std::snprintf(line, sizeof line, "%8s  %-19s  %10s  %-10s  %s\n", "VERSION", "CAPTURED", "SIZE", "SOURCE", "");
    out_ << line;
    for (const auto& version : versions) {
        std::string notes;
        if (version.isStarred) notes += " starred";
        if (!version.isVerified) notes += " incomplete?";
        if (version.isReplacement) notes += " replaced";
        std::snprintf(line, sizeof line, "%8lld  %-19s  %10s  %-10s %s\n", static_cast<long long>(version.id),
                      formatLocalTime(version.capturedAt).c_str(), formatByteCount(version.logicalBytes).c_str(),
                      std::string(toString(version.source)).c_str(), notes.c_str());
        out_ << line;
    }
    return 0;
}

int VersionsCommand::cat(const std::string& versionText, const std::optional<std::string>& output) {
    char* end = nullptr;
    errno = 0;
    const long long id = std::strtoll(versionText.c_str(), &end, 10);
    if (versionText.empty() || *end != '\0' || errno != 0 || id <= 0)
        throw CommandError("'" + versionText + "' is not a version number (see 'vosklin versions PATH')");
    std::optional<StoredVersion> version;
    if (context_.storeExists()) version = context_.readCatalog().version(id);
    if (!version) throw CommandError("There is no version " + versionText);
    const bool isPackage = context_.readCatalog().requireFile(version->fileID).isPackage;
    StoredPayload stored(context_.fileSystem(), context_.layout(), *version, isPackage);
    stored.locate();  // refused or missing: said before anything is written

    if (!output) {
        if (isPackage)
            throw CommandError("Version " + versionText + " is a folder (" + DisplayName::of(version->payloadName) +
                               "); give -o DIRECTORY to receive it");
        stored.streamTo(out_);
        return 0;
    }
    // A reflink where possible; never over something that is already there.
    try {
        PayloadCloner cloner(context_.fileSystem(), context_.clock(), context_.logger());
        stored.exportTo(cloner, absolutePath(*output));
    } catch (const CloneError& error) {
        if (error.kind() == CloneError::Kind::destinationExists)
            throw CommandError(DisplayName::of(*output) + " already exists; choose another name");
        throw;
    }
    return 0;
}

}  // namespace vosklin

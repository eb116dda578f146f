#include "store/StoreChecker.h"

#include <set>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "store/StoreSlots.h"
#include "store/VersionSidecar.h"

namespace vosklin {
namespace {

StoreProblem problem(StoreProblem::Kind kind, const StoredVersion& version, std::string detail) {
    StoreProblem found;
    found.kind = kind;
    found.versionID = version.id;
    found.slot = version.slot;
    found.detail = std::move(detail);
    return found;
}

void compare(const StoredVersion& version, const std::string& field, const std::string& inSidecar,
             const std::string& inCatalog, std::vector<StoreProblem>& problems) {
    if (inSidecar == inCatalog) return;
    StoreProblem found = problem(StoreProblem::Kind::sidecarDisagrees, version,
                                 "the sidecar's " + field + " is " + DisplayName::of(inSidecar) +
                                     ", the catalog's " + DisplayName::of(inCatalog));
    found.field = field;
    problems.push_back(std::move(found));
}

const char* yesNo(bool value) { return value ? "true" : "false"; }

}  // namespace

StoreChecker::StoreChecker(VersionCatalog& catalog, const VersionStoreLayout& layout, FileSystem& fileSystem,
                           PayloadDigest& digest, std::map<std::string, std::string> folderRoots)
    : catalog_(catalog),
      layout_(layout),
      fileSystem_(fileSystem),
      digest_(digest),
      folderRoots_(std::move(folderRoots)) {}

StoreChecker::Report StoreChecker::check(const Options& options, const Progress& progress) {
    Report report;
    const auto versions = catalog_.placedVersions(options.folderID);
    const auto total = std::int64_t(versions.size());
    for (const auto& placed : versions) {
        checkVersion(placed, options.readData, report.problems);
        ++report.versionsChecked;
        if (progress) progress(report.versionsChecked, total);
    }
    if (!options.folderID) {
        const auto referenced = catalog_.allSlots();
        const std::set<std::string> known(referenced.begin(), referenced.end());
        for (const auto& slot : StoreSlots(layout_, fileSystem_).all()) {
            if (known.count(slot)) continue;
            StoreProblem note;
            note.kind = StoreProblem::Kind::orphanSlot;
            note.slot = slot;
            note.detail = "no version refers to this slot (a copy left by an interrupted capture)";
            report.notes.push_back(std::move(note));
        }
    }
    return report;
}

void StoreChecker::checkVersion(const PlacedVersion& placed, bool readData, std::vector<StoreProblem>& problems) {
    const StoredVersion& version = placed.version;
    const std::string slotDirectory = layout_.slotDirectory(version.slot);
    auto slot = fileSystem_.linkStatus(slotDirectory);
    if (!slot || !slot->isDirectory()) {
        problems.push_back(problem(StoreProblem::Kind::slotMissing, version, "the slot directory is missing"));
        return;
    }

    // The payload is found by the name the row records, which need not be the source's own name.
    const std::string payload = layout_.payloadPath(version.slot, version.payloadName);
    auto payloadStatus = fileSystem_.linkStatus(payload);
    if (!payloadStatus) {
        problems.push_back(problem(StoreProblem::Kind::payloadMissing, version,
                                   "the payload " + DisplayName::of(version.payloadName) + " is missing"));
    } else {
        const bool isPackage = payloadStatus->isDirectory();
        try {
            // A file's size is one stat away; a package's needs a walk, so only when reading everything.
            if (!isPackage || readData) {
                const std::int64_t size = isPackage ? digest_.logicalSize(payload, true) : payloadStatus->size;
                if (size != version.logicalBytes)
                    problems.push_back(problem(StoreProblem::Kind::payloadSizeWrong, version,
                                               "the payload holds " + std::to_string(size) + " bytes, the catalog says " +
                                                   std::to_string(version.logicalBytes)));
            }
            if (readData) {
                const std::string digest = isPackage ? digest_.packageDigest(payload) : digest_.fileDigest(payload);
                if (digest != version.digest)
                    problems.push_back(problem(StoreProblem::Kind::payloadDigestWrong, version,
                                               "the payload hashes to " + digest + ", the catalog says " +
                                                   version.digest));
            }
        } catch (const FileSystemError& error) {
            problems.push_back(problem(StoreProblem::Kind::payloadUnreadable, version,
                                       std::string("the payload cannot be read: ") + error.what()));
        }
    }

    VersionSidecar sidecar;
    try {
        sidecar = VersionSidecar::read(fileSystem_, slotDirectory);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() == ENOENT)
            problems.push_back(problem(StoreProblem::Kind::sidecarMissing, version, "the sidecar is missing"));
        else
            problems.push_back(problem(StoreProblem::Kind::sidecarUnreadable, version,
                                       std::string("the sidecar cannot be read: ") + error.what()));
        return;
    } catch (const SidecarError& error) {
        problems.push_back(problem(StoreProblem::Kind::sidecarUnreadable, version, error.what()));
        return;
    }
    compare(version, "digest", sidecar.digest, version.digest, problems);
    compare(version, "logicalBytes", std::to_string(sidecar.logicalBytes), std::to_string(version.logicalBytes),
            problems);
    compare(version, "method", std::string(toString(sidecar.method)), std::string(toString(version.method)), problems);
    compare(version, "verified", yesNo(sidecar.verified), yesNo(version.isVerified), problems);
    compare(version, "payloadName", sidecar.payloadName, version.payloadName, problems);
    // The sidecar keeps whole seconds.
    compare(version, "capturedAt", formatInstantSeconds(sidecar.capturedAt), formatInstantSeconds(version.capturedAt),
            problems);
    if (placed.folderID && placed.relativePath) {
        if (auto root = folderRoots_.find(*placed.folderID); root != folderRoots_.end())
            compare(version, "originalPath", sidecar.originalPath, joinPath(root->second, *placed.relativePath),
                    problems);
    }
}

}  // namespace vosklin

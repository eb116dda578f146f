#include "store/PayloadCloner.h"

#include <cerrno>
#include <chrono>
#include <memory>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/RegularFile.h"
#include "store/CloneError.h"
#include "store/ReadCoordinator.h"

namespace vosklin {
namespace {

// The answers by which a file system says it cannot share blocks here.
bool cloneRefused(int error) {
    return error == EOPNOTSUPP || error == ENOTTY || error == EXDEV || error == EINVAL || error == ETXTBSY ||
           error == ENOSYS || error == EPERM;
}

// Attributes a copy may legitimately fail to carry (a file system without
// them, or a namespace only the kernel or root may write).
bool attributeRefused(int error) { return error == ENOTSUP || error == EPERM || error == EACCES || error == E2BIG; }

double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

PayloadCloner::PayloadCloner(FileSystem& fileSystem, Clock& clock, Logger& logger)
    : fileSystem_(fileSystem), clock_(clock), logger_(logger) {}

CloneOutcome PayloadCloner::clone(const std::string& source, const std::string& destination, std::stop_token stop) {
    auto sourceStatus = fileSystem_.linkStatus(source);
    if (!sourceStatus || !(sourceStatus->isRegular() || sourceStatus->isDirectory()))
        throw CloneError::sourceMissing(source);
    ReadCoordinator coordinator(fileSystem_, clock_, logger_);
    try {
        const double start = monotonicSeconds();
        CloneOutcome outcome;
        if (sourceStatus->isDirectory()) {
            if (!fileSystem_.makeDirectory(destination, 0700)) throw CloneError::destinationExists(destination);
            copyDirectory(source, destination, sourceStatus->device, coordinator, stop);
            outcome.method = CloneMethod::unknown;
        } else {
            auto cloned = copyFile(source, *sourceStatus, destination, coordinator, stop);
            if (!cloned) throw CloneError::sourceMissing(source);
            outcome.method = *cloned ? CloneMethod::cloned : CloneMethod::copied;
        }
        outcome.elapsed = monotonicSeconds() - start;
        return outcome;
    } catch (const FileSystemError& error) {
        if (error.errorNumber() == EEXIST && error.path() == destination) throw CloneError::destinationExists(destination);
        // The destination did not exist before this call, so whatever is there now is ours.
        try {
            removeAll(fileSystem_, destination);
        } catch (const FileSystemError&) {
            // The copy's own failure is the one to report.
        }
        if (error.errorNumber() == ECANCELED) throw CloneError::cancelled(source);
        // Said of the side that failed: a destination in a missing folder is not the store's fault.
        std::string below;
        if (error.path() == destination || relativeTo(destination, error.path(), below))
            throw CloneError::cannotWrite(error.errorNumber(), destination);
        throw CloneError::failed(error.errorNumber(), source);
    }
}

std::optional<bool> PayloadCloner::copyFile(const std::string& source, const FileStatus& expected,
                                            const std::string& destination, ReadCoordinator& coordinator,
                                            std::stop_token stop) {
    auto opened = openRegularFile(fileSystem_, source, &expected);
    if (!opened) return std::nullopt;
    UniqueFd input = std::move(opened->fd);
    const FileStatus& status = opened->status;
    coordinator.coordinate(input.get());
    UniqueFd output = fileSystem_.createExclusive(destination, 0600);
    bool cloned = true;
    try {
        fileSystem_.cloneFile(input.get(), output.get(), destination);
    } catch (const FileSystemError& error) {
        if (!cloneRefused(error.errorNumber())) throw;
        cloned = false;
        copyInChunks(input.get(), output.get(), destination, stop);
    }
    copyAttributes(input.get(), output.get());
    fileSystem_.setMode(output.get(), status.mode);
    fileSystem_.setTimes(output.get(), status.accessed, status.modified);
    return cloned;
}

void PayloadCloner::copyDirectory(const std::string& source, const std::string& destination, dev_t device,
                                  ReadCoordinator& coordinator, std::stop_token stop) {
    for (const auto& entry : fileSystem_.listDirectory(source)) {
        if (stop.stop_requested()) throw FileSystemError(ECANCELED, "copy", destination);
        const std::string from = joinPath(source, entry.name);
        const std::string to = joinPath(destination, entry.name);
        auto status = fileSystem_.linkStatus(from);
        if (!status) continue;                      // gone since the listing
        if (status->device != device) continue;     // never cross into another file system
        if (status->isDirectory()) {
            fileSystem_.makeDirectory(to, 0700);
            copyDirectory(from, to, device, coordinator, stop);
            UniqueFd input = fileSystem_.openForReading(from);
            UniqueFd output = fileSystem_.openForReading(to);
            copyAttributes(input.get(), output.get());
            fileSystem_.setMode(output.get(), status->mode);
            fileSystem_.setTimes(output.get(), status->accessed, status->modified);
        } else if (status->isRegular()) {
            copyFile(from, *status, to, coordinator, stop);  // replaced by a pipe or the like meanwhile: left out
        } else if (status->isSymlink()) {
            fileSystem_.makeSymlink(fileSystem_.readLink(from), to);
            fileSystem_.setLinkTimes(to, status->accessed, status->modified);
        }
        // Sockets, pipes and devices are not document content and are left out.
    }
    auto own = fileSystem_.linkStatus(source);
    UniqueFd input = fileSystem_.openForReading(source);
    UniqueFd output = fileSystem_.openForReading(destination);
    copyAttributes(input.get(), output.get());
    if (own) {
        fileSystem_.setMode(output.get(), own->mode);
        fileSystem_.setTimes(output.get(), own->accessed, own->modified);
    }
}

void PayloadCloner::copyInChunks(int input, int output, const std::string& destination, std::stop_token stop) {
    for (std::uint64_t copied = 0;;) {
        // Asked once a whole chunk is copied: a file smaller than one always finishes.
        if (copied >= chunkSize && stop.stop_requested()) throw FileSystemError(ECANCELED, "copy", destination);
        const std::uint64_t count = fileSystem_.copyContents(input, output, chunkSize, destination);
        if (count == 0) return;
        copied += count;
    }
}

void PayloadCloner::copyAttributes(int source, int destination) {
    for (const auto& name : fileSystem_.attributeNames(source)) {
        auto value = fileSystem_.attribute(source, name);
        if (!value) continue;
        try {
            fileSystem_.setAttribute(destination, name, *value);
        } catch (const FileSystemError& error) {
            if (!attributeRefused(error.errorNumber())) throw;
        }
    }
}

}  // namespace vosklin

#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Logger.h"
#include "store/CloneOutcome.h"

namespace vosklin {

// Copies a file or a package directory into the store, sharing blocks where
// the file system can.
//
// A file is created with O_EXCL and cloned with FICLONE (method `cloned`);
// where the file system refuses a clone it is copied in 1 MiB chunks (method `copied`). A
// directory is copied recursively without crossing into another file system
// (method `unknown`), its files cloned where possible. Mode, timestamps and
// extended attributes (ACLs included) travel with the data. The copy is not
// synced here: capture makes a whole batch of payloads durable with one
// syncfs before recording them, which costs one journal commit instead of one
// per file. Reads are coordinated (ReadCoordinator).
//
// Only regular files and directories are ever opened, and a file is opened
// without blocking and checked after the open to be the very regular file
// looked at before: a named pipe, socket or device (even one swapped in
// meanwhile) is never read. Inside a package such items are left out.
//
// `stop` is looked at between 1 MiB chunks of a copy (a file smaller than a
// chunk always finishes) and between the items of a package; a FICLONE is one
// call and always finishes.
//
// Failure: CloneError::sourceMissing when nothing, or nothing but a pipe,
// socket or device, is at the source; destinationExists when something is at
// the destination (left alone); cancelled when stopped; failed(errno)
// otherwise. Every failure but destinationExists removes what this call created.
class PayloadCloner {
public:
    static constexpr std::size_t chunkSize = 1 << 20;

    PayloadCloner(FileSystem& fileSystem, Clock& clock, Logger& logger);

    CloneOutcome clone(const std::string& source, const std::string& destination, std::stop_token stop = {});

private:
    // Copies the regular file `expected` describes into a new file; returns
    // whether it was cloned, or nothing (and creates nothing) when what is at
    // `source` now is not that file.
    std::optional<bool> copyFile(const std::string& source, const FileStatus& expected, const std::string& destination,
                                 class ReadCoordinator& coordinator, std::stop_token stop);
    void copyDirectory(const std::string& source, const std::string& destination, dev_t device,
                       ReadCoordinator& coordinator, std::stop_token stop);
    // In chunks of `chunkSize` (in the kernel where it can), looking at `stop` between them.
    void copyInChunks(int input, int output, const std::string& destination, std::stop_token stop);
    void copyAttributes(int source, int destination);

    FileSystem& fileSystem_;
    Clock& clock_;
    Logger& logger_;
};

}  // namespace vosklin

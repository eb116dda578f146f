#pragma once

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
// where the file system refuses a clone it is copied (method `copied`). A
// directory is copied recursively without crossing into another file system
// (method `unknown`), its files cloned where possible. Mode, timestamps and
// extended attributes (ACLs included) travel with the data. The copy is not
// synced here: capture makes a whole batch of payloads durable with one
// syncfs before recording them, which costs one journal commit instead of one
// per file. Reads are coordinated (ReadCoordinator).
//
// Failure: CloneError::sourceMissing when nothing is at the source,
// destinationExists when something is at the destination (left alone),
// failed(errno) otherwise, after removing whatever this call created.
class PayloadCloner {
public:
    PayloadCloner(FileSystem& fileSystem, Clock& clock, Logger& logger);

    CloneOutcome clone(const std::string& source, const std::string& destination);

private:
    // Copies one regular file into a new file; returns whether it was cloned.
    bool copyFile(const std::string& source, const std::string& destination, class ReadCoordinator& coordinator);
    void copyDirectory(const std::string& source, const std::string& destination, dev_t device,
                       ReadCoordinator& coordinator);
    void copyAttributes(int source, int destination);

    FileSystem& fileSystem_;
    Clock& clock_;
    Logger& logger_;
};

}  // namespace vosklin

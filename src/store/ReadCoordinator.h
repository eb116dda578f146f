#pragma once

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Logger.h"

namespace vosklin {

// A courtesy to applications that lock the files they write: before a copy
// reads a file, take a shared advisory lock on the descriptor it reads from,
// retrying for up to one second in all. When the lock cannot be had, log it and
// copy anyway (once per instance); coordination is never a reason to miss a version.
//
// One instance serves one clone (its one-second budget spans all the files of a
// package). The lock is released when the descriptor closes.
class ReadCoordinator {
public:
    ReadCoordinator(FileSystem& fileSystem, Clock& clock, Logger& logger, double budgetSeconds = 1.0);

    // Returns whether the shared lock was taken.
    bool coordinate(int fd);

private:
    FileSystem& fileSystem_;
    Clock& clock_;
    Logger& logger_;
    double deadline_;
    bool declineLogged_ = false;
};

}  // namespace vosklin

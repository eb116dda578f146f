#include "store/ReadCoordinator.h"

#include <cerrno>

#include "platform/FileSystemError.h"

namespace vosklin {

ReadCoordinator::ReadCoordinator(FileSystem& fileSystem, Clock& clock, Logger& logger, double budgetSeconds)
    : fileSystem_(fileSystem), clock_(clock), logger_(logger), deadline_(clock.now() + budgetSeconds) {}

bool ReadCoordinator::coordinate(int fd) {
    long code = EWOULDBLOCK;
    try {
        for (;;) {
            if (fileSystem_.tryLockShared(fd)) return true;
            if (clock_.now() >= deadline_) break;
            clock_.sleepFor(0.02);
        }
    } catch (const FileSystemError& error) {
        code = error.errorNumber();
    }
    if (!declineLogged_) logger_.info("File coordination declined (" + std::to_string(code) + "); cloning uncoordinated");
    declineLogged_ = true;
    return false;
}

}  // namespace vosklin

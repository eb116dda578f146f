#pragma once

#include <string>

#include "platform/UniqueFd.h"

namespace vosklin {

// An advisory lock (flock) on a lock file, shared or exclusive, held until
// destroyed. Each instance opens the file itself, so two instances conflict
// even in one process. Move-only. Opening failures are thrown as FileSystemError.
class FileLock {
public:
    enum class Mode { shared, exclusive };
    // Waits as long as it takes.
    static FileLock acquire(const std::string& path, Mode mode);
    // Gives up after `seconds` (polling); an unheld lock when it did.
    static FileLock tryAcquire(const std::string& path, Mode mode, double seconds);
    bool held() const { return static_cast<bool>(fd_); }

private:
    explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}
    UniqueFd fd_;  // closing it releases the lock
};

}  // namespace vosklin

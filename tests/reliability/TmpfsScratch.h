#pragma once

#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace vosklin::test {

// While it lives, temporary folders of this process go to /dev/shm. The kills
// and injected faults of the in-process tests exercise recovery, not the
// disk's durability, and on a shared disk every syncfs waits for everyone's
// dirty pages (seconds per run); on tmpfs it returns at once. A TMPDIR given
// by the caller wins. Not for a daemon: it refuses to watch under /dev.
class TmpfsScratch {
public:
    TmpfsScratch() {
        if (!std::getenv("TMPDIR") && ::access("/dev/shm", W_OK) == 0) {
            ::setenv("TMPDIR", "/dev/shm", 1);
            set_ = true;
        }
    }
    ~TmpfsScratch() {
        if (set_) ::unsetenv("TMPDIR");
    }
    TmpfsScratch(const TmpfsScratch&) = delete;
    TmpfsScratch& operator=(const TmpfsScratch&) = delete;

private:
    bool set_ = false;
};

}  // namespace vosklin::test

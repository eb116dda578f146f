#include "platform/IoPriority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vosklin::IoPriority {

namespace {
// From the kernel's ioprio interface; glibc has no wrapper or header for it.
constexpr int whoProcess = 1;  // IOPRIO_WHO_PROCESS: with id 0, the calling thread
constexpr int classIdle = 3;   // IOPRIO_CLASS_IDLE
constexpr int classShift = 13;
}  // namespace

void makeThisThreadIdle() {
    ::syscall(SYS_ioprio_set, whoProcess, 0, classIdle << classShift);
    // setpriority on a thread id moves that thread alone.
    ::setpriority(PRIO_PROCESS, ::gettid(), 19);
}

}  // namespace vosklin::IoPriority

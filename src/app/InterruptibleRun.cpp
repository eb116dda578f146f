#include "app/InterruptibleRun.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <ctime>
#include <exception>
#include <thread>

namespace vosklin {

void runInterruptible(const std::function<void()>& work, const std::function<void()>& onInterrupt) {
    sigset_t signals, previous;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &previous);  // the worker inherits the mask

    std::atomic<bool> finished{false};
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        finished = true;
    });
    bool interrupted = false;
    const timespec tick{0, 100'000'000};
    while (!finished) {
        if (sigtimedwait(&signals, nullptr, &tick) > 0 && !interrupted) {
            interrupted = true;
            onInterrupt();
        }
    }
    worker.join();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (failure) std::rethrow_exception(failure);
}

}  // namespace vosklin

#pragma once

#include <functional>

namespace vosklin {

// Runs `work` on a worker thread while this thread waits for SIGINT or
// SIGTERM; the first such signal calls `onInterrupt` (which should ask the
// work to stop) and the work is then awaited. Exceptions from `work` are
// rethrown here. Lets Ctrl-C stop a long scan between two files instead of
// killing it in the middle of one.
void runInterruptible(const std::function<void()>& work, const std::function<void()>& onInterrupt);

}  // namespace vosklin

#include "platform/Clock.h"

#include <chrono>
#include <thread>

namespace vosklin {

double SystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

void SystemClock::sleepFor(double seconds) {
    if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace vosklin

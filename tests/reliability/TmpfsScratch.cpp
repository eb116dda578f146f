// Where this binary's temporary folders go. The kills and injected faults here
// exercise recovery, not the disk's durability, and on a shared disk every
// syncfs waits for everyone's dirty pages (seconds per run); on tmpfs it
// returns at once. A TMPDIR given by the caller wins.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace vosklin {
namespace {

class TmpfsScratch : public ::testing::Environment {
public:
    void SetUp() override {
        if (!std::getenv("TMPDIR") && ::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 0);
    }
};

[[maybe_unused]] ::testing::Environment* const registered = ::testing::AddGlobalTestEnvironment(new TmpfsScratch);

}  // namespace
}  // namespace vosklin

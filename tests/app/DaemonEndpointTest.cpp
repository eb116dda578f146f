// Finding the daemon of a home: the single-instance lock and the look-up that
// every command makes before deciding whether to go through a daemon.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "app/DaemonEndpoint.h"
#include "platform/PosixFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

TEST(DaemonEndpointTest, OneHolderAtATimeAndTheLookUpFollowsIt) {
    test::TempDirectory home;
    PosixFileSystem fileSystem;
    EXPECT_FALSE(DaemonEndpoint::find(fileSystem, home.path())) << "no daemon has ever run here";

    DaemonEndpoint endpoint{4242, home.path() + "/run/daemon.sock", 5555, DaemonEndpoint::makeToken()};
    {
        auto held = DaemonEndpoint::lock(fileSystem, home.path());
        ASSERT_TRUE(held);
        EXPECT_FALSE(DaemonEndpoint::lock(fileSystem, home.path())) << "a second daemon of one home is refused";
        endpoint.publish(fileSystem, home.path());
        auto found = DaemonEndpoint::find(fileSystem, home.path());
        ASSERT_TRUE(found);
        EXPECT_EQ(found->port, 5555);
        EXPECT_EQ(found->socketPath, endpoint.socketPath);
        EXPECT_EQ(found->token, endpoint.token);
    }
    // Its files outlive it (a crash), but the lock went with it.
    EXPECT_FALSE(DaemonEndpoint::find(fileSystem, home.path()));
}

// Commands look for a daemon all the time (settle polls; a file manager or a status
// applet asks at login): a look-up at the very instant a daemon starts must not make
// it refuse to start.
TEST(DaemonEndpointTest, LookingForADaemonNeverStopsOneFromStarting) {
    test::TempDirectory home;
    PosixFileSystem fileSystem;
    std::atomic<bool> done{false};
    std::thread lookUps([&] {
        while (!done) DaemonEndpoint::find(fileSystem, home.path());
    });
    int refused = 0;
    for (int attempt = 0; attempt < 3000; ++attempt) {
        auto held = DaemonEndpoint::lock(fileSystem, home.path());
        if (!held) ++refused;
    }
    done = true;
    lookUps.join();
    EXPECT_EQ(refused, 0) << "a start was refused while nothing but look-ups ran";
}

}  // namespace
}  // namespace vosklin

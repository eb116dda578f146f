// The daemon end to end with what can hold a reader up: named pipes, sockets
// and devices in a watched folder, a file another program keeps locked while
// it is captured, and a stop in the middle of a capture. Whatever is in a
// folder, the daemon keeps answering and stops when told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/LiveDaemonTest.h"
#include "support/DaemonProcess.h"
#include "support/SpecialFiles.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::DaemonProcess;

class SpecialFilesTest : public test::LiveDaemonTest {
protected:
    json daemonStats() { return jsonOf({"status"})["daemon"].value("stats", json::object()); }
    // The slot directories in the store (versions/<low byte>/<file id>/<slot>).
    std::vector<fs::path> slots() {
        std::vector<fs::path> found;
        const fs::path versions = home / "store/versions";
        if (!fs::exists(versions)) return found;
        for (const auto& entry : fs::recursive_directory_iterator(versions)) {
            const fs::path relative = fs::relative(entry.path(), versions);
            if (entry.is_directory() && std::distance(relative.begin(), relative.end()) == 3)
                found.push_back(entry.path());
        }
        return found;
    }
};

TEST_F(SpecialFilesTest, PipesSocketsAndDevicesNeitherHoldTheDaemonNorGetHistory) {
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    std::vector<std::string> made;
    for (auto kind : test::allSpecialFiles()) {
        const std::string path = root + "/special-" + std::to_string(int(kind));
        std::string whyNot;
        if (test::makeSpecialFile(kind, path, whyNot)) made.push_back(path);
        else std::printf("skipped: %s\n", whyNot.c_str());
    }
    watched.write("saved.txt", "saved after them");
    settle();
    EXPECT_EQ(versionsOf(root + "/saved.txt").size(), 1u);
    for (const auto& path : made) expectNoHistory(path);
    EXPECT_GE(daemonStats().value("skipped", 0), std::int64_t(made.size()));
    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
}

// diff reads a file given on the command line: a pipe there is refused, not waited on.
TEST_F(SpecialFilesTest, DiffRefusesAPipeInsteadOfWaitingOnIt) {
    const std::string text = watched.write("text.txt", "one line\n");
    const std::string pipe = root + "/pipe";
    std::string whyNot;
    ASSERT_TRUE(test::makeSpecialFile(test::SpecialFile::namedPipe, pipe, whyNot)) << whyNot;
    // A writer that answers whoever opens the pipe, so that a reader that did open it would not hang the test.
    std::thread writer([&] {
        int fd = ::open(pipe.c_str(), O_WRONLY);
        if (fd < 0) return;
        [[maybe_unused]] auto written = ::write(fd, "one line\n", 9);
        ::close(fd);
    });
    auto result = vosklin({"diff", pipe, text});
    int unblock = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);  // lets the writer's open return
    writer.join();
    ::close(unblock);
    expectRefused(result, "is not a regular file");
}

// Another program holds the file locked, so its capture waits a second for the
// lock before copying anyway: status must answer meanwhile, and a stop must end
// the capture rather than wait for it, leaving no partial slot behind.
TEST_F(SpecialFilesTest, StatusAnswersAndAStopEndsTheCaptureInProgress) {
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    ASSERT_EQ(vosklin({"settle", "--timeout", "20"}).exitStatus, 0);
    const auto slotsBefore = slots().size();
    const auto storedBefore = daemonStats().value("stored", std::int64_t(-1));

    // Locked before it is written, by a descriptor that stays open after the writer closes it.
    const std::string large = root + "/large.bin";
    int writer = ::open(large.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(writer, 0);
    int fd = ::open(large.c_str(), O_RDONLY);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    const std::string chunk(1 << 20, 'L');
    // Large enough that the copy after the wait takes a while too: the stop lands inside it.
    for (int i = 0; i < 256; ++i) ASSERT_EQ(::write(writer, chunk.data(), chunk.size()), ssize_t(chunk.size()));
    ::close(writer);

    // The capture has begun once its slot exists (the copy then waits for the lock).
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (slots().size() == slotsBefore && std::chrono::steady_clock::now() < giveUp)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_GT(slots().size(), slotsBefore) << "the capture never started: " << daemon.standardError();

    auto stats = daemonStats();
    EXPECT_GE(stats.value("pending", 0), 1) << "a capture in progress is pending: " << stats.dump();
    EXPECT_EQ(stats.value("stored", std::int64_t(-1)), storedBefore)
        << "status answered only once the capture had finished: " << stats.dump();

    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
    ::close(fd);
    EXPECT_EQ(slots().size(), slotsBefore) << "the stopped capture's slot is removed";
    EXPECT_TRUE(versionsOf(large).empty()) << "stopped, not captured";
}

}  // namespace
}  // namespace vosklin

// The daemon's two doors, the Unix socket of the command line and the loopback
// port of the browser, against hostile neighbours and hostile bodies.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <httplib.h>

#include "app/ApiHandlers.h"
#include "app/AppContext.h"
#include "app/LiveDaemonTest.h"
#include "app/LocalApiServer.h"
#include "app/LocalSocketServer.h"
#include "platform/UnixSocket.h"
#include "support/DaemonProcess.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

using namespace std::chrono_literals;
constexpr uid_t nobody = 65534;

// Runs `body` in a child process as another user (nobody); its return value is the exit status.
// Only system calls run in the child: everything it needs is prepared before the fork.
pid_t spawnAsStranger(const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) ::_exit(90);
        ::_exit(body());
    }
    return pid;
}

int exitStatusOf(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int connectTcp(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(std::uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// A request that never finishes arriving: a header line every 200 ms for up to a minute.
// 0 when the server refused it with 403, 4 when it cut it off otherwise (closed, or
// answered without waiting for the rest), 1 when it was still listening at the end, 2 when
// it could not connect. `ready` gets a byte once the first line is out.
int trickle(int fd, int ready) {
    if (fd < 0) return 2;
    const char start[] = "POST /v1/status HTTP/1.1\r\n";
    (void)!::send(fd, start, sizeof start - 1, MSG_NOSIGNAL);
    if (ready >= 0) (void)!::write(ready, "r", 1);
    for (int line = 0; line < 300; ++line) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 200) > 0) {
            char answer[13] = {};
            return ::recv(fd, answer, 12, 0) == 12 && std::strcmp(answer, "HTTP/1.1 403") == 0 ? 0 : 4;
        }
        const char header[] = "X-Slow: 1\r\n";
        if (::send(fd, header, sizeof header - 1, MSG_NOSIGNAL) < 0) return 4;
    }
    return 1;
}

class LocalApiTest : public test::LiveDaemonTest {};

// Strangers are turned away at the door: the socket's folder cannot be entered, and the
// port closes on them before reading a byte. Meanwhile the owner's commands, and the
// owner's own slow connections, hold no one up.
TEST_F(LocalApiTest, StrangersAreTurnedAwayAndSlowClientsHoldNoOneUp) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    test::writeFile(watched / "a.txt", "one");
    test::DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    ASSERT_FALSE(daemon.socketPath().empty());

    const std::string socketPath = daemon.socketPath();
    auto strangerConnects = spawnAsStranger([&] {
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return 1;
        return errno == EACCES ? 0 : 3;
    });
    EXPECT_EQ(exitStatusOf(strangerConnects), 0) << "another user could open the daemon's socket";

    // Twenty strangers trickle requests to the port: more than any pool of threads.
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const int port = daemon.port();
    std::vector<pid_t> strangers;
    for (int i = 0; i < 20; ++i)
        strangers.push_back(spawnAsStranger([&] { return trickle(connectTcp(port), ready[1]); }));
    ::close(ready[1]);
    char byte;
    for (std::size_t i = 0; i < strangers.size(); ++i) ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);

    // The owner's own half-sent requests on the socket do not stop the next command either.
    std::vector<UnixSocket> ownSlow;
    for (int i = 0; i < 8; ++i) {
        ownSlow.push_back(UnixSocket::connect(socketPath));
        ownSlow.back().writeAll("sta", std::chrono::steady_clock::now() + 1s);
    }
    test::writeFile(watched / "b.txt", "two");
    succeeds({"scan", root});
    EXPECT_EQ(versionsOf(root + "/b.txt").size(), 1u);
    EXPECT_EQ(jsonOf({"status"})["daemon"]["running"], true);

    // And the browser's door still answers its owner.
    httplib::Client browser("127.0.0.1", port);
    auto answer = browser.Post("/v1/status", {{"Authorization", "Bearer " + daemon.token()}}, "{}",
                               "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);

    for (pid_t pid : strangers) EXPECT_EQ(exitStatusOf(pid), 0) << "a stranger was not turned away at once";
}

// Every route, every malformed body: a 4xx with a message of ours, never a 500 or the
// JSON library's own words, and the daemon goes on answering.
TEST_F(LocalApiTest, MalformedBodiesAreRefusedWithoutHarm) {
    test::DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    const std::string folder = nlohmann::json(root).dump();
    const std::vector<std::string> bodies = {
        "null", "[]", "42", "\"text\"", "{", "{\"folder\":", "{\"folder\": \"\\ud800\"}",
        std::string(100000, '[') + std::string(100000, ']'),
        "{\"a\":" + std::string(5000, '{') + std::string(5000, '}') + "}",
        R"({"folder": 5})", R"({"folder": ["x"]})", R"({"folder": {"a": 1}})", R"({"folderBytes": "zz"})",
        R"({"folderBytes": 7})", R"({"folder": "/no/such/folder"})",
        R"({"timeout": "x"})", R"({"timeout": 1e300})", R"({"timeout": -1})",
        R"({"version": "x"})", R"({"version": 1e300})", R"({"version": 18446744073709551615})",
        R"({"version": -9223372036854775808})", R"({"version": true})", R"({"version": "99999999999999999999"})",
        R"({"version": "2-9223372036854775808"})",
        R"({"version": 1, "inPlace": "yes"})", R"({"previous": 5})", R"({"previous": "/nowhere/x"})",
        "{\"folder\": " + folder + ", \"moment\": 5}",
        "{\"folder\": " + folder + ", \"moment\": \"x\", \"name\": {\"x\": 1}}",
        "{\"folder\": " + folder + ", \"target\": \"x\"}",
        "{\"folder\": " + folder + ", \"target\": 1e300}",
        "{\"folder\": " + folder + ", \"target\": -5}",
        "{\"folder\": " + folder + ", \"target\": [1]}",
        "{\"folder\": " + folder + ", \"target\": 1, \"planFingerprint\": 5}",
    };
    const std::vector<std::string> routes = {"status", "snapshot", "scan",    "settle",  "name",  "unname",
                                             "star",   "unstar",   "restore", "rewind",  "nonsense"};
    for (const auto& route : routes) {
        for (const auto& body : bodies) {
            auto socket = UnixSocket::connect(daemon.socketPath());
            ASSERT_TRUE(socket.writeAll(route + " " + body + "\n", std::chrono::steady_clock::now() + 10s));
            std::string line;
            ASSERT_EQ(socket.readLine(line, 1 << 20, std::chrono::steady_clock::now() + 60s),
                      UnixSocket::ReadResult::line)
                << route << " " << body.substr(0, 60);
            auto answer = nlohmann::json::parse(line, nullptr, false);
            ASSERT_TRUE(answer.is_object()) << line;
            const int status = answer.value("status", 0);
            const std::string error = answer.value("error", "");
            EXPECT_TRUE(status == 200 || (status >= 400 && status < 500))
                << route << " " << body.substr(0, 60) << " -> " << line;
            EXPECT_EQ(error.find("json.exception"), std::string::npos) << route << " " << body.substr(0, 60);
        }
    }
    // The fields named in the refusal, for a few that used to escape as the library's exceptions.
    for (const auto& [route, body, field] : std::vector<std::tuple<std::string, std::string, std::string>>{
             {"settle", R"({"timeout": "x"})", "\"timeout\""},
             {"star", R"({"version": 1e300})", "\"version\""},
             {"restore", R"({"version": 1, "inPlace": "yes"})", "\"inPlace\""},
             {"rewind", "{\"folder\": " + folder + ", \"target\": 1e300}", "\"target\""}}) {
        auto socket = UnixSocket::connect(daemon.socketPath());
        socket.writeAll(route + " " + body + "\n", std::chrono::steady_clock::now() + 10s);
        std::string line;
        socket.readLine(line, 1 << 20, std::chrono::steady_clock::now() + 60s);
        auto answer = nlohmann::json::parse(line, nullptr, false);
        EXPECT_EQ(answer.value("status", 0), 400) << route << ": " << line;
        EXPECT_NE(answer.value("error", "").find(field), std::string::npos) << route << ": " << line;
    }
    EXPECT_TRUE(daemon.isRunning());
    EXPECT_EQ(jsonOf({"status"})["daemon"]["running"], true);
}

// The limits themselves, with short ones: a request trickling in is cut off at its
// deadline on either door, and connections beyond the bound are turned away at once.
class ServerLimitsTest : public ::testing::Test {
protected:
    test::TempDirectory home;
    test::RecordingLogger logger;
    AppContext context{home.path(), logger};
    ApiHandlers handlers{context, nullptr};
};

TEST_F(ServerLimitsTest, ARequestTricklingInIsCutOffAtItsDeadline) {
    LocalSocketServer socketServer(handlers, home.path() + "/run/daemon.sock", {300ms, 1 << 20, 2});
    socketServer.start();
    LocalApiServer portServer(handlers, "token", {300ms, 1000ms, 2, 1 << 20});
    const int port = portServer.start();

    EXPECT_EQ(trickle(connectTcp(port), -1), 4) << "the port let a request trickle in for a minute";
    auto slow = UnixSocket::connect(socketServer.path());
    slow.writeAll("status {", std::chrono::steady_clock::now() + 1s);
    std::string line;
    ASSERT_EQ(slow.readLine(line, 1 << 20, std::chrono::steady_clock::now() + 60s), UnixSocket::ReadResult::line);
    EXPECT_EQ(nlohmann::json::parse(line).value("status", 0), 408) << line;
}

TEST_F(ServerLimitsTest, ConnectionsBeyondTheBoundAreTurnedAwayNotQueued) {
    LocalSocketServer socketServer(handlers, home.path() + "/run/daemon.sock", {60s, 1 << 20, 2});
    socketServer.start();
    LocalApiServer portServer(handlers, "token", {60s, 1000ms, 2, 1 << 20});
    const int port = portServer.start();

    // Connections are taken in the order they came, so the two held ones fill the bound
    // before the third is looked at.
    std::vector<UnixSocket> held;
    for (int i = 0; i < 2; ++i) held.push_back(UnixSocket::connect(socketServer.path()));
    auto third = UnixSocket::connect(socketServer.path());
    std::string line;
    ASSERT_EQ(third.readLine(line, 1 << 20, std::chrono::steady_clock::now() + 60s), UnixSocket::ReadResult::line);
    EXPECT_EQ(nlohmann::json::parse(line).value("status", 0), 503) << line;

    std::vector<int> heldTcp = {connectTcp(port), connectTcp(port)};
    const int thirdTcp = connectTcp(port);
    char answer[64] = {};
    ASSERT_GT(::recv(thirdTcp, answer, sizeof answer - 1, 0), 0);
    EXPECT_EQ(std::string(answer).substr(0, 12), "HTTP/1.1 503");
    for (int fd : heldTcp) ::close(fd);
    ::close(thirdTcp);
    for (auto& socket : held) socket.shutdown();
}

}  // namespace
}  // namespace vosklin

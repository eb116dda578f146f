// The window's HTTP door against a real daemon: who gets in, what every answer
// carries, how untrusted bytes are served, the event stream, and `vosklin ui`.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "app/ApiHandlers.h"
#include "app/AppContext.h"
#include "app/ChangeFeed.h"
#include "app/LiveDaemonTest.h"
#include "app/LocalApiServer.h"
#include "support/DaemonProcess.h"
#include "support/ManualClock.h"
#include "support/MinimalPdf.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string pagePolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src 'self'; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'self'; object-src 'none'";

// The headers every answer must carry, and the ones none may.
void expectProtected(const httplib::Response& response, const std::string& what, bool untrusted = false) {
    EXPECT_EQ(response.get_header_value("Content-Security-Policy"), untrusted ? "sandbox" : pagePolicy) << what;
    EXPECT_EQ(response.get_header_value_count("Content-Security-Policy"), 1u) << what;
    EXPECT_EQ(response.get_header_value("X-Content-Type-Options"), "nosniff") << what;
    EXPECT_EQ(response.get_header_value("Referrer-Policy"), "no-referrer") << what;
    EXPECT_EQ(response.get_header_value("Cache-Control"), "no-store") << what;
    for (const auto& [name, value] : response.headers)
        EXPECT_FALSE(name.starts_with("Access-Control-") || name.starts_with("access-control-")) << what << ": " << name;
}

// The session cookie ("vosklin_session=...") a login answer sets, or empty.
std::string sessionOf(const httplib::Result& login) {
    if (!login || login->status != 303) return "";
    const std::string cookie = login->get_header_value("Set-Cookie");
    return cookie.substr(0, cookie.find(';'));
}

// A plain socket to the port, for what the HTTP client cannot do (read a stream as it comes).
class RawConnection {
public:
    explicit RawConnection(int port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(std::uint16_t(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawConnection() { ::close(fd_); }
    RawConnection(const RawConnection&) = delete;

    bool send(const std::string& text) {
        return connected_ && ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
    }
    // Reads until `wanted` has arrived `times` times (true) or the peer closed or 30 s passed (false).
    bool readUntil(const std::string& wanted, int times = 1) {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        const auto arrived = [&] {
            int count = 0;
            for (auto at = received_.find(wanted); at != std::string::npos; at = received_.find(wanted, at + 1)) ++count;
            return count >= times;
        };
        while (!arrived()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd entry{fd_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&entry, 1, int(left.count())) <= 0) return false;
            char buffer[4096];
            const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) return false;
            received_.append(buffer, std::size_t(got));
        }
        return true;
    }
    const std::string& received() const { return received_; }

private:
    int fd_;
    bool connected_ = false;
    std::string received_;
};

class WindowServerTest : public test::LiveDaemonTest {
protected:
    void SetUp() override {
        LiveDaemonTest::SetUp();
        ASSERT_TRUE(daemon.start());
        host = "127.0.0.1:" + std::to_string(daemon.port());
        cookie = sessionOf(client().Get("/login?code=" + newCode()));
        ASSERT_FALSE(cookie.empty());
    }

    httplib::Client client() {
        httplib::Client http("127.0.0.1", daemon.port());
        http.set_read_timeout(60, 0);
        return http;
    }
    // A code from `vosklin ui --no-open`: its one line is the login address.
    std::string newCode() {
        auto result = vosklin({"ui", "--no-open"});
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        const auto at = result.out.find("code=");
        return at == std::string::npos ? "" : result.out.substr(at + 5, 64);
    }
    httplib::Headers browser(bool csrf = true) {
        httplib::Headers headers = {{"Cookie", cookie}, {"Sec-Fetch-Site", "same-origin"}};
        if (csrf) headers.emplace("X-Vosklin-Request", "1");
        return headers;
    }
    httplib::Result get(const std::string& path) { return client().Get(path, browser()); }
    httplib::Result post(const std::string& name, const nlohmann::json& body) {
        return client().Post("/v1/" + name, browser(), body.dump(), "application/json");
    }
    std::string eventRequest(const std::string& withCookie) {
        return "GET /v1/events HTTP/1.1\r\nHost: " + host + "\r\nCookie: " + withCookie + "\r\n\r\n";
    }
    // The newest version of a file in the watched folder.
    nlohmann::json newest(const std::string& relative) {
        auto versions = versionsOf(root + "/" + relative);
        return versions.empty() ? nlohmann::json::object() : versions[0];
    }

    test::DaemonProcess daemon{home.path(), {root}};
    std::string host;
    std::string cookie;
};

TEST_F(WindowServerTest, EachRefusalAndEveryAnswerCarriesTheProtectiveHeaders) {
    const std::string token = "Bearer " + daemon.token();
    const std::string evilOrigin = "http://evil.example";
    const struct {
        const char* name;
        const char* method;
        std::string path;
        httplib::Headers headers;
        int status;
    } cases[] = {
        {"the window", "GET", "/", {{"Sec-Fetch-Site", "none"}}, 200},
        {"a missing asset", "GET", "/assets/nothing.js", {}, 404},
        {"the window by another name (DNS rebinding)", "GET", "/", {{"Host", "evil.example:" + std::to_string(daemon.port())}}, 403},
        {"a request by another name", "POST", "/v1/status", {{"Host", "evil.example"}, {"Authorization", token}}, 403},
        {"a cross-site page", "POST", "/v1/status", {{"Cookie", cookie}, {"X-Vosklin-Request", "1"}, {"Sec-Fetch-Site", "cross-site"}, {"Origin", evilOrigin}}, 403},
        {"another port of this machine", "POST", "/v1/status", {{"Cookie", cookie}, {"X-Vosklin-Request", "1"}, {"Sec-Fetch-Site", "same-site"}}, 403},
        {"no cookie, no token", "POST", "/v1/status", {{"X-Vosklin-Request", "1"}}, 401},
        {"a made-up cookie", "POST", "/v1/status", {{"Cookie", "vosklin_session=0123"}, {"X-Vosklin-Request", "1"}}, 401},
        {"a wrong token", "POST", "/v1/status", {{"Authorization", "Bearer 0123"}}, 401},
        {"a cookie without the request header", "POST", "/v1/status", {{"Cookie", cookie}, {"Origin", evilOrigin}}, 403},
        {"a cookie with it", "POST", "/v1/status", {{"Cookie", cookie}, {"X-Vosklin-Request", "1"}, {"Origin", evilOrigin}}, 200},
        {"the token", "POST", "/v1/status", {{"Authorization", token}}, 200},
        {"a request by GET", "GET", "/v1/status", {{"Cookie", cookie}}, 405},
        {"a login code asked for by a page", "POST", "/v1/logincode", {{"Cookie", cookie}, {"X-Vosklin-Request", "1"}}, 403},
        {"events without a session", "GET", "/v1/events", {}, 401},
        {"events from another site", "GET", "/v1/events", {{"Cookie", cookie}, {"Sec-Fetch-Site", "cross-site"}}, 403},
        {"a payload without a session", "GET", "/v1/payload/1", {}, 401},
        {"a PDF page without a session", "GET", "/v1/pdfpage/1/1", {}, 401},
        {"a version that is not there", "GET", "/v1/payload/999999", {{"Cookie", cookie}}, 404},
        {"an unknown request", "POST", "/v1/nonsense", {{"Authorization", token}}, 404},
        {"a made-up login code", "GET", "/login?code=0123", {}, 403},
        {"a login from another site", "GET", "/login?code=" + newCode(), {{"Sec-Fetch-Site", "cross-site"}}, 403},
    };
    for (const auto& c : cases) {
        auto answer = std::string(c.method) == "GET" ? client().Get(c.path, c.headers)
                                                     : client().Post(c.path, c.headers, "{}", "application/json");
        ASSERT_TRUE(answer) << c.name;
        EXPECT_EQ(answer->status, c.status) << c.name << ": " << answer->body;
        if (c.status != 200) {
            EXPECT_EQ(answer->body.find("\"daemon\""), std::string::npos) << c.name;
        }
        expectProtected(*answer, c.name);
    }

    // A code works once: the second login with it is refused with a page that says what to do.
    const std::string code = newCode();
    auto first = client().Get("/login?code=" + code, {{"Sec-Fetch-Site", "none"}});
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 303);
    EXPECT_EQ(first->get_header_value("Location"), "/");
    EXPECT_NE(first->get_header_value("Set-Cookie").find("; Path=/; HttpOnly; SameSite=Strict"), std::string::npos);
    expectProtected(*first, "a login");
    auto again = client().Get("/login?code=" + code);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->status, 403);
    EXPECT_EQ(again->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(again->body.find("vosklin ui"), std::string::npos);
    EXPECT_TRUE(sessionOf(again).empty());

    auto window = client().Get("/");
    ASSERT_TRUE(window);
    EXPECT_EQ(window->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(window->body.find("<html"), std::string::npos);
}

TEST_F(WindowServerTest, UntrustedBytesAreServedSandboxedAndNeverAsAPage) {
    const std::string page = "<html><script>fetch('/v1/status')</script></html>";
    const std::string picture = "<svg xmlns=\"http://www.w3.org/2000/svg\"><script>alert(1)</script></svg>";
    test::writeFile(watched / "page.html", page);
    test::writeFile(watched / "picture.svg", picture);
    test::writeFile(watched / "photo.JPG", "not really a photo");
    fs::create_directories(watched / "inner");
    test::writeFile(watched / "inner/linked.txt", "inside");
    test::writeFile(watched / "moved.txt", "inside too");
    settle();
    const struct {
        std::string relative;
        std::string bytes;
        std::string type;
    } files[] = {{"page.html", page, "application/octet-stream"},
                 {"picture.svg", picture, "image/svg+xml"},
                 {"photo.JPG", "not really a photo", "image/jpeg"}};
    for (const auto& file : files) {
        const auto version = newest(file.relative);
        const std::string fileID = std::to_string(version.value("fileID", 0));
        for (const std::string& path : {"/v1/payload/" + idOf(version), "/v1/live/" + fileID}) {
            auto answer = get(path);
            ASSERT_TRUE(answer) << path;
            EXPECT_EQ(answer->status, 200) << path << ": " << answer->body;
            EXPECT_EQ(answer->body, file.bytes) << path;
            EXPECT_EQ(answer->get_header_value("Content-Type"), file.type) << path;
            EXPECT_EQ(answer->get_header_value("Content-Disposition"), "attachment") << path;
            expectProtected(*answer, path, true);
        }
    }

    // A live file reached through a symbolic link, at its end or on the way, is not served.
    test::TempDirectory elsewhere;
    test::writeFile(elsewhere.path() + "/linked.txt", "outside");
    test::writeFile(elsewhere.path() + "/secret.txt", "outside");
    const auto inner = std::to_string(newest("inner/linked.txt").value("fileID", 0));
    const auto moved = std::to_string(newest("moved.txt").value("fileID", 0));
    fs::remove_all(watched / "inner");
    fs::create_directory_symlink(elsewhere.path(), watched / "inner");
    fs::remove(watched / "moved.txt");
    fs::create_symlink(elsewhere.path() + "/secret.txt", watched / "moved.txt");
    for (const auto& fileID : {inner, moved}) {
        auto answer = get("/v1/live/" + fileID);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 404) << fileID << ": " << answer->body;
        EXPECT_EQ(answer->body.find("outside"), std::string::npos);
        expectProtected(*answer, "a live file through a link");
    }
}

// PNG's header: the width is the big-endian number at bytes 16..19.
std::uint32_t pngWidth(const std::string& png) {
    if (png.size() < 24 || png.compare(1, 3, "PNG") != 0) return 0;
    std::uint32_t width = 0;
    for (int i = 16; i < 20; ++i) width = (width << 8) | static_cast<unsigned char>(png[std::size_t(i)]);
    return width;
}

TEST_F(WindowServerTest, PdfPagesAreRenderedToPicturesOfTheAskedWidth) {
    test::writeFile(watched / "report.pdf", test::pdf({{"First page"}, {"Second page", "with two lines"}}));
    test::writeFile(watched / "notes.txt", "not a PDF");
    settle();
    const auto version = newest("report.pdf");
    const std::string id = idOf(version);
    const std::string fileID = std::to_string(version.value("fileID", 0));

    auto info = post("pdfinfo", {{"version", version["id"]}});
    ASSERT_TRUE(info);
    EXPECT_EQ(info->status, 200) << info->body;
    EXPECT_EQ(nlohmann::json::parse(info->body, nullptr, false).value("pageCount", 0), 2);
    auto liveInfo = post("pdfinfo", {{"file", version["fileID"]}, {"live", true}});
    ASSERT_TRUE(liveInfo);
    EXPECT_EQ(nlohmann::json::parse(liveInfo->body, nullptr, false).value("pageCount", 0), 2) << liveInfo->body;
    auto notPdf = post("pdfinfo", {{"version", newest("notes.txt")["id"]}});
    ASSERT_TRUE(notPdf);
    EXPECT_EQ(notPdf->status, 415);

    const struct {
        std::string path;
        int status;
        std::uint32_t width;
    } cases[] = {
        {"/v1/pdfpage/" + id + "/1?width=300", 200, 300},
        {"/v1/pdfpage/" + id + "/2", 200, 800},
        {"/v1/pdfpage/live/" + fileID + "/2?width=2000", 200, 2000},
        {"/v1/pdfpage/" + id + "/3", 404, 0},
        {"/v1/pdfpage/" + id + "/1?width=99", 200, 100},
        {"/v1/pdfpage/" + id + "/1?width=999999", 200, 2000},
        {"/v1/pdfpage/" + id + "/1?width=wide", 400, 0},
        {"/v1/pdfpage/" + idOf(newest("notes.txt")) + "/1", 415, 0},
    };
    for (const auto& c : cases) {
        auto answer = get(c.path);
        ASSERT_TRUE(answer) << c.path;
        EXPECT_EQ(answer->status, c.status) << c.path << ": " << answer->body.substr(0, 200);
        if (c.status == 200) {
            EXPECT_EQ(answer->get_header_value("Content-Type"), "image/png") << c.path;
            EXPECT_EQ(pngWidth(answer->body), c.width) << c.path;
        }
        expectProtected(*answer, c.path, c.status == 200);
    }
}

TEST_F(WindowServerTest, TheEventStreamTellsOfCapturesAndChangesAndHoldsFewSlots) {
    RawConnection stream(daemon.port());
    ASSERT_TRUE(stream.send(eventRequest(cookie)));
    ASSERT_TRUE(stream.readUntil(": connected")) << stream.received();
    EXPECT_NE(stream.received().find("Content-Type: text/event-stream"), std::string::npos) << stream.received();
    EXPECT_NE(stream.received().find("Content-Security-Policy: default-src 'self'"), std::string::npos);

    test::writeFile(watched / "saved.txt", "a save");
    settle();
    EXPECT_TRUE(stream.readUntil("\"what\":\"captured\"")) << stream.received();
    const std::string folderID = jsonOf({"folder", "list"})[0]["id"];
    EXPECT_NE(stream.received().find("event: changed\ndata: {\"folderID\":\"" + folderID + "\""), std::string::npos)
        << stream.received();
    // The handlers' own changes, each announced once it is done.
    const struct {
        std::string name;
        nlohmann::json body;
        std::string event;
    } changes[] = {
        {"star", {{"version", newest("saved.txt")["id"]}}, R"("what":"history")"},
        {"folderpause", {{"folder", root}}, R"({"folderID":")" + folderID + R"(","what":"folders"})"},
        {"setting", {{"key", "vosklin.contentSearchDisabled"}, {"value", true}}, R"({"folderID":"","what":"settings"})"},
    };
    for (const auto& change : changes) {
        auto answer = post(change.name, change.body);
        ASSERT_TRUE(answer) << change.name;
        EXPECT_EQ(answer->status, 200) << change.name << ": " << answer->body;
        EXPECT_TRUE(stream.readUntil(change.event)) << change.name << ": " << stream.received();
    }

    // Streams are few, so requests always find a slot; one whose reader left gives its slot back.
    std::vector<std::unique_ptr<RawConnection>> more;
    for (int i = 0; i < 3; ++i) {
        more.push_back(std::make_unique<RawConnection>(daemon.port()));
        ASSERT_TRUE(more.back()->send(eventRequest(cookie)));
        ASSERT_TRUE(more.back()->readUntil(": connected"));
    }
    RawConnection fifth(daemon.port());
    ASSERT_TRUE(fifth.send(eventRequest(cookie)));
    ASSERT_TRUE(fifth.readUntil("\r\n\r\n"));
    EXPECT_EQ(fifth.received().substr(0, 12), "HTTP/1.1 503") << fifth.received();
    auto status = post("status", nlohmann::json::object());
    ASSERT_TRUE(status);
    EXPECT_EQ(status->status, 200);
    more.clear();
    bool reopened = false;
    for (int attempt = 0; attempt < 100 && !reopened; ++attempt) {
        RawConnection again(daemon.port());
        again.send(eventRequest(cookie));
        reopened = again.readUntil("\r\n\r\n") && again.received().starts_with("HTTP/1.1 200");
        if (!reopened) std::this_thread::sleep_for(100ms);  // the server notices a reader leave within half a second
    }
    EXPECT_TRUE(reopened) << "the slots of streams whose readers left were not given back";

    // The daemon stops promptly with a stream open, and the stream ends.
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(stream.readUntil("never sent"));
}

// `vosklin ui` with no daemon running starts one, and prints only the address.
TEST_F(WindowServerTest, TheUiCommandStartsTheDaemonAndPrintsOneLoginAddress) {
    EXPECT_EQ(daemon.stop(), 0);
    auto result = vosklin({"ui", "--no-open"});
    const int pid = jsonOf({"status"})["daemon"].value("pid", 0);
    // The daemon is no child of this process: it is stopped, and waited for, by its pid.
    struct Stopper {
        int pid;
        ~Stopper() {
            if (pid <= 0 || ::kill(pid, SIGTERM) != 0) return;
            for (int i = 0; i < 300 && ::kill(pid, 0) == 0; ++i) {
                std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
                std::string ignored, state;
                if (!(stat >> ignored >> ignored >> state) || state == "Z") return;
                std::this_thread::sleep_for(50ms);
            }
        }
    } stopper{pid};
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_GT(pid, 0) << "no daemon runs after 'vosklin ui'";
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(result.out, parts,
                                 std::regex("http://127\\.0\\.0\\.1:([0-9]+)(/login\\?code=[0-9a-f]{64})\n")))
        << result.out;
    httplib::Client started("127.0.0.1", std::stoi(parts[1]));
    const struct {
        const char* name;
        int status;
    } logins[] = {{"first", 303}, {"second", 403}};
    for (const auto& login : logins) {
        auto answer = started.Get(parts[2].str());
        ASSERT_TRUE(answer) << login.name;
        EXPECT_EQ(answer->status, login.status) << login.name;
    }

    // A second call finds the running daemon rather than starting another; without a way
    // to open a browser it still prints the address, and says so on standard error.
    auto again = test::runVosklin({"--home", home.path(), "ui"}, {{"PATH", "/nonexistent"}});
    EXPECT_EQ(again.exitStatus, 0) << again.err;
    EXPECT_EQ(std::count(again.out.begin(), again.out.end(), '\n'), 1) << again.out;
    EXPECT_NE(again.err.find("xdg-open"), std::string::npos) << again.err;
    EXPECT_EQ(jsonOf({"status"})["daemon"].value("pid", 0), pid);
}

// The stream on its own, with short limits: keep-alive comments while nothing happens, long
// past the deadline a request must arrive within, and a server that stops with a stream
// open ends it instead of waiting for news forever.
TEST(EventStreamTest, KeepsAliveAndEndsWhenTheServerStops) {
    test::TempDirectory home;
    test::RecordingLogger logger;
    AppContext context(home.path(), logger);
    ApiHandlers handlers(context, nullptr);
    ChangeFeed feed;
    handlers.setChangeFeed(&feed);
    LocalApiServer::Limits limits;
    limits.keepAliveInterval = 100ms;
    limits.requestDeadline = 150ms;
    limits.maximumEventStreams = 1;
    LocalApiServer server(handlers, "token", limits);
    const int port = server.start();
    const std::string request = "GET /v1/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nAuthorization: Bearer token\r\n\r\n";
    RawConnection stream(port);
    ASSERT_TRUE(stream.send(request));
    ASSERT_TRUE(stream.readUntil(": connected"));
    EXPECT_TRUE(stream.readUntil(": keep-alive", 5)) << stream.received();
    RawConnection second(port);
    ASSERT_TRUE(second.send(request));
    EXPECT_TRUE(second.readUntil("HTTP/1.1 503")) << second.received();
    feed.publish("settings");
    EXPECT_TRUE(stream.readUntil("event: changed\ndata: {\"folderID\":\"\",\"what\":\"settings\"}\n\n"))
        << stream.received();
    server.stop();
    EXPECT_FALSE(stream.readUntil("never sent")) << "the stream outlived the server";
}

// A reader that falls behind costs the publishers nothing: what waits stays bounded,
// and it still learns of every kind of change.
TEST(EventStreamTest, ASlowReadersQueueIsFoldedNotGrown) {
    ChangeFeed feed;
    auto slow = feed.subscribe();
    for (int i = 0; i < 1000; ++i) feed.publish(i % 2 ? "captured" : "history", "folder-" + std::to_string(i));
    feed.publish("captured", "folder-1");
    const auto waiting = slow->next(0ms);
    EXPECT_LE(waiting.size(), ChangeFeed::queueBound);
    for (const std::string what : {"captured", "history"})
        EXPECT_TRUE(std::any_of(waiting.begin(), waiting.end(), [&](const auto& change) { return change.what == what; }))
            << what;
    feed.publish("settings");
    feed.publish("settings");
    EXPECT_EQ(slow->next(0ms), (std::vector<ChangeFeed::Change>{{"", "settings"}})) << "a change waiting twice";
}

// Expiry, with a clock the test moves: a code is good for two minutes, and only once.
TEST(LoginCodeTest, ACodeExpiresAfterTwoMinutes) {
    test::TempDirectory home;
    test::RecordingLogger logger;
    AppContext context(home.path(), logger);
    ApiHandlers handlers(context, nullptr);
    test::ManualClock clock;
    LocalApiServer server(handlers, "token", LocalApiServer::Limits{}, clock);
    const int port = server.start();
    httplib::Client http("127.0.0.1", port);
    const std::string stale = server.issueLoginCode();
    clock.advance(119);
    const std::string late = server.issueLoginCode();
    clock.advance(2);
    const struct {
        std::string code;
        int status;
    } cases[] = {{stale, 403}, {late, 303}, {late, 403}};
    for (const auto& c : cases) {
        auto answer = http.Get("/login?code=" + c.code);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, c.status) << c.code;
    }
}

}  // namespace
}  // namespace vosklin

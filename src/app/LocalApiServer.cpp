#include "app/LocalApiServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "app/ServedFiles.h"
#include "app/UiAssets.h"
#include "compare/PdfPageRenderer.h"
#include "platform/LoopbackPeer.h"

namespace vosklin {
namespace {

using SteadyClock = std::chrono::steady_clock;

void reply(httplib::Response& response, int status, const nlohmann::json& body) {
    response.status = status;
    response.set_content(body.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
                         "application/json");
}

// Waits for `events` on `fd` until `deadline`; false when it passed first.
bool waitFor(int fd, short events, SteadyClock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now()).count();
        if (left <= 0) return false;
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, int(std::min<long long>(left, 60'000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

// The connection as the HTTP library reads and writes it, with our clocks: every read
// counts against one deadline for the whole request, so a peer trickling a byte at a
// time is cut off as surely as a silent one.
class DeadlineStream : public httplib::Stream {
public:
    DeadlineStream(int fd, SteadyClock::time_point readDeadline, std::chrono::milliseconds writeTimeout)
        : fd_(fd), readDeadline_(readDeadline), writeTimeout_(writeTimeout) {}

    bool is_readable() const override { return waitFor(fd_, POLLIN, readDeadline_); }
    bool is_writable() const override { return waitFor(fd_, POLLOUT, SteadyClock::now() + writeTimeout_); }
    ssize_t read(char* ptr, std::size_t size) override {
        for (;;) {
            const ssize_t got = ::recv(fd_, ptr, size, 0);
            if (got >= 0) return got;
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
            if (!waitFor(fd_, POLLIN, readDeadline_)) return -1;
        }
    }
    ssize_t write(const char* ptr, std::size_t size) override {
        for (;;) {
            const ssize_t sent = ::send(fd_, ptr, size, MSG_NOSIGNAL);
            if (sent >= 0) return sent;
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
            if (!waitFor(fd_, POLLOUT, SteadyClock::now() + writeTimeout_)) return -1;
        }
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override { endpoint(true, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { endpoint(false, ip, port); }
    int socket() const override { return fd_; }

private:
    void endpoint(bool peer, std::string& ip, int& port) const {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const int result = peer ? ::getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size)
                                : ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        char text[INET_ADDRSTRLEN] = "";
        if (result == 0) ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
        ip = text;
        port = result == 0 ? ntohs(address.sin_port) : 0;
    }

    int fd_;
    SteadyClock::time_point readDeadline_;
    std::chrono::milliseconds writeTimeout_;
};

constexpr const char* pageSecurityPolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src 'self'; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'self'; object-src 'none'";

const httplib::Headers& protectiveHeaders() {
    static const httplib::Headers headers = {{"Content-Security-Policy", pageSecurityPolicy},
                                             {"X-Content-Type-Options", "nosniff"},
                                             {"Referrer-Policy", "no-referrer"},
                                             {"Cache-Control", "no-store"}};
    return headers;
}

void refuseRaw(int fd, int status, const std::string& reason) {
    const std::string body = "{\"error\": \"" + reason + "\"}\n";
    std::string headers;
    for (const auto& [name, value] : protectiveHeaders()) headers += name + ": " + value + "\r\n";
    const std::string answer = "HTTP/1.1 " + std::to_string(status) + " " + reason +
                               "\r\nContent-Type: application/json\r\nContent-Length: " +
                               std::to_string(body.size()) + "\r\n" + headers + "Connection: close\r\n\r\n" + body;
    (void)!::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void replaceHeader(httplib::Response& response, const std::string& name, const std::string& value) {
    response.headers.erase(name);
    response.set_header(name, value);
}

// Bytes from a file's past or present: untrusted, so they may never run as a page of
// this origin, and a navigation to them downloads.
void markUntrusted(httplib::Response& response) {
    replaceHeader(response, "Content-Security-Policy", "sandbox");
    replaceHeader(response, "Content-Disposition", "attachment");
}

const std::string loginRefusedPage =
    "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Vosklin</title></head>\n"
    "<body><h1>This login link does not work</h1>\n"
    "<p>A link from 'vosklin ui' works once, within two minutes. Run <code>vosklin ui</code> again for a new "
    "one.</p></body></html>\n";

// The connection the current thread serves, for an event stream to notice its reader leave.
thread_local int servedConnection = -1;

bool readerLeft(int fd) {
    pollfd entry{fd, POLLRDHUP, 0};
    return fd < 0 || (::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0);
}

std::optional<std::int64_t> positiveNumber(const std::string& text) {
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const std::int64_t value = std::stoll(text);
    if (value <= 0) return std::nullopt;
    return value;
}

}  // namespace

// The HTTP library's request parsing and routing, driven on connections we accept
// and vet ourselves (its own accept loop has no way to bound a request's time).
class LocalApiServer::Router : public httplib::Server {
public:
    void serve(httplib::Stream& stream) {
        bool closed = false;
        process_request(stream, true, closed, [](httplib::Request&) {});
    }
    // The library ends a streamed answer once it thinks its listening socket is closed;
    // it never listens itself, so it is told of ours.
    void setServing(int listener) { svr_sock_ = listener; }
};

LocalApiServer::LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits, Clock& clock)
    : handlers_(handlers),
      token_(std::move(token)),
      limits_(limits),
      clock_(clock),
      router_(std::make_unique<Router>()),
      pool_(limits.maximumConnections,
            {[](int fd) {
                 // Strangers are turned away before they can hold a thread or a slot.
                 if (loopbackPeerUid(fd) == ::geteuid()) return true;
                 refuseRaw(fd, 403, "Forbidden");
                 return false;
             },
             [](int fd) { refuseRaw(fd, 503, "Service Unavailable"); }, [this](int fd) { serve(fd); }}) {}

LocalApiServer::LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits)
    : LocalApiServer(handlers, std::move(token), limits, systemClock_) {}

LocalApiServer::~LocalApiServer() { stop(); }

std::string LocalApiServer::issueLoginCode() { return access_->issueLoginCode(); }

void LocalApiServer::route() {
    router_->set_payload_max_length(limits_.maximumBodyBytes);
    router_->set_default_headers(protectiveHeaders());
    router_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const BrowserAccess::Request asked{request.method,
                                           request.get_header_value("Host"),
                                           request.get_header_value("Authorization"),
                                           request.get_header_value("Cookie"),
                                           request.has_header(BrowserAccess::requestHeader),
                                           request.get_header_value("Sec-Fetch-Site")};
        // The window's own files hold no data, and the login is how a session begins.
        const bool open = request.method == "GET" &&
                          (request.path == "/" || request.path == "/login" || request.path.starts_with("/assets/"));
        const auto verdict = open ? access_->checkOrigin(asked) : access_->check(asked);
        if (verdict.allowed()) return httplib::Server::HandlerResponse::Unhandled;
        reply(response, verdict.status, {{"error", verdict.error}});
        return httplib::Server::HandlerResponse::Handled;
    });

    const auto asset = [](httplib::Response& response, const std::string& path) {
        const auto found = findUiAsset(path);
        if (!found) return reply(response, 404, {{"error", "There is no such file"}});
        response.set_content(std::string(found->bytes), std::string(found->contentType));
    };
    router_->Get("/", [asset](const httplib::Request&, httplib::Response& response) { asset(response, "index.html"); });
    router_->Get(R"(/assets/(.+))", [asset](const httplib::Request& request, httplib::Response& response) {
        asset(response, request.matches[1]);
    });
    router_->Get("/login", [this](const httplib::Request& request, httplib::Response& response) {
        const auto session = access_->redeem(request.get_param_value("code"));
        if (!session) {
            response.status = 403;
            response.set_content(loginRefusedPage, "text/html; charset=utf-8");
            return;
        }
        response.set_header("Set-Cookie", BrowserAccess::sessionCookie(*session));
        response.set_header("Location", "/");
        response.status = 303;
    });

    router_->Post(R"(/v1/([a-z]+))", [this](const httplib::Request& request, httplib::Response& response) {
        const std::string name = request.matches[1];
        // A session is the browser's: it may use the window, never mint further sessions.
        if (name == "logincode" && request.get_header_value("Authorization").empty())
            return reply(response, 403, {{"error", "Login codes are handed out only to the command line"}});
        const ApiResponse answer = handlers_.answer(name, request.body);
        reply(response, answer.status, answer.body);
    });

    router_->Get("/v1/events", [this](const httplib::Request&, httplib::Response& response) {
        ChangeFeed* feed = handlers_.changeFeed();
        if (!feed) return reply(response, 404, {{"error", "This server has no events to send"}});
        if (eventStreams_.fetch_add(1) >= limits_.maximumEventStreams) {
            --eventStreams_;
            return reply(response, 503, {{"error", "Too many event streams are open; close a window"}});
        }
        auto subscription = feed->subscribe();
        {
            std::lock_guard guard(streamsLock_);
            std::erase_if(streams_, [](const auto& stream) { return stream.expired(); });
            streams_.push_back(subscription);
        }
        const int connection = servedConnection;
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, subscription, connection](std::size_t offset, httplib::DataSink& sink) {
                // A first line at once, so the reader knows it is subscribed.
                if (offset == 0) return sink.write(": connected\n\n", 13);
                const auto keepAliveAt = SteadyClock::now() + limits_.keepAliveInterval;
                for (;;) {
                    if (subscription->cancelled() || readerLeft(connection)) return false;
                    const auto left =
                        std::chrono::duration_cast<std::chrono::milliseconds>(keepAliveAt - SteadyClock::now());
                    if (left.count() <= 0) return sink.write(": keep-alive\n\n", 14);
                    const auto changes = subscription->next(std::min(left, std::chrono::milliseconds(500)));
                    if (changes.empty()) continue;
                    std::string events;
                    for (const auto& change : changes)
                        events += "event: changed\ndata: " +
                                  nlohmann::json{{"folderID", change.folderID}, {"what", change.what}}.dump() + "\n\n";
                    return sink.write(events.data(), events.size());
                }
            },
            [this, subscription](bool) {
                subscription->cancel();
                --eventStreams_;
            });
    });

    ServedFiles files(handlers_.context());
    const auto guarded = [](httplib::Response& response, const std::function<void()>& serve) {
        try {
            serve();
        } catch (const ApiError& error) {
            reply(response, error.status(), {{"error", error.what()}});
        } catch (const std::exception& error) {
            reply(response, 500, {{"error", error.what()}});
        }
    };
    router_->Get(R"(/v1/payload/([0-9]+))", [files, guarded](const httplib::Request& request,
                                                              httplib::Response& response) mutable {
        guarded(response, [&] {
            const auto id = positiveNumber(request.matches[1]);
            if (!id) throw ApiError(404, "There is no such version");
            auto served = std::make_shared<ServedFiles::Version>(files.version(*id));
            markUntrusted(response);
            response.set_content_provider(
                std::size_t(served->size), std::string(ServedFiles::contentTypeOf(served->relativePath)),
                [served, streamed = false](std::size_t, std::size_t, httplib::DataSink& sink) mutable {
                    // Hashed whole before the first byte goes out; damage found then cuts the answer short.
                    // All of it in one call: asked again, something went wrong, and it is not sent twice.
                    if (streamed) return false;
                    streamed = true;
                    try {
                        served->payload.streamTo(sink.os);
                        return true;
                    } catch (const std::exception&) {
                        return false;
                    }
                });
        });
    });
    router_->Get(R"(/v1/live/([0-9]+))", [files, guarded](const httplib::Request& request,
                                                           httplib::Response& response) mutable {
        guarded(response, [&] {
            const auto id = positiveNumber(request.matches[1]);
            if (!id) throw ApiError(404, "There is no such file");
            auto served = std::make_shared<ServedFiles::Live>(files.live(*id));
            markUntrusted(response);
            response.set_content_provider(
                std::size_t(served->file.status.size), std::string(ServedFiles::contentTypeOf(served->relativePath)),
                [served](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                    // The file as it was opened; one that shrinks meanwhile ends the answer short.
                    char buffer[65536];
                    const ssize_t got = ::pread(served->file.fd.get(), buffer, std::min(length, sizeof buffer),
                                                off_t(offset));
                    return got > 0 && sink.write(buffer, std::size_t(got));
                });
        });
    });
    router_->Get(R"(/v1/pdfpage/(live/)?([0-9]+)/([0-9]+))", [files, guarded](const httplib::Request& request,
                                                                               httplib::Response& response) mutable {
        guarded(response, [&] {
            const auto id = positiveNumber(request.matches[2]);
            const auto page = positiveNumber(request.matches[3]);
            if (!id || !page || *page > INT_MAX) throw ApiError(404, "There is no such page");
            // A width out of range is brought into it: the window asks for what its layout has room for.
            int width = 800;
            if (request.has_param("width")) {
                const auto asked = positiveNumber(request.get_param_value("width"));
                if (!asked) throw ApiError(400, "'width' is a number of pixels");
                width = int(std::clamp<std::int64_t>(*asked, PdfPageRenderer::minimumWidth, PdfPageRenderer::maximumWidth));
            }
            const std::string bytes = files.pdfBytes(*id, request.matches[1].length() > 0);
            if (!PdfPageRenderer::pageCount(bytes)) throw ApiError(415, "This is not a PDF that can be opened");
            auto png = PdfPageRenderer::renderPng(bytes, int(*page), width);
            if (!png) throw ApiError(404, "The PDF has no page " + std::to_string(*page));
            markUntrusted(response);
            response.set_content(std::move(*png), "image/png");
        });
    });
    // Nothing is asked for by GET: a request's name there is a mistake, not a read.
    router_->Get(R"(/v1/([a-z]+))", [](const httplib::Request&, httplib::Response& response) {
        response.set_header("Allow", "POST");
        reply(response, 405, {{"error", "Requests are sent with POST"}});
    });
}

int LocalApiServer::start() {
    listener_ = UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (!listener_ || ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 64) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error(std::string("The local API could not bind a port on 127.0.0.1: ") +
                                 std::strerror(errno));
    port_ = ntohs(address.sin_port);
    access_ = std::make_unique<BrowserAccess>(clock_, token_, port_);
    route();
    router_->setServing(listener_.get());
    pool_.start(listener_.get());
    return port_;
}

void LocalApiServer::stop() {
    if (!listener_) return;
    // Event streams would wait for news forever: they end first, then requests being answered.
    router_->setServing(-1);
    {
        std::lock_guard guard(streamsLock_);
        for (const auto& stream : streams_)
            if (auto subscription = stream.lock()) subscription->cancel();
    }
    pool_.stop();
    listener_.reset();
}

void LocalApiServer::serve(int fd) {
    DeadlineStream stream(fd, SteadyClock::now() + limits_.requestDeadline, limits_.writeTimeout);
    servedConnection = fd;
    router_->serve(stream);
    servedConnection = -1;
}

}  // namespace vosklin

#include "app/LocalApiServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <stdexcept>

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

void refuseRaw(int fd, int status, const std::string& reason) {
    const std::string body = "{\"error\": \"" + reason + "\"}\n";
    const std::string answer = "HTTP/1.1 " + std::to_string(status) + " " + reason +
                               "\r\nContent-Type: application/json\r\nContent-Length: " +
                               std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    (void)!::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
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
};

LocalApiServer::LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits)
    : handlers_(handlers),
      token_(std::move(token)),
      limits_(limits),
      router_(std::make_unique<Router>()),
      pool_(limits.maximumConnections,
            {[](int fd) {
                 // Strangers are turned away before they can hold a thread or a slot.
                 if (loopbackPeerUid(fd) == ::geteuid()) return true;
                 refuseRaw(fd, 403, "Forbidden");
                 return false;
             },
             [](int fd) { refuseRaw(fd, 503, "Service Unavailable"); }, [this](int fd) { serve(fd); }}) {}

LocalApiServer::~LocalApiServer() { stop(); }

int LocalApiServer::start() {
    router_->set_payload_max_length(limits_.maximumBodyBytes);
    router_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const std::string host = request.get_header_value("Host");
        const std::string port = std::to_string(port_);
        if (host != "127.0.0.1:" + port && host != "localhost:" + port) {
            reply(response, 403, {{"error", "This API answers only requests addressed to 127.0.0.1:" + port}});
            return httplib::Server::HandlerResponse::Handled;
        }
        if (request.get_header_value("Authorization") != "Bearer " + token_) {
            reply(response, 401, {{"error", "Missing or wrong API token"}});
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    router_->Post(R"(/v1/([a-z]+))", [this](const httplib::Request& request, httplib::Response& response) {
        const ApiResponse answer = handlers_.answer(request.matches[1], request.body);
        reply(response, answer.status, answer.body);
    });

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
    pool_.start(listener_.get());
    return port_;
}

void LocalApiServer::stop() {
    pool_.stop();
    listener_.reset();
}

void LocalApiServer::serve(int fd) {
    DeadlineStream stream(fd, SteadyClock::now() + limits_.requestDeadline, limits_.writeTimeout);
    router_->serve(stream);
}

}  // namespace vosklin

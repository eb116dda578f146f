#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "app/ApiHandlers.h"
#include "app/ConnectionPool.h"
#include "platform/UniqueFd.h"

namespace vosklin {

// The daemon's API over HTTP on 127.0.0.1, a random port, for the browser (the
// command line uses LocalSocketServer): "POST /v1/<request>" with a JSON body
// for each request of ApiHandlers.
//
// Every request must carry "Authorization: Bearer <token>" and a Host header
// naming this address and port ("127.0.0.1:PORT" or "localhost:PORT"); anything
// else is refused with 401 or 403 before a handler runs. The Host check keeps
// web pages in the user's browser (DNS rebinding) from reaching the API.
//
// Any local user can open a TCP connection, so connections are vetted before a
// byte is read: one whose peer belongs to another user is closed at once (the
// kernel's socket table tells; see loopbackPeerUid), and beyond
// `maximumConnections` at once new ones are answered 503 and closed. A request
// must arrive whole within `requestDeadline` of the connection, however slowly
// it trickles in, and each write of the answer must progress within
// `writeTimeout`. One request per connection; each connection has a thread of its own.
//
// start() and stop() from one thread; stop() waits for requests being answered.
class LocalApiServer {
public:
    struct Limits {
        std::chrono::milliseconds requestDeadline{10'000};
        std::chrono::milliseconds writeTimeout{10'000};
        std::size_t maximumConnections = 16;
        std::size_t maximumBodyBytes = 16 << 20;
    };

    LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits);
    LocalApiServer(ApiHandlers& handlers, std::string token) : LocalApiServer(handlers, std::move(token), Limits{}) {}
    ~LocalApiServer();

    // Binds a free port on 127.0.0.1 and serves on threads of its own; returns the port.
    // Throws std::runtime_error when no port can be bound.
    int start();
    void stop();

private:
    class Router;

    void serve(int fd);

    ApiHandlers& handlers_;
    std::string token_;
    Limits limits_;
    int port_ = 0;
    std::unique_ptr<Router> router_;
    UniqueFd listener_;
    ConnectionPool pool_;
};

}  // namespace vosklin

#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "app/ApiHandlers.h"
#include "app/ConnectionPool.h"
#include "platform/UnixSocket.h"

namespace vosklin {

// The daemon's API for the command line: a Unix domain socket in a directory
// only this user can enter, so no other local user can reach it, let alone
// hold it up. Each connection carries one exchange of one line each way:
//
//   request   <name> <body as JSON>             e.g.  scan {"folder": "/home/ann/Notes"}
//   answer    {"status": 200, "body": {...}}   or   {"status": 4xx/5xx, "error": "..."}
//
// Limits keep even a misbehaving local program from wedging it: the request must
// arrive whole within `requestDeadline` and be at most `maximumRequestBytes`;
// at most `maximumConnections` are served at once (more are answered 503 and
// closed); a peer of another user id is refused without being read. Each
// connection has a thread of its own, so a long request (a scan) never delays
// a short one (status).
//
// start() and stop() from one thread; stop() waits for requests being answered.
class LocalSocketServer {
public:
    struct Limits {
        std::chrono::milliseconds requestDeadline{10'000};
        std::size_t maximumRequestBytes = 16 << 20;
        std::size_t maximumConnections = 32;
    };

    LocalSocketServer(ApiHandlers& handlers, std::string path, Limits limits);
    LocalSocketServer(ApiHandlers& handlers, std::string path) : LocalSocketServer(handlers, std::move(path), Limits{}) {}
    ~LocalSocketServer();

    // Makes the socket's directory private (0700, owned by this user) and starts
    // serving. Throws FileSystemError, or std::runtime_error when the directory
    // belongs to someone else.
    void start();
    void stop();
    const std::string& path() const { return path_; }

private:
    void serve(int fd);

    ApiHandlers& handlers_;
    std::string path_;
    Limits limits_;
    std::unique_ptr<UnixSocket> listener_;
    ConnectionPool pool_;
};

}  // namespace vosklin

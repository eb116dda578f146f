#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/ApiHandlers.h"
#include "app/BrowserAccess.h"
#include "app/ChangeFeed.h"
#include "app/ConnectionPool.h"
#include "platform/Clock.h"
#include "platform/UniqueFd.h"

namespace vosklin {

// The daemon's HTTP door on 127.0.0.1, a random port: the window (a web page
// in the user's browser) and its API under one origin. The command line uses
// LocalSocketServer instead.
//
//   GET  /                           the window (ui/index.html, built into the binary)
//   GET  /assets/<path>              ui/<path>
//   GET  /login?code=C               trades a one-time code for the session cookie, 303 to /;
//                                    403 and a page saying what to do when the code is bad
//   POST /v1/<name>                  a JSON request of ApiHandlers; {"error": message} on failure
//   GET  /v1/events                  server-sent events: "changed" {"folderID", "what"} from the
//                                    ChangeFeed, ": keep-alive" every `keepAliveInterval`
//   GET  /v1/payload/<versionID>     a version's bytes      } as an attachment, under
//   GET  /v1/live/<fileID>           the file as it is now } "Content-Security-Policy: sandbox"
//   GET  /v1/pdfpage/<versionID>/<page>?width=W      a PDF page as PNG (ServedFiles)
//   GET  /v1/pdfpage/live/<fileID>/<page>?width=W
//
// Who may ask is BrowserAccess's call: the window's files and the login need
// only the right Host and no cross-site Sec-Fetch-Site; everything under /v1/
// also the session cookie or "Authorization: Bearer <token>", and a POST made
// with the cookie the header X-Vosklin-Request. Nothing changes state on GET
// (a GET of a request's name is 405). "logincode" is never answered for a
// cookie: a page must not mint sessions. Every response carries a strict
// Content-Security-Policy (no inline script, no framing), nosniff,
// no-referrer and no-store; a version's bytes are untrusted and get "sandbox"
// instead, are never served as HTML, and no response has CORS headers.
//
// Any local user can open a TCP connection, so connections are vetted before a
// byte is read: one whose peer belongs to another user is closed at once (the
// kernel's socket table tells; see loopbackPeerUid), and beyond
// `maximumConnections` at once new ones are answered 503 and closed. A request
// must arrive whole within `requestDeadline` of the connection, however slowly
// it trickles in, and each write of the answer must progress within
// `writeTimeout`. One request per connection; each connection has a thread of
// its own. An event stream outlives the request deadline (it only writes), so
// at most `maximumEventStreams` run at once, leaving the other slots to requests;
// one ends when its reader goes away or the server stops.
//
// start() and stop() from one thread; stop() ends event streams and waits for
// requests being answered.
class LocalApiServer {
public:
    struct Limits {
        std::chrono::milliseconds requestDeadline{10'000};
        std::chrono::milliseconds writeTimeout{10'000};
        std::size_t maximumConnections = 16;
        std::size_t maximumBodyBytes = 16 << 20;
        std::size_t maximumEventStreams = 4;
        std::chrono::milliseconds keepAliveInterval{15'000};
    };

    LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits, Clock& clock);
    LocalApiServer(ApiHandlers& handlers, std::string token, Limits limits);
    LocalApiServer(ApiHandlers& handlers, std::string token) : LocalApiServer(handlers, std::move(token), Limits{}) {}
    ~LocalApiServer();

    // Binds a free port on 127.0.0.1 and serves on threads of its own; returns the port.
    // Throws std::runtime_error when no port can be bound.
    int start();
    void stop();

    // A one-time login code for the browser; after start().
    std::string issueLoginCode();

private:
    class Router;

    void route();
    void serve(int fd);

    ApiHandlers& handlers_;
    std::string token_;
    Limits limits_;
    SystemClock systemClock_;
    Clock& clock_;
    int port_ = 0;
    std::unique_ptr<BrowserAccess> access_;
    std::unique_ptr<Router> router_;
    std::atomic<std::size_t> eventStreams_{0};
    std::mutex streamsLock_;
    std::vector<std::weak_ptr<ChangeFeed::Subscription>> streams_;
    UniqueFd listener_;
    ConnectionPool pool_;
};

}  // namespace vosklin

#pragma once

#include <memory>
#include <string>
#include <thread>

#include "app/ApiHandlers.h"

namespace httplib {
class Server;
}

namespace vosklin {

// The daemon's local API: HTTP on 127.0.0.1 only, a random port, and
// "POST /v1/<request>" with a JSON body for each request of ApiHandlers.
//
// Every request must carry "Authorization: Bearer <token>" and a Host header
// naming this address and port ("127.0.0.1:PORT" or "localhost:PORT"); anything
// else is refused with 401 or 403 before a handler runs. The Host check keeps
// web pages in the user's browser (DNS rebinding) from reaching the API.
class LocalApiServer {
public:
    LocalApiServer(ApiHandlers& handlers, std::string token);
    ~LocalApiServer();

    // Binds a free port on 127.0.0.1 and serves on a thread of its own; returns the port.
    int start();
    void stop();

private:
    ApiHandlers& handlers_;
    std::string token_;
    int port_ = 0;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
};

}  // namespace vosklin

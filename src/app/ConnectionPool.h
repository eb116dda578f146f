#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/UniqueFd.h"

namespace vosklin {

// Accepts the connections of one listening socket and serves each on a thread
// of its own, at most `maximum` at once, so a slow peer holds up no one but
// itself and the number of threads stays bounded.
//
//   vet(fd)     on the accepting thread, before anything is read: false turns the
//               connection away (vet has answered it as it sees fit) and closes it
//   busy(fd)    when `maximum` are being served: answer "busy"; then it is closed
//   serve(fd)   on the connection's thread; the descriptor is closed after it returns
//
// The listening descriptor must be non-blocking. start() and stop() from one
// thread; stop() cuts off connections still being read and waits for every serve().
class ConnectionPool {
public:
    struct Handlers {
        std::function<bool(int fd)> vet;
        std::function<void(int fd)> busy;
        std::function<void(int fd)> serve;
    };

    ConnectionPool(std::size_t maximum, Handlers handlers);
    ~ConnectionPool();

    // Throws std::system_error when the wake-up descriptor cannot be made.
    void start(int listeningFd);
    void stop();

private:
    struct Connection {
        explicit Connection(UniqueFd accepted) : fd(std::move(accepted)) {}
        UniqueFd fd;
        std::thread thread;
        std::atomic<bool> done{false};
    };

    void acceptLoop(int listeningFd);
    void reapFinished();

    std::size_t maximum_;
    Handlers handlers_;
    UniqueFd wake_;
    std::thread acceptThread_;
    std::mutex mutex_;
    std::list<std::unique_ptr<Connection>> connections_;
};

}  // namespace vosklin

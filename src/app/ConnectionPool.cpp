#include "app/ConnectionPool.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <system_error>

namespace vosklin {

ConnectionPool::ConnectionPool(std::size_t maximum, Handlers handlers)
    : maximum_(maximum), handlers_(std::move(handlers)) {}

ConnectionPool::~ConnectionPool() { stop(); }

void ConnectionPool::start(int listeningFd) {
    wake_ = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
    acceptThread_ = std::thread([this, listeningFd] { acceptLoop(listeningFd); });
}

void ConnectionPool::stop() {
    if (!acceptThread_.joinable()) return;
    const std::uint64_t one = 1;
    (void)!::write(wake_.get(), &one, sizeof one);
    acceptThread_.join();
    std::list<std::unique_ptr<Connection>> remaining;
    {
        std::lock_guard lock(mutex_);
        remaining.swap(connections_);
    }
    // A request still arriving is cut off; one being answered finishes first.
    for (auto& connection : remaining)
        if (!connection->done) ::shutdown(connection->fd.get(), SHUT_RD);
    for (auto& connection : remaining) connection->thread.join();
}

void ConnectionPool::acceptLoop(int listeningFd) {
    for (;;) {
        pollfd entries[2] = {{listeningFd, POLLIN, 0}, {wake_.get(), POLLIN, 0}};
        if (::poll(entries, 2, -1) < 0) continue;
        if (entries[1].revents) return;
        reapFinished();
        for (;;) {
            UniqueFd fd(::accept4(listeningFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (!fd) break;
            if (!handlers_.vet(fd.get())) continue;
            std::lock_guard lock(mutex_);
            if (connections_.size() >= maximum_) {
                handlers_.busy(fd.get());
                continue;
            }
            auto& added = *connections_.emplace_back(std::make_unique<Connection>(std::move(fd)));
            added.thread = std::thread([this, &added] {
                handlers_.serve(added.fd.get());
                // Closed when reaped; shut now so the peer sees the end at once.
                ::shutdown(added.fd.get(), SHUT_RDWR);
                added.done = true;
            });
        }
    }
}

void ConnectionPool::reapFinished() {
    std::list<std::unique_ptr<Connection>> finished;
    {
        std::lock_guard lock(mutex_);
        for (auto it = connections_.begin(); it != connections_.end();) {
            if ((*it)->done) finished.splice(finished.end(), connections_, it++);
            else ++it;
        }
    }
    for (auto& connection : finished) connection->thread.join();
}

}  // namespace vosklin

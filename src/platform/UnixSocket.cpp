#include "platform/UnixSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

// The address for `path`; `directory` keeps the directory open while a long path is used through it.
sockaddr_un addressFor(const std::string& path, UniqueFd& directory) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string name = path;
    if (name.size() >= sizeof address.sun_path) {
        directory = UniqueFd(::open(parentPath(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!directory) throw FileSystemError(errno, "open", parentPath(path));
        name = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + lastComponent(path);
        if (name.size() >= sizeof address.sun_path) throw FileSystemError(ENAMETOOLONG, "bind", path);
    }
    std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
    return address;
}

UniqueFd newSocket(const std::string& path) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) throw FileSystemError(errno, "socket", path);
    return fd;
}

}  // namespace

UnixSocket UnixSocket::listen(const std::string& path, int backlog) {
    UniqueFd fd = newSocket(path);
    UniqueFd directory;
    sockaddr_un address = addressFor(path, directory);
    if (::unlink(address.sun_path) != 0 && errno != ENOENT) throw FileSystemError(errno, "unlink", path);
    if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw FileSystemError(errno, "bind", path);
    if (::listen(fd.get(), backlog) != 0) throw FileSystemError(errno, "listen", path);
    return UnixSocket(std::move(fd));
}

UnixSocket UnixSocket::connect(const std::string& path) {
    UniqueFd fd = newSocket(path);
    UniqueFd directory;
    sockaddr_un address = addressFor(path, directory);
    // A local connect completes at once or fails; EAGAIN means the backlog is full.
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw FileSystemError(errno, "connect", path);
    return UnixSocket(std::move(fd));
}

std::optional<UnixSocket> UnixSocket::accept() {
    int fd = ::accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return std::nullopt;
    return UnixSocket(UniqueFd(fd));
}

std::optional<uid_t> UnixSocket::peerUid() const {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return std::nullopt;
    return credentials.uid;
}

bool UnixSocket::wait(short events, Deadline deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd entry{fd_.get(), events, 0};
        const int ready = ::poll(&entry, 1, int(std::min<long long>(left.count(), 60'000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

UnixSocket::ReadResult UnixSocket::readLine(std::string& line, std::size_t most, Deadline deadline) {
    for (;;) {
        const auto newline = buffered_.find('\n');
        if (newline != std::string::npos) {
            if (newline > most) return ReadResult::tooLong;
            line = buffered_.substr(0, newline);
            buffered_.erase(0, newline + 1);
            return ReadResult::line;
        }
        if (buffered_.size() > most) return ReadResult::tooLong;
        char chunk[65536];
        const ssize_t got = ::recv(fd_.get(), chunk, sizeof chunk, 0);
        if (got > 0) {
            buffered_.append(chunk, std::size_t(got));
        } else if (got == 0) {
            return ReadResult::closed;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!wait(POLLIN, deadline)) return ReadResult::timedOut;
        } else if (errno != EINTR) {
            return ReadResult::failed;
        }
    }
}

bool UnixSocket::writeAll(std::string_view data, Deadline deadline) {
    while (!data.empty()) {
        const ssize_t sent = ::send(fd_.get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            data.remove_prefix(std::size_t(sent));
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wait(POLLOUT, deadline)) return false;
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else {
            return false;
        }
    }
    return true;
}

void UnixSocket::shutdown() { ::shutdown(fd_.get(), SHUT_RDWR); }

}  // namespace vosklin

#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/UniqueFd.h"

namespace vosklin {

// One Unix domain stream socket, named by a path of any length: a path too long
// for sockaddr_un is reached through its directory's descriptor
// ("/proc/self/fd/N/name"). Descriptors are non-blocking; every read and write
// takes a deadline, so no peer can hold the caller longer than it allows.
// Move-only; one thread at a time per object, except shutdown(), which any
// thread may call to end another's wait.
class UnixSocket {
public:
    using Deadline = std::chrono::steady_clock::time_point;
    enum class ReadResult { line, closed, tooLong, timedOut, failed };

    // Binds and listens at `path`, replacing a socket file left there (the caller
    // owns the name: it holds the daemon's lock). Throws FileSystemError.
    static UnixSocket listen(const std::string& path, int backlog);
    // Throws FileSystemError (ENOENT, ECONNREFUSED: nothing listens there).
    static UnixSocket connect(const std::string& path);

    explicit UnixSocket(UniqueFd fd) : fd_(std::move(fd)) {}

    // The next connection, or nothing when none is waiting (or accepting failed).
    std::optional<UnixSocket> accept();
    // The user id of the process at the other end.
    std::optional<uid_t> peerUid() const;
    // Reads up to and excluding '\n' into `line`, at most `most` bytes.
    ReadResult readLine(std::string& line, std::size_t most, Deadline deadline);
    bool writeAll(std::string_view data, Deadline deadline);
    // Ends reads and writes in progress on this socket (from any thread).
    void shutdown();
    int fd() const { return fd_.get(); }

private:
    bool wait(short events, Deadline deadline);

    UniqueFd fd_;
    std::string buffered_;
};

}  // namespace vosklin

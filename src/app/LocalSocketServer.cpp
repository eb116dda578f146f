#include "app/LocalSocketServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <stdexcept>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/PathJson.h"

namespace vosklin {
namespace {

void makePrivateDirectory(const std::string& directory) {
    // One level is enough: the parent is the user's runtime directory or the home.
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) throw FileSystemError(errno, "mkdir", directory);
    struct stat status {};
    if (::lstat(directory.c_str(), &status) != 0) throw FileSystemError(errno, "stat", directory);
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid())
        throw std::runtime_error(DisplayName::of(directory) +
                                 " is not a folder of this user's, so the daemon's socket cannot be kept private there");
    if ((status.st_mode & 077) != 0 && ::chmod(directory.c_str(), 0700) != 0)
        throw FileSystemError(errno, "chmod", directory);
}

std::string answerLine(const ApiResponse& response) {
    nlohmann::json line = {{"status", response.status}};
    if (response.status == 200) line["body"] = response.body;
    else line["error"] = response.body.value("error", "HTTP " + std::to_string(response.status));
    // Invalid UTF-8 in a message (a path) is replaced rather than thrown about.
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace

LocalSocketServer::LocalSocketServer(ApiHandlers& handlers, std::string path, Limits limits)
    : handlers_(handlers), path_(std::move(path)), limits_(limits) {}

LocalSocketServer::~LocalSocketServer() { stop(); }

void LocalSocketServer::start() {
    makePrivateDirectory(parentPath(path_));
    listener_ = std::make_unique<UnixSocket>(UnixSocket::listen(path_, 64));
    // Owner-only even where the directory's mode is not: the socket file itself.
    ::chmod(path_.c_str(), 0600);
    wake_ = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_) throw FileSystemError(errno, "eventfd", path_);
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

void LocalSocketServer::stop() {
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
        if (!connection->done) connection->socket.shutdown();
    for (auto& connection : remaining) connection->thread.join();
    ::unlink(path_.c_str());
    listener_.reset();
}

void LocalSocketServer::acceptLoop() {
    for (;;) {
        pollfd entries[2] = {{listener_->fd(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
        if (::poll(entries, 2, -1) < 0) continue;
        if (entries[1].revents) return;
        reapFinished();
        while (auto accepted = listener_->accept()) {
            std::lock_guard lock(mutex_);
            auto connection = std::make_unique<Connection>(std::move(*accepted));
            if (connections_.size() >= limits_.maximumConnections) {
                const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
                connection->socket.writeAll(answerLine({503, {{"error", "The Vosklin daemon is serving too many "
                                                                        "requests at once; try again"}}}),
                                            deadline);
                continue;
            }
            auto& added = *connections_.emplace_back(std::move(connection));
            added.thread = std::thread([this, &added] {
                serve(added);
                added.done = true;
            });
        }
    }
}

void LocalSocketServer::reapFinished() {
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

void LocalSocketServer::serve(Connection& connection) {
    UnixSocket& socket = connection.socket;
    const auto deadline = std::chrono::steady_clock::now() + limits_.requestDeadline;
    if (socket.peerUid() != ::geteuid()) {
        socket.writeAll(answerLine({403, {{"error", "This daemon answers only its own user"}}}), deadline);
        return;
    }
    std::string line;
    switch (socket.readLine(line, limits_.maximumRequestBytes, deadline)) {
        case UnixSocket::ReadResult::line:
            break;
        case UnixSocket::ReadResult::tooLong:
            socket.writeAll(answerLine({413, {{"error", "The request is too large"}}}), deadline);
            return;
        case UnixSocket::ReadResult::timedOut:
            socket.writeAll(answerLine({408, {{"error", "The request did not arrive in time"}}}), deadline);
            return;
        default:
            return;
    }
    // "<name> <body>": the name is plain, so only the body is ever parsed, once, by the handlers' reader.
    const auto space = line.find(' ');
    const std::string name = line.substr(0, space);
    const ApiResponse response =
        handlers_.answer(name, space == std::string::npos ? std::string() : line.substr(space + 1));
    // The caller waits as long as it likes for an answer; writing it gets a fresh allowance.
    socket.writeAll(answerLine(response), std::chrono::steady_clock::now() + limits_.requestDeadline);
    socket.shutdown();
}

}  // namespace vosklin

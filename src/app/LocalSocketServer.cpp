#include "app/LocalSocketServer.h"

#include <sys/stat.h>

#include <stdexcept>

#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "platform/PathJson.h"

namespace vosklin {
namespace {

using namespace std::chrono_literals;

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

// A short answer to a connection that will not be served; a peer not reading it loses it.
void answer(int fd, const ApiResponse& response) {
    UnixSocket(UniqueFd(::dup(fd))).writeAll(answerLine(response), std::chrono::steady_clock::now() + 100ms);
}

}  // namespace

LocalSocketServer::LocalSocketServer(ApiHandlers& handlers, std::string path, Limits limits)
    : handlers_(handlers),
      path_(std::move(path)),
      limits_(limits),
      pool_(limits.maximumConnections,
            {[](int fd) {
                 // Only this user: the folder keeps others out, and this says so to anyone who got in.
                 if (UnixSocket(UniqueFd(::dup(fd))).peerUid() == ::geteuid()) return true;
                 answer(fd, {403, {{"error", "This daemon answers only its own user"}}});
                 return false;
             },
             [](int fd) {
                 answer(fd, {503, {{"error", "The Vosklin daemon is serving too many requests at once; try again"}}});
             },
             [this](int fd) { serve(fd); }}) {}

LocalSocketServer::~LocalSocketServer() { stop(); }

void LocalSocketServer::start() {
    makePrivateDirectory(parentPath(path_));
    listener_ = std::make_unique<UnixSocket>(UnixSocket::listen(path_, 64));
    // Owner-only even where the directory's mode is not: the socket file itself.
    ::chmod(path_.c_str(), 0600);
    pool_.start(listener_->fd());
}

void LocalSocketServer::stop() {
    if (!listener_) return;
    pool_.stop();
    ::unlink(path_.c_str());
    listener_.reset();
}

void LocalSocketServer::serve(int fd) {
    UnixSocket socket(UniqueFd(::dup(fd)));
    const auto deadline = std::chrono::steady_clock::now() + limits_.requestDeadline;
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
}

}  // namespace vosklin

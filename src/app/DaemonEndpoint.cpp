#include "app/DaemonEndpoint.h"

#include <fcntl.h>
#include <sys/random.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/AtomicFile.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

std::string lockPath(const std::string& container) { return joinPath(container, "daemon.lock"); }

UniqueFd openLockFile(const std::string& container) {
    return UniqueFd(::open(lockPath(container).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
}

// The whole file, write-locked: the daemon's claim on this home.
struct flock wholeFile() {
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = 0;
    range.l_len = 0;
    return range;
}

}  // namespace

std::optional<UniqueFd> DaemonEndpoint::lock(FileSystem& fileSystem, const std::string& container) {
    makeDirectories(fileSystem, container, 0700);
    UniqueFd fd = openLockFile(container);
    if (!fd) throw FileSystemError(errno, "open", lockPath(container));
    // An open-file-description lock: it lives as long as this descriptor, and a
    // look-up can test it (F_OFD_GETLK) without taking anything itself.
    struct flock range = wholeFile();
    if (::fcntl(fd.get(), F_OFD_SETLK, &range) != 0) {
        if (errno == EAGAIN || errno == EACCES) return std::nullopt;
        throw FileSystemError(errno, "lock", lockPath(container));
    }
    return fd;
}

std::optional<DaemonEndpoint> DaemonEndpoint::find(FileSystem& fileSystem, const std::string& container) {
    // The lock, not the files, says whether a daemon runs: files can outlive a crash.
    // Only asked about, never taken: a look-up must not stop a daemon from starting.
    UniqueFd fd(::open(lockPath(container).c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    struct flock range = wholeFile();
    if (::fcntl(fd.get(), F_OFD_GETLK, &range) != 0 || range.l_type == F_UNLCK) return std::nullopt;
    try {
        auto json = nlohmann::json::parse(readWholeFile(fileSystem, joinPath(container, "daemon.json")));
        DaemonEndpoint endpoint;
        endpoint.pid = json.at("pid").get<int>();
        endpoint.port = json.at("port").get<int>();
        endpoint.socketPath = getPath(json, "socket");
        endpoint.token = readWholeFile(fileSystem, joinPath(container, "api-token"));
        while (!endpoint.token.empty() && endpoint.token.back() == '\n') endpoint.token.pop_back();
        return endpoint;
    } catch (const std::exception&) {
        return std::nullopt;  // starting or stopping: its files are not there (yet, or any more)
    }
}

void DaemonEndpoint::publish(FileSystem& fileSystem, const std::string& container) const {
    writeFileAtomically(fileSystem, joinPath(container, "api-token"), token + "\n", 0600);
    nlohmann::json json = {{"pid", pid}, {"port", port}};
    putPath(json, "socket", socketPath);
    writeFileAtomically(fileSystem, joinPath(container, "daemon.json"), json.dump(2) + "\n", 0600);
}

void DaemonEndpoint::withdraw(FileSystem& fileSystem, const std::string& container) {
    for (const char* name : {"daemon.json", "api-token"}) {
        try {
            fileSystem.removeFile(joinPath(container, name));
        } catch (const FileSystemError&) {
        }
    }
}

std::string DaemonEndpoint::makeToken() {
    unsigned char bytes[32];
    std::size_t filled = 0;
    while (filled < sizeof bytes) {
        ssize_t got = ::getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got > 0) filled += std::size_t(got);
    }
    std::string hex;
    char pair[3];
    for (unsigned char byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        hex += pair;
    }
    return hex;
}

}  // namespace vosklin

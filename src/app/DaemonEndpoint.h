#pragma once

#include <optional>
#include <string>

#include "platform/FileSystem.h"
#include "platform/UniqueFd.h"

namespace vosklin {

// How the command line finds and talks to a running daemon, in the container:
//   daemon.lock   write-locked (an open-file-description lock) by the one daemon of this
//                 home while it runs; a look-up only tests the lock, never takes it
//   daemon.json   {"pid": ..., "socket": path, "port": ...}: the command line talks to the
//                 Unix socket (see LocalSocketServer); the loopback port is for the web UI
//   api-token     the secret a program sends on the port (the browser's window logs in with a
//                 one-time code instead; see LocalApiServer); readable by the user only
struct DaemonEndpoint {
    int pid = 0;
    std::string socketPath;
    int port = 0;
    std::string token;

    // Takes the single-instance lock; nothing when another daemon holds it.
    static std::optional<UniqueFd> lock(FileSystem& fileSystem, const std::string& container);
    // The running daemon's endpoint, or nothing when no daemon runs.
    static std::optional<DaemonEndpoint> find(FileSystem& fileSystem, const std::string& container);

    void publish(FileSystem& fileSystem, const std::string& container) const;
    static void withdraw(FileSystem& fileSystem, const std::string& container);
    // 32 random bytes as hex.
    static std::string makeToken();
};

}  // namespace vosklin

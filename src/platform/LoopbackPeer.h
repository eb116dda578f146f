#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace vosklin {

// Who is at the other end of a TCP connection over the loopback interface.
// Unlike a Unix socket, TCP carries no credentials, but on one machine the
// kernel's table of TCP sockets ("/proc/net/tcp") names the user owning the
// peer's end: the row whose local end is our peer's address and whose remote
// end is ours. Nothing when the socket is not IPv4 loopback or the row is gone
// (the peer closed already). Reads the table given, so tests can feed one.
std::optional<uid_t> loopbackPeerUid(int connectedSocket, const std::string& table = "/proc/net/tcp");

}  // namespace vosklin

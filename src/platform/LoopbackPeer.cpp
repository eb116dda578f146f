#include "platform/LoopbackPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <sstream>

namespace vosklin {
namespace {

// "0100007F:1F90": the address as the kernel prints it (the 32-bit value in memory order) and the port.
bool parseEndpoint(const std::string& text, std::uint32_t& address, unsigned& port) {
    const auto colon = text.find(':');
    if (colon != 8 || text.size() != 13) return false;
    try {
        address = std::uint32_t(std::stoul(text.substr(0, 8), nullptr, 16));
        port = unsigned(std::stoul(text.substr(9), nullptr, 16));
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

bool endpointOf(int socket, bool peer, sockaddr_in& address) {
    socklen_t size = sizeof address;
    const int result = peer ? ::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size)
                            : ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return result == 0 && address.sin_family == AF_INET;
}

}  // namespace

std::optional<uid_t> loopbackPeerUid(int connectedSocket, const std::string& table) {
    sockaddr_in peer{}, local{};
    if (!endpointOf(connectedSocket, true, peer) || !endpointOf(connectedSocket, false, local)) return std::nullopt;
    if ((ntohl(peer.sin_addr.s_addr) >> 24) != 127) return std::nullopt;
    std::ifstream rows(table);
    std::string row;
    std::getline(rows, row);  // the column titles
    while (std::getline(rows, row)) {
        std::istringstream fields(row);
        std::string slot, localText, remoteText, state, queues, timer, retransmits;
        long long uid = -1;
        if (!(fields >> slot >> localText >> remoteText >> state >> queues >> timer >> retransmits >> uid)) continue;
        std::uint32_t rowLocal = 0, rowRemote = 0;
        unsigned rowLocalPort = 0, rowRemotePort = 0;
        if (!parseEndpoint(localText, rowLocal, rowLocalPort) || !parseEndpoint(remoteText, rowRemote, rowRemotePort))
            continue;
        // The peer's own row: its local end is our remote one, and the other way round.
        if (rowLocal == peer.sin_addr.s_addr && rowLocalPort == ntohs(peer.sin_port) &&
            rowRemote == local.sin_addr.s_addr && rowRemotePort == ntohs(local.sin_port) && uid >= 0)
            return uid_t(uid);
    }
    return std::nullopt;
}

}  // namespace vosklin

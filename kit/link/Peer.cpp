#include "kit/link/Peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace kit {

std::optional<int32_t> TrustedPeer(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    if (peer.uid != 0 && peer.uid != ::geteuid()) return std::nullopt;
    // 0: a process that this one cannot see.
    if (peer.pid <= 0) return std::nullopt;
    return peer.pid;
}

bool SocketAddress(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) return false;
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace kit

// Who is at the other end of a local socket, and where sockets lie.
#pragma once

#include <sys/un.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kit {

// The peer's process id as the kernel knows it; nothing unless it is the same user's, or root's.
std::optional<int32_t> TrustedPeer(int socket);

// False when the path does not fit.
bool SocketAddress(const std::string& path, sockaddr_un* address);

}  // namespace kit

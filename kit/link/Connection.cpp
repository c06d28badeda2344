#include "kit/link/Connection.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace kit {

Connection::Read Connection::ReadSome() {
    const std::span<uint8_t> room = fFrames.Room();
    ssize_t count = 0;
    do {
        count = ::recv(Socket(), room.data(), room.size(), MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Read::All : Read::Ended;
    if (count == 0) return Read::Ended;
    fFrames.Filled(static_cast<size_t>(count));
    return static_cast<size_t>(count) < room.size() ? Read::All : Read::Some;
}

void Connection::Queue(Bytes frame) {
    fOutSize += frame.size();
    fOut.push_back(std::move(frame));
}

bool Connection::IsOverfull() const {
    return !fOut.empty() && fOutSize - fOut.front().size() > kMostWaiting;
}

void Connection::DropOutgoing() {
    fOut.clear();
    fSent = 0;
    fOutSize = 0;
}

bool Connection::WriteSome() {
    while (!fOut.empty()) {
        std::array<iovec, 16> parts;
        size_t used = 0;
        for (; used < parts.size() && used < fOut.size(); ++used) {
            const size_t skip = used == 0 ? fSent : 0;
            parts[used] = {fOut[used].data() + skip, fOut[used].size() - skip};
        }
        msghdr header{};
        header.msg_iov = parts.data();
        header.msg_iovlen = used;
        const ssize_t count = ::sendmsg(Socket(), &header, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN || errno == EWOULDBLOCK;
        }
        fSent += static_cast<size_t>(count);
        while (!fOut.empty() && fSent >= fOut.front().size()) {
            fSent -= fOut.front().size();
            fOutSize -= fOut.front().size();
            fOut.pop_front();
        }
    }
    return true;
}

}  // namespace kit

// A peer that speaks the protocol byte by byte, without the kit's transport.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <optional>

#include "kit/message/BMessage.h"
#include "kit/support/UniqueFd.h"
#include "tests/kit/KitTest.h"

struct RawFrame {
    uint8_t kind = 0;
    uint8_t zero[3] = {0, 0, 0};
    int32_t sender = ::getpid();
    int32_t token = -1;
    uint64_t request = 0;
    Bytes body;

    static RawFrame Message(const BMessage& message, int32_t token = -1) {
        RawFrame frame;
        frame.kind = 1;
        frame.token = token;
        frame.body = message.Flatten();
        return frame;
    }
    static RawFrame Request(uint64_t request, const BMessage& message, int32_t token = -1) {
        RawFrame frame = Message(message, token);
        frame.kind = 2;
        frame.request = request;
        return frame;
    }
    static RawFrame Answer(uint64_t request, const BMessage& message) {
        RawFrame frame = Message(message, 0);
        frame.kind = 3;
        frame.request = request;
        return frame;
    }
    BMessage Said() const { return BMessage::Unflatten(body).value_or(BMessage("bad!"_code)); }
    Bytes Raw() const {
        Bytes bytes(24);
        const auto length = static_cast<uint32_t>(20 + body.size());
        std::memcpy(&bytes[0], &length, 4);
        bytes[4] = kind;
        std::memcpy(&bytes[5], zero, 3);
        std::memcpy(&bytes[8], &sender, 4);
        std::memcpy(&bytes[12], &token, 4);
        std::memcpy(&bytes[16], &request, 8);
        bytes.insert(bytes.end(), body.begin(), body.end());
        return bytes;
    }
};

inline sockaddr_un RawAddress(const std::string& folder, int32_t team) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder + "/team-" + std::to_string(team) + ".sock";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

class RawPeer {
public:
    RawPeer(const std::string& folder, int32_t team)
        : fSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = RawAddress(folder, team);
        if (::connect(fSocket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            ADD_FAILURE() << "connect: " << std::strerror(errno);
        }
    }
    explicit RawPeer(kit::UniqueFd socket) : fSocket(std::move(socket)) {}

    // False once the other side has hung up.
    bool Send(const Bytes& bytes) {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t count =
                ::send(fSocket.Get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (count < 0) return false;
            done += static_cast<size_t>(count);
        }
        return true;
    }
    bool Send(const RawFrame& frame) { return Send(frame.Raw()); }

    // The next frame, or nothing when the other side has hung up.
    std::optional<RawFrame> Receive() {
        Bytes head;
        if (!Read(24, &head)) return std::nullopt;
        RawFrame frame;
        uint32_t length = 0;
        std::memcpy(&length, &head[0], 4);
        frame.kind = head[4];
        std::memcpy(frame.zero, &head[5], 3);
        std::memcpy(&frame.sender, &head[8], 4);
        std::memcpy(&frame.token, &head[12], 4);
        std::memcpy(&frame.request, &head[16], 8);
        if (length < 20 || !Read(length - 20, &frame.body)) return std::nullopt;
        return frame;
    }
    // The code of the answer to a request; nothing when the other side has hung up.
    std::optional<uint32_t> Ask(uint32_t code, int32_t token = -1) {
        if (!Send(RawFrame::Request(++fRequest, BMessage(code), token))) return std::nullopt;
        const auto answer = Receive();
        if (!answer) return std::nullopt;
        EXPECT_EQ(answer->kind, 3);
        EXPECT_EQ(answer->request, fRequest);
        return answer->Said().what;
    }
    bool HangsUp() {
        Bytes ignored;
        return !Read(1, &ignored);
    }
    void Close() { fSocket.Reset(); }

private:
    bool Read(size_t size, Bytes* bytes) {
        bytes->resize(size);
        for (size_t have = 0; have < size;) {
            pollfd waiting{fSocket.Get(), POLLIN, 0};
            if (::poll(&waiting, 1, 20000) != 1) {
                ADD_FAILURE() << "nothing came";
                return false;
            }
            const ssize_t count = ::recv(fSocket.Get(), bytes->data() + have, size - have, 0);
            if (count <= 0) return false;
            have += static_cast<size_t>(count);
        }
        return true;
    }

    kit::UniqueFd fSocket;
    uint64_t fRequest = 1000;
};

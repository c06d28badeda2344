// A peer that speaks the wire protocol by itself, byte by byte, so that a test can say and hear
// anything on a real socket. It knows BMessage for the bodies and nothing else of the kit.
//
// One thread: it reads while a test waits for something, so a peer that nobody waits on is deaf.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kit/message/BMessage.h"
#include "kit/support/UniqueFd.h"

namespace tests {

class ScriptedPeer {
public:
    static constexpr std::chrono::seconds kPatience{10};
    enum Kind : uint8_t { kMessage = 1, kRequest = 2, kAnswer = 3 };
    enum class Identity {
        ThisProcess,
        NewProcess,  // a child that only lends its process id, so that there can be several peers
    };
    struct Arrived {
        Kind kind;
        int32_t token;
        uint64_t request;
        BMessage message;
    };

    // Connects to the socket of a team; fails the test when that cannot be done.
    ScriptedPeer(const std::string& runDirectory, int32_t team,
                 Identity identity = Identity::ThisProcess) {
        const std::string path = SocketPath(runDirectory, team);
        if (identity == Identity::ThisProcess) {
            fSocket = ConnectTo(path);
            fTeam = ::getpid();
        } else {
            ConnectAsChild(path);
        }
        EXPECT_TRUE(fSocket.IsOpen()) << "cannot connect to " << path;
    }
    ~ScriptedPeer() { Close(); }

    static bool CanConnect(const std::string& runDirectory, int32_t team) {
        return ConnectTo(SocketPath(runDirectory, team)).IsOpen();
    }

    int32_t Team() const { return fTeam; }
    // A messenger of this peer: what the server sends there arrives with that token.
    BMessenger Self(int32_t token) const { return {fTeam, token}; }
    bool IsClosed() const { return fClosed; }

    // Ends the connection, and the lent process.
    void Close() {
        fSocket.Reset();
        fClosed = true;
        fLease.Reset();
        if (fChild > 0) ::waitpid(std::exchange(fChild, 0), nullptr, 0);
    }

    void SendBytes(const void* data, size_t size) {
        const auto* at = static_cast<const char*>(data);
        while (size > 0 && fSocket.IsOpen()) {
            const ssize_t sent = ::send(fSocket.Get(), at, size, MSG_NOSIGNAL);
            if (sent <= 0) return;
            at += sent;
            size -= static_cast<size_t>(sent);
        }
    }
    void SendFrame(Kind kind, const BMessage& message, int32_t token, uint64_t request) {
        const Bytes body = message.Flatten();
        Bytes frame(24);
        const auto put = [&](size_t at, const auto& value) {
            std::memcpy(frame.data() + at, &value, sizeof value);
        };
        put(0, static_cast<uint32_t>(20 + body.size()));
        put(4, static_cast<uint32_t>(kind));
        put(8, fTeam);
        put(12, token);
        put(16, request);
        frame.insert(frame.end(), body.begin(), body.end());
        SendBytes(frame.data(), frame.size());
    }
    void Send(const BMessage& message) { SendFrame(kMessage, message, -1, 0); }
    void Answer(const Arrived& question, const BMessage& answer) {
        SendFrame(kAnswer, answer, 0, question.request);
    }

    // Asks and waits; a code of 0 and a failed test when no answer comes in time.
    BMessage Ask(const BMessage& question, std::chrono::milliseconds patience = kPatience) {
        const uint64_t number = ++fLastRequest;
        SendFrame(kRequest, question, -1, number);
        auto answer = Take(patience, [&](const Arrived& arrived) {
            return arrived.kind == kAnswer && arrived.request == number;
        });
        EXPECT_TRUE(answer) << "no answer to " << CodeText(question.what);
        return answer ? std::move(answer->message) : BMessage();
    }

    // The first message or request with the code, taken out of what has arrived. Fails the test
    // when none comes in time.
    using Condition = std::function<bool(const BMessage&)>;
    Arrived WaitFor(uint32_t code, const Condition& condition = {},
                    std::chrono::milliseconds patience = kPatience) {
        auto found = Take(patience, [&](const Arrived& arrived) {
            return arrived.kind != kAnswer && arrived.message.what == code &&
                   (!condition || condition(arrived.message));
        });
        EXPECT_TRUE(found) << "waited in vain for " << CodeText(code);
        return found ? std::move(*found) : Arrived{};
    }
    // Whether one is there after everything that the other side sent before answering a question.
    bool Has(uint32_t code, const Condition& condition = {}) {
        Ask(BMessage("what"_code));
        for (const auto& arrived : fArrived) {
            if (arrived.message.what == code && (!condition || condition(arrived.message)))
                return true;
        }
        return false;
    }
    // Called for every request that arrives; what it returns is the answer.
    void SetAnswers(std::function<std::optional<BMessage>(const BMessage&)> answers) {
        fAnswers = std::move(answers);
    }
    // Everything that has arrived and was not taken.
    const std::deque<Arrived>& Pending() const { return fArrived; }
    bool WaitForClose(std::chrono::milliseconds patience = kPatience) {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!fClosed && Read(end)) {
        }
        return fClosed;
    }

private:
    static std::string SocketPath(const std::string& runDirectory, int32_t team) {
        return runDirectory + "/team-" + std::to_string(team) + ".sock";
    }
    static kit::UniqueFd ConnectTo(const std::string& path) {
        kit::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        const auto* raw = reinterpret_cast<const sockaddr*>(&address);
        if (::connect(fd.Get(), raw, sizeof address) != 0) fd.Reset();
        return fd;
    }

    // The other side sees the process that connected, so a child connects and hands the socket
    // over.
    void ConnectAsChild(const std::string& path) {
        int pair[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return;
        fChild = ::fork();
        char byte = 0;
        iovec part{&byte, 1};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        if (fChild == 0) {
            ::close(pair[0]);
            int socket = ConnectTo(path).Release();
            cmsghdr* rights = CMSG_FIRSTHDR(&header);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(sizeof(int));
            std::memcpy(CMSG_DATA(rights), &socket, sizeof socket);
            if (socket < 0) header.msg_controllen = 0;
            ::sendmsg(pair[1], &header, MSG_NOSIGNAL);
            ::close(socket);
            while (::read(pair[1], &byte, 1) > 0) {
            }
            ::_exit(0);
        }
        ::close(pair[1]);
        fLease = kit::UniqueFd(pair[0]);
        fTeam = fChild;
        if (::recvmsg(pair[0], &header, MSG_CMSG_CLOEXEC) <= 0) return;
        if (const cmsghdr* rights = CMSG_FIRSTHDR(&header)) {
            int socket = -1;
            std::memcpy(&socket, CMSG_DATA(rights), sizeof socket);
            fSocket = kit::UniqueFd(socket);
        }
    }

    std::optional<Arrived> Take(std::chrono::milliseconds patience,
                                const std::function<bool(const Arrived&)>& wanted) {
        const auto end = std::chrono::steady_clock::now() + patience;
        for (size_t seen = 0;;) {
            for (; seen < fArrived.size(); ++seen) {
                if (!wanted(fArrived[seen])) continue;
                Arrived found = std::move(fArrived[seen]);
                fArrived.erase(fArrived.begin() + static_cast<ptrdiff_t>(seen));
                return found;
            }
            if (fClosed || !Read(end)) return std::nullopt;
        }
    }

    // Waits for bytes and takes the frames out of them; false when the time is over.
    bool Read(std::chrono::steady_clock::time_point end) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd wait{fSocket.Get(), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&wait, 1, static_cast<int>(left.count())) <= 0)
            return false;
        uint8_t buffer[65536];
        const ssize_t got = ::recv(fSocket.Get(), buffer, sizeof buffer, 0);
        if (got <= 0) {
            fClosed = true;
            return true;
        }
        fInput.insert(fInput.end(), buffer, buffer + got);
        size_t at = 0;
        uint32_t length = 0;
        while (fInput.size() - at >= 4) {
            std::memcpy(&length, fInput.data() + at, 4);
            if (fInput.size() - at < 4 + size_t{length}) break;
            TakeFrame({fInput.data() + at + 4, length});
            at += 4 + size_t{length};
        }
        fInput.erase(fInput.begin(), fInput.begin() + static_cast<ptrdiff_t>(at));
        return true;
    }
    void TakeFrame(std::span<const uint8_t> frame) {
        ASSERT_GE(frame.size(), 20u);
        Arrived arrived{};
        std::memcpy(&arrived.kind, frame.data(), 1);
        std::memcpy(&arrived.token, frame.data() + 8, 4);
        std::memcpy(&arrived.request, frame.data() + 12, 8);
        auto message = BMessage::Unflatten(frame.subspan(20));
        ASSERT_TRUE(message) << "the body is no message";
        arrived.message = std::move(*message);
        if (arrived.kind == kRequest && fAnswers) {
            if (auto answer = fAnswers(arrived.message)) Answer(arrived, *answer);
        }
        fArrived.push_back(std::move(arrived));
    }

    kit::UniqueFd fSocket, fLease;
    pid_t fChild = 0;
    int32_t fTeam = 0;
    bool fClosed = false;
    uint64_t fLastRequest = 0;
    Bytes fInput;
    std::deque<Arrived> fArrived;
    std::function<std::optional<BMessage>(const BMessage&)> fAnswers;
};

}  // namespace tests

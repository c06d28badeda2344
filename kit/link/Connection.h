// One socket to another team: what has arrived of its frames, what waits to be sent, and the
// questions that are open on it. The connection thread only.
#pragma once

#include <sys/socket.h>

#include <deque>
#include <unordered_map>

#include "kit/link/Frame.h"
#include "kit/message/BMessenger.h"
#include "kit/support/UniqueFd.h"

namespace kit {

class Connection {
public:
    // What may wait behind the frame that is being sent.
    static constexpr size_t kMostWaiting = 64 << 20;

    Connection(uint64_t id, int32_t team, UniqueFd socket)
        : fId(id), fTeam(team), fSocket(std::move(socket)) {}

    uint64_t Id() const { return fId; }
    int32_t Team() const { return fTeam; }
    int Socket() const { return fSocket.Get(); }

    enum class Read {
        Some,   // there may be more
        All,    // nothing more for now
        Ended,  // hung up or broken
    };
    // Reads once. What came is then taken from Frames().
    Read ReadSome();
    FrameParser& Frames() { return fFrames; }

    void Queue(Bytes frame);
    // Sends what the socket takes; false when it is broken for sending.
    bool WriteSome();
    bool IsWriting() const { return !fOut.empty(); }
    bool IsOverfull() const;
    void DropOutgoing();

    std::unordered_map<uint64_t, BMessenger::AnswerFunction>& OpenRequests() { return fRequests; }

    bool established = false;  // connect() was through
    bool watchesOut = false;   // epoll tells when there is room

private:
    const uint64_t fId;
    const int32_t fTeam;
    UniqueFd fSocket;
    FrameParser fFrames;
    std::deque<Bytes> fOut;
    size_t fSent = 0;     // of the first in fOut
    size_t fOutSize = 0;  // of all in fOut, sent part included
    std::unordered_map<uint64_t, BMessenger::AnswerFunction> fRequests;
};

}  // namespace kit

// One message on a connection between processes: the header before it, and the reading of a stream
// of such frames. Pure: no socket, no thread. docs/protocol.md has the byte table.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "kit/message/BMessage.h"

namespace kit {

enum class FrameKind : uint8_t { Message = 1, Request = 2, Answer = 3 };

struct FrameHeader {
    FrameKind kind = FrameKind::Message;
    int32_t sender = 0;
    int32_t token = 0;     // 0 in an answer
    uint64_t request = 0;  // 0 in a message
};

inline constexpr size_t kFrameLengthSize = 4;
inline constexpr size_t kFrameHeaderSize = 24;           // the length included
inline constexpr uint32_t kMaxFrameLength = 256u << 20;  // what the length may say

// The whole frame. Empty when its length would be above `most`.
Bytes BuildFrame(const FrameHeader& header, const BMessage& message,
                 uint32_t most = kMaxFrameLength);

// Cuts a stream into frames. It takes memory only for bytes that have arrived, whatever a length
// claims.
class FrameParser {
public:
    struct Frame {
        FrameHeader header;
        std::span<const uint8_t> body;  // until the next call of Room
    };
    enum class Step { Frame, NeedsMore, Malformed };

    // Where the next bytes of the stream go; tell by Filled how many came.
    std::span<uint8_t> Room();
    void Filled(size_t count);
    // The next whole frame. After Malformed the stream is of no use any more.
    Step Next(Frame* frame);

private:
    struct Free {
        void operator()(uint8_t* memory) const { std::free(memory); }
    };
    size_t Have() const { return fEnd - fBegin; }
    void Resize(size_t size);

    // Not a vector: growing neither clears nor, for large frames, copies what is there.
    std::unique_ptr<uint8_t, Free> fBuffer;
    size_t fSize = 0;
    size_t fBegin = 0;  // of what was not yet given out
    size_t fEnd = 0;    // of what has arrived
};

}  // namespace kit

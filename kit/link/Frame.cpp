#include "kit/link/Frame.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kit {

namespace {

constexpr size_t kRoom = 64 << 10;
constexpr size_t kKeep = 1 << 20;  // a larger buffer is given back once it is empty

template <class T>
T Read(const uint8_t* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

}  // namespace

Bytes BuildFrame(const FrameHeader& header, const BMessage& message, uint32_t most) {
    const size_t whole = kFrameHeaderSize + message.FlattenedSize();
    Bytes frame;
    if (whole - kFrameLengthSize > most) return frame;
    frame.reserve(whole);
    frame.resize(kFrameHeaderSize);
    const auto length = static_cast<uint32_t>(whole - kFrameLengthSize);
    std::memcpy(frame.data(), &length, 4);
    frame[4] = static_cast<uint8_t>(header.kind);
    std::memcpy(frame.data() + 8, &header.sender, 4);
    std::memcpy(frame.data() + 12, &header.token, 4);
    std::memcpy(frame.data() + 16, &header.request, 8);
    message.FlattenTo(frame);
    return frame;
}

std::span<uint8_t> FrameParser::Room() {
    if (fBegin == fEnd) {
        fBegin = fEnd = 0;
        if (fSize > kKeep) Resize(kRoom);
    }
    if (fSize - fEnd < kRoom / 2) {
        if (fBegin > 0) std::memmove(fBuffer.get(), fBuffer.get() + fBegin, Have());
        fEnd = Have();
        fBegin = 0;
        // Grows with what has arrived, never with what was announced.
        if (fSize - fEnd < kRoom / 2) Resize(std::max(kRoom, 2 * fSize));
    }
    return {fBuffer.get() + fEnd, fSize - fEnd};
}

void FrameParser::Resize(size_t size) {
    void* const grown = std::realloc(fBuffer.get(), size);
    if (!grown) throw std::bad_alloc();
    [[maybe_unused]] const auto* former = fBuffer.release();
    fBuffer.reset(static_cast<uint8_t*>(grown));
    fSize = size;
}

void FrameParser::Filled(size_t count) {
    fEnd += count;
}

FrameParser::Step FrameParser::Next(Frame* frame) {
    const uint8_t* at = fBuffer.get() + fBegin;
    if (Have() < kFrameLengthSize) return Step::NeedsMore;
    const auto length = Read<uint32_t>(at);
    if (length > kMaxFrameLength || length < kFrameHeaderSize - kFrameLengthSize) {
        return Step::Malformed;
    }
    if (Have() < kFrameHeaderSize) return Step::NeedsMore;
    // The header is judged before its body is waited for.
    const uint8_t kind = at[4];
    if (kind < 1 || kind > 3 || at[5] != 0 || at[6] != 0 || at[7] != 0) return Step::Malformed;
    FrameHeader& header = frame->header;
    header.kind = static_cast<FrameKind>(kind);
    header.sender = Read<int32_t>(at + 8);
    header.token = Read<int32_t>(at + 12);
    header.request = Read<uint64_t>(at + 16);
    if (header.kind == FrameKind::Answer && header.token != 0) return Step::Malformed;
    if (header.kind == FrameKind::Message && header.request != 0) return Step::Malformed;
    if (Have() < kFrameLengthSize + length) return Step::NeedsMore;
    frame->body = {at + kFrameHeaderSize, kFrameLengthSize + length - kFrameHeaderSize};
    fBegin += kFrameLengthSize + length;
    return Step::Frame;
}

}  // namespace kit

// A stream gives the same frames in whatever pieces it comes: the first byte says how it is cut.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kit/link/Frame.h"

namespace {

struct Seen {
    kit::FrameHeader header;
    Bytes body;
};

struct Outcome {
    std::vector<Seen> frames;
    bool malformed = false;
};

void Require(bool condition) {
    if (!condition) std::abort();
}

Outcome Parse(std::span<const uint8_t> stream, size_t piece) {
    Outcome outcome;
    kit::FrameParser parser;
    while (!stream.empty()) {
        const auto room = parser.Room();
        Require(!room.empty());
        const size_t count = std::min({room.size(), stream.size(), piece});
        std::memcpy(room.data(), stream.data(), count);
        parser.Filled(count);
        stream = stream.subspan(count);
        kit::FrameParser::Frame frame;
        kit::FrameParser::Step step;
        while ((step = parser.Next(&frame)) == kit::FrameParser::Step::Frame) {
            outcome.frames.push_back({frame.header, Bytes(frame.body.begin(), frame.body.end())});
        }
        if (step == kit::FrameParser::Step::Malformed) {
            outcome.malformed = true;
            break;
        }
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::span<const uint8_t> stream(data + 1, size - 1);
    const Outcome whole = Parse(stream, stream.size());
    const Outcome pieces = Parse(stream, size_t{data[0]} + 1);
    Require(whole.malformed == pieces.malformed);
    Require(whole.frames.size() == pieces.frames.size());
    for (size_t i = 0; i < whole.frames.size(); ++i) {
        const Seen& one = whole.frames[i];
        const Seen& other = pieces.frames[i];
        Require(one.header.kind == other.header.kind && one.header.sender == other.header.sender &&
                one.header.token == other.header.token &&
                one.header.request == other.header.request && one.body == other.body);
        if (const auto message = BMessage::Unflatten(one.body)) {
            const Bytes built = kit::BuildFrame(one.header, *message);
            const Outcome again = Parse(built, built.size());
            Require(again.frames.size() == 1 && !again.malformed);
        }
    }
    return 0;
}

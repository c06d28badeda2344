#include "kit/link/Frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

using kit::FrameKind;
using kit::FrameParser;

void Feed(FrameParser* parser, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto room = parser->Room();
        const size_t count = std::min(room.size(), bytes.size());
        std::memcpy(room.data(), bytes.data(), count);
        parser->Filled(count);
        bytes = bytes.subspan(count);
    }
}

TEST(Frame, LiesAsDescribed) {
    const Bytes frame = kit::BuildFrame({FrameKind::Request, 0x01020304, -2, 0x1112131415161718},
                                        BMessage(0x61626364));
    const Bytes expected{40,   0,    0,    0,    2,    0,    0,    0,    4,    3,    2,
                         1,    0xFE, 0xFF, 0xFF, 0xFF, 0x18, 0x17, 0x16, 0x15, 0x14, 0x13,
                         0x12, 0x11, 'V',  'M',  'S',  '1',  'd',  'c',  'b',  'a',  20,
                         0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0};
    EXPECT_EQ(frame, expected);
    FrameParser parser;
    Feed(&parser, frame);
    FrameParser::Frame read;
    ASSERT_EQ(parser.Next(&read), FrameParser::Step::Frame);
    EXPECT_EQ(read.header.kind, FrameKind::Request);
    EXPECT_EQ(read.header.sender, 0x01020304);
    EXPECT_EQ(read.header.token, -2);
    EXPECT_EQ(read.header.request, 0x1112131415161718u);
    EXPECT_EQ(Bytes(read.body.begin(), read.body.end()), BMessage(0x61626364).Flatten());
    EXPECT_EQ(parser.Next(&read), FrameParser::Step::NeedsMore);
}

TEST(Frame, TooLargeAMessageGivesNone) {
    BMessage message;
    message.Add("text", std::string(100, 'x'));
    const auto length = static_cast<uint32_t>(20 + message.FlattenedSize());
    EXPECT_TRUE(kit::BuildFrame({}, message, length - 1).empty());
    EXPECT_EQ(kit::BuildFrame({}, message, length).size(), length + 4);
}

TEST(Frame, AStreamInRandomPiecesGivesTheSameFrames) {
    std::mt19937 random(7);
    Bytes stream;
    std::vector<BMessage> sent;
    for (int i = 0; i < 60; ++i) {
        BMessage message(random());
        const size_t size = i % 10 == 0 ? random() % 3000000 : random() % 500;
        message.AddData("d", "RAWT"_code, Bytes(size, static_cast<uint8_t>(i)).data(), size);
        const Bytes frame = kit::BuildFrame({FrameKind::Message, 1, i, 0}, message);
        stream.insert(stream.end(), frame.begin(), frame.end());
        sent.push_back(std::move(message));
    }
    for (const size_t most : {size_t{3}, size_t{1000}, size_t{500000}}) {
        FrameParser parser;
        size_t next = 0;
        // Single bytes take long for millions of them; the small pieces come first.
        size_t at = 0;
        while (at < stream.size()) {
            const size_t piece =
                std::min(stream.size() - at, at < 100000 ? 1 + random() % most : size_t{70000});
            Feed(&parser, std::span(stream).subspan(at, piece));
            at += piece;
            FrameParser::Frame frame;
            FrameParser::Step step;
            while ((step = parser.Next(&frame)) == FrameParser::Step::Frame) {
                ASSERT_LT(next, sent.size());
                ASSERT_EQ(frame.header.token, static_cast<int32_t>(next));
                ASSERT_EQ(BMessage::Unflatten(frame.body), sent[next]);
                ++next;
            }
            ASSERT_EQ(step, FrameParser::Step::NeedsMore);
        }
        EXPECT_EQ(next, sent.size());
    }
}

TEST(Frame, RoomGrowsWithWhatHasArrivedOnly) {
    FrameParser parser;
    Bytes head(24);
    const uint32_t length = kit::kMaxFrameLength;
    std::memcpy(head.data(), &length, 4);
    head[4] = 1;
    Feed(&parser, head);
    FrameParser::Frame frame;
    EXPECT_EQ(parser.Next(&frame), FrameParser::Step::NeedsMore);
    size_t have = head.size();
    const Bytes more(50000);
    while (have < 10u << 20) {
        EXPECT_LE(parser.Room().size(), 2 * have + (128 << 10));
        Feed(&parser, more);
        have += more.size();
        ASSERT_EQ(parser.Next(&frame), FrameParser::Step::NeedsMore);
    }
}

}  // namespace

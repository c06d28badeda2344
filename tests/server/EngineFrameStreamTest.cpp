// The stream of frames: order, cuts, bounds, ends.
#include <gtest/gtest.h>
#include <xxhash.h>

#include <random>
#include <thread>

#include "server/archive/Format.h"
#include "server/engine/FrameStream.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

using archive::kFrameSize;

// Takes a random while, so that frames overtake each other.
class Dawdling : public KTCruncherContext {
public:
    kit::Status Compress(std::span<const uint8_t> in, Bytes* out) override {
        thread_local std::mt19937 random(std::random_device{}());
        for (unsigned i = random() % 500; i > 0; --i)
            std::this_thread::yield();
        if (in[0] == 0xEE) return kit::Error::Make(kit::ErrorKind::Io, "", "as the test wants");
        if (in[0] == 0xEF) throw std::bad_alloc();
        out->assign(in.begin(), in.end());
        return {};
    }
    kit::Status Decompress(std::span<const uint8_t>, size_t, Bytes*) override { return {}; }
};

struct Collected {
    std::vector<size_t> sizes;
    Bytes all;
    FrameStream::Sink Sink() {
        return [this](const FrameStream::PackedFrame& frame) -> kit::Status {
            EXPECT_EQ(frame.number, static_cast<int64_t>(sizes.size()));
            EXPECT_EQ(frame.hash, XXH3_64bits(frame.packed.data(), frame.packed.size()));
            sizes.push_back(frame.content);
            all.insert(all.end(), frame.packed.begin(), frame.packed.end());
            return {};
        };
    }
};

std::unique_ptr<KTCruncherContext> Contexts() {
    return std::make_unique<Dawdling>();
}

TEST(EngineFrameStream, KeepsOrderAndBytes) {
    for (int workers : {1, 2, 7}) {
        Control control;
        Collected collected;
        Bytes wanted;
        {
            FrameStream stream(Contexts, collected.Sink(), control, workers);
            std::mt19937 random(4711);
            while (wanted.size() < 12 * kFrameSize) {
                Bytes piece(random() % 3'000'000, static_cast<uint8_t>(random() % 200));
                const auto place = stream.Begin(piece.size());
                ASSERT_TRUE(stream.Write(piece));
                EXPECT_LE(place.offset, static_cast<int64_t>(kFrameSize));
                wanted.insert(wanted.end(), piece.begin(), piece.end());
            }
            EXPECT_EQ(stream.Written(), static_cast<int64_t>(wanted.size()));
            ASSERT_TRUE(stream.Finish());
        }
        EXPECT_TRUE(collected.all == wanted) << workers;
        for (size_t size : collected.sizes)
            EXPECT_LE(size, kFrameSize);
    }
}

TEST(EngineFrameStream, CutsBeforeAnEntryThatBeginsLateAndDoesNotFit) {
    Control control;
    Collected collected;
    FrameStream stream(Contexts, collected.Sink(), control, 2);
    const size_t quarter = kFrameSize / 4;
    auto begin = [&](size_t size) {
        const auto place = stream.Begin(size);
        EXPECT_TRUE(stream.Write(Bytes(size, 1)));
        return std::pair(place.frame, place.offset);
    };
    const auto q = static_cast<int64_t>(quarter);
    EXPECT_EQ(begin(quarter), std::pair(int64_t{0}, int64_t{0}));
    EXPECT_EQ(begin(quarter), std::pair(int64_t{0}, q));
    EXPECT_EQ(begin(quarter), std::pair(int64_t{0}, 2 * q));
    EXPECT_EQ(begin(quarter), std::pair(int64_t{0}, 3 * q)) << "fits to the last byte";
    EXPECT_EQ(begin(quarter), std::pair(int64_t{1}, int64_t{0}));
    EXPECT_EQ(begin(2 * quarter), std::pair(int64_t{1}, q));
    EXPECT_EQ(begin(quarter + 1), std::pair(int64_t{2}, int64_t{0})) << "begins late, does not fit";
    EXPECT_EQ(begin(10 * quarter), std::pair(int64_t{2}, q + 1))
        << "begins early: goes on in the next";
    ASSERT_TRUE(stream.Finish());
    EXPECT_EQ(collected.sizes[1], 3 * quarter);
}

TEST(EngineFrameStream, TakesBackWithinAFrameOnly) {
    Control control;
    Collected collected;
    FrameStream stream(Contexts, collected.Sink(), control, 1);
    ASSERT_TRUE(stream.Write(Bytes(1000, 1)));
    const auto place = stream.Begin(10);
    ASSERT_TRUE(stream.Write(Bytes(5000, 2)));
    EXPECT_TRUE(stream.TakeBack(place));
    ASSERT_TRUE(stream.Write(Bytes(kFrameSize, 3)));
    EXPECT_FALSE(stream.TakeBack(place));
    ASSERT_TRUE(stream.Finish());
    Bytes wanted(1000, 1);
    wanted.insert(wanted.end(), kFrameSize, 3);
    EXPECT_TRUE(collected.all == wanted);
}

TEST(EngineFrameStream, NothingWrittenIsNoFrame) {
    Control control;
    Collected collected;
    FrameStream stream(Contexts, collected.Sink(), control, 2);
    EXPECT_TRUE(stream.Finish());
    EXPECT_TRUE(collected.sizes.empty());
}

TEST(EngineFrameStream, FailuresEndTheFillerAndAreTold) {
    for (uint8_t bad : {0xEE, 0xEF, 0}) {
        Control control;
        int taken = 0;
        FrameStream stream(
            Contexts,
            [&](const FrameStream::PackedFrame&) -> kit::Status {
                if (bad == 0 && ++taken == 3) return kit::Error::Make(kit::ErrorKind::Full, "");
                return {};
            },
            control, 2);
        int64_t written = 0;
        while (written < 1'000 * static_cast<int64_t>(kFrameSize) &&
               stream.Write(Bytes(kFrameSize, written == 0 ? bad : 1))) {
            written = stream.Written();
        }
        EXPECT_LT(written, 20 * static_cast<int64_t>(kFrameSize));
        const kit::Status status = stream.Finish();
        ASSERT_FALSE(status);
        EXPECT_EQ(status.error().kind, bad == 0 ? kit::ErrorKind::Full : kit::ErrorKind::Io);
    }
}

TEST(EngineFrameStream, AbortEndsAFillerThatWaits) {
    Control control;
    std::atomic<bool> stuck = false, go = false;
    FrameStream stream(
        Contexts,
        [&](const FrameStream::PackedFrame&) -> kit::Status {
            stuck = true;
            while (!go)
                std::this_thread::yield();
            return {};
        },
        control, 1);
    std::thread aborter([&] {
        while (!stuck)
            std::this_thread::yield();
        control.aborted = true;
    });
    while (stream.Write(Bytes(kFrameSize, 1))) {
    }
    aborter.join();
    go = true;
    const kit::Status status = stream.Finish();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, kit::ErrorKind::Aborted);
}

TEST(EngineFrameStream, EndsInTheMiddleOfEverything) {
    for (int i = 0; i < 20; ++i) {
        Control control;
        Collected collected;
        FrameStream stream(Contexts, collected.Sink(), control, 3);
        for (int k = 0; k < i; ++k)
            stream.Write(Bytes(kFrameSize / 2, 1));
    }
}

}  // namespace
}  // namespace server

// What every compressor must do.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <thread>

#include "addons/KTCruncher.h"
#include "kit/app/BHandler.h"
#include "tests/TemporaryFolder.h"
#include "tests/addons/AddOnLoader.h"

namespace {

constexpr size_t kLimit = size_t{64} << 20;

Bytes Noise(size_t size) {
    std::mt19937_64 random(4711);
    Bytes bytes(size);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

Bytes Prose(size_t size) {
    const std::string words =
        "All happy families are alike; each unhappy family is unhappy in its own way. ";
    Bytes bytes;
    while (bytes.size() < size)
        bytes.insert(bytes.end(), words.begin(), words.end());
    bytes.resize(size);
    return bytes;
}

Bytes FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What a shell command leaves in "o" of a folder of its own.
Bytes Made(const std::string& command) {
    const TemporaryFolder folder;
    EXPECT_EQ(std::system(("cd " + folder.Path() + " && " + command + " > o").c_str()), 0);
    return FileBytes(folder / "o");
}

std::unique_ptr<KTCruncher> Load(const std::string& addOn) {
    auto compressor = LoadAddOn<KTCruncher>("compressors/" + addOn, "instantiate_ktcruncher");
    if (!compressor) throw std::runtime_error("cannot load " + addOn);
    return compressor;
}

}  // namespace

class Compressor : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        fCompressor = Load(GetParam());
        fCompressor->SetSettings(BMessage());
    }
    std::unique_ptr<KTCruncher> fCompressor;
};

INSTANTIATE_TEST_SUITE_P(All, Compressor, testing::Values("KTNone", "KTZstd", "KTLz4", "KTXz"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(Compressor, GivesBackWhatItGot) {
    auto context = fCompressor->NewContext();
    ASSERT_TRUE(context);
    // One context for all, large and small in turn: nothing may be left over from the frame before.
    for (const Bytes& content :
         {Prose(4 << 20), Bytes{}, Noise(4 << 20), Prose(1), Noise(100'000)}) {
        Bytes frame{1, 2, 3}, back{4, 5, 6};
        ASSERT_TRUE(context->Compress(content, &frame));
        ASSERT_TRUE(context->Decompress(frame, kLimit, &back));
        EXPECT_TRUE(back == content) << content.size();
    }
}

TEST_P(Compressor, JoinedFramesUnpackWithTheStockCommand) {
    const TemporaryFolder folder;
    auto context = fCompressor->NewContext();
    Bytes packed, all;
    for (const Bytes& content : {Prose(3'000'000), Noise(10'000), Prose(1)}) {
        Bytes frame;
        ASSERT_TRUE(context->Compress(content, &frame));
        packed.insert(packed.end(), frame.begin(), frame.end());
        all.insert(all.end(), content.begin(), content.end());
    }
    const std::string file = folder.Write("packed", std::string(packed.begin(), packed.end()));
    std::string command = fCompressor->StockCommand();
    EXPECT_EQ(command.empty(), std::string(fCompressor->Suffix()).empty());
    if (command.empty()) command = "cat";
    EXPECT_TRUE(Made(command + " < " + file) == all);
}

TEST_P(Compressor, RefusesMoreThanTheLimit) {
    auto context = fCompressor->NewContext();
    Bytes frame, back;
    ASSERT_TRUE(context->Compress(Prose(100'000), &frame));
    const kit::Status status = context->Decompress(frame, 99'999, &back);
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, kit::ErrorKind::TooLarge);
    EXPECT_TRUE(context->Decompress(frame, 100'000, &back));
}

TEST_P(Compressor, TakesDamagedFramesForDamaged) {
    if (std::string(fCompressor->Suffix()).empty()) GTEST_SKIP() << "has no frames of its own";
    auto context = fCompressor->NewContext();
    const Bytes content = Prose(50'000);
    Bytes good, back;
    ASSERT_TRUE(context->Compress(content, &good));
    auto refused = [&](const Bytes& frame, const std::string& what) {
        const kit::Status status = context->Decompress(frame, kLimit, &back);
        EXPECT_FALSE(status) << what;
        if (!status) {
            EXPECT_TRUE(status.error().kind == kit::ErrorKind::Damaged ||
                        status.error().kind == kit::ErrorKind::TooLarge)
                << what;
        }
    };
    for (size_t length = 0; length < good.size(); ++length) {
        refused(Bytes(good.begin(), good.begin() + static_cast<ptrdiff_t>(length)), "cut");
    }
    for (size_t at = 0; at < good.size(); ++at) {
        Bytes bad = good;
        bad[at] ^= 0x10;
        // A flip may do no harm at all, in an unused bit; what it must never do is give other
        // content.
        if (context->Decompress(bad, kLimit, &back)) {
            EXPECT_TRUE(back == content) << at;
        }
    }
    Bytes twice = good;
    twice.insert(twice.end(), good.begin(), good.end());
    refused(twice, "two frames");
    Bytes more = good;
    more.push_back(0);
    refused(more, "a byte too many");
    refused(Noise(1000), "noise");
    // And none of it spoils the context.
    ASSERT_TRUE(context->Decompress(good, kLimit, &back));
    EXPECT_TRUE(back == content);
}

TEST_P(Compressor, WorksOnSeveralThreadsAtOnce) {
    const Bytes content = Prose(1'000'000);
    std::vector<std::thread> threads;
    threads.reserve(4);
    std::atomic<int> good = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            auto context = fCompressor->NewContext();
            Bytes frame, back;
            if (context->Compress(content, &frame) && context->Decompress(frame, kLimit, &back) &&
                back == content) {
                ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 4);
}

TEST_P(Compressor, KeepsItsSettings) {
    BMessage archived;
    EXPECT_EQ(fCompressor->Archive(&archived, true), 0);
    EXPECT_EQ(archived.Get<std::string>("addon", ""), GetParam());
    fCompressor->SetSettings(archived);
    BMessage again;
    fCompressor->Archive(&again, true);
    EXPECT_EQ(archived, again);
    EXPECT_STRNE(fCompressor->MenuName(), "");
    EXPECT_STRNE(fCompressor->Description(), "");
    WindowHost host;
    fCompressor->ShowSettings(&host, BMessenger(), "English");
    EXPECT_EQ(host.owner != nullptr, fCompressor->HasSettings());
    fCompressor->ShowSettings(nullptr, BMessenger(), nullptr);
}

struct Levels {
    const char* addOn;
    int32_t least, most, usual;
    const char* mostText;
};

class LevelCompressor : public testing::TestWithParam<Levels> {};
INSTANTIATE_TEST_SUITE_P(All, LevelCompressor,
                         testing::Values(Levels{"KTZstd", 1, 19, 3, "zstd, level 19"},
                                         Levels{"KTLz4", 1, 12, 1, "lz4, level 12"},
                                         Levels{"KTXz", 0, 9, 3, "xz, level 9"}),
                         [](const auto& info) { return std::string(info.param.addOn); });

TEST_P(LevelCompressor, ChecksItsLevel) {
    const auto [addOn, least, most, usual, mostText] = GetParam();
    const auto compressor = Load(addOn);
    auto level = [&] {
        BMessage settings;
        compressor->Archive(&settings, true);
        return settings.Get<int32_t>("level", -1);
    };
    EXPECT_EQ(level(), usual);
    auto apply = [&](int32_t wanted) {
        BMessage values;
        values.Add("level", wanted);
        std::string problem;
        const bool taken = compressor->ApplySettings(values, BMessenger(), &problem);
        EXPECT_EQ(taken, problem.empty());
        return taken;
    };
    EXPECT_TRUE(apply(least));
    EXPECT_TRUE(apply(most));
    EXPECT_EQ(level(), most);
    EXPECT_STREQ(compressor->Description(), mostText);
    EXPECT_FALSE(apply(least - 1));
    EXPECT_FALSE(apply(most + 1));
    EXPECT_EQ(level(), most);
    BMessage foreign;
    foreign.Add("level", int32_t{1000});
    compressor->SetSettings(foreign);
    EXPECT_EQ(level(), most);
    compressor->SetSettings(BMessage());
    EXPECT_EQ(level(), usual);
}

// A higher level is worth its time: smaller frames, of what the lowest level unpacks as well.
TEST_P(LevelCompressor, PacksDenserAtItsHighestLevel) {
    const auto [addOn, least, most, usual, mostText] = GetParam();
    const auto compressor = Load(addOn);
    Bytes content;  // alike in many places, over distances of some 100 KiB
    const Bytes noise = Noise(300'000);
    for (size_t i = 0; content.size() < 2'000'000; ++i) {
        const size_t at = i * 7919 % 290'000, size = 20 + i * 31 % 400;
        content.insert(content.end(), noise.begin() + static_cast<ptrdiff_t>(at),
                       noise.begin() + static_cast<ptrdiff_t>(at + size));
    }
    auto packed = [&, addOn = addOn](int32_t level) {
        BMessage settings;
        settings.Add("level", level);
        compressor->SetSettings(settings);
        Bytes frame;
        EXPECT_TRUE(compressor->NewContext()->Compress(content, &frame)) << addOn;
        return frame;
    };
    const Bytes low = packed(least), high = packed(most);
    EXPECT_LT(high.size(), low.size());
    for (const Bytes& frame : {low, high}) {
        Bytes back;
        ASSERT_TRUE(compressor->NewContext()->Decompress(frame, kLimit, &back));
        EXPECT_TRUE(back == content);
    }
}

// What the stock tools make is read too, whole frames of known size at least; one that lies about
// its size, or tells none, is refused before it takes memory.
TEST(Lz4, ReadsOnlyFramesOfTheStockToolWithTheirSize) {
    const TemporaryFolder folder;
    const Bytes content = Prose(300'000);
    const std::string file = folder.Write("in", std::string(content.begin(), content.end()));
    const auto frame = [&](const std::string& options) {
        return Made("lz4 -qc " + options + " " + file);
    };
    const auto context = Load("KTLz4")->NewContext();
    Bytes back;
    ASSERT_TRUE(context->Decompress(frame("--content-size -9"), kLimit, &back));
    EXPECT_TRUE(back == content);
    for (const char* options : {"-9", "-l"}) {
        const kit::Status status = context->Decompress(frame(options), kLimit, &back);
        ASSERT_FALSE(status) << options;
        EXPECT_EQ(status.error().kind, kit::ErrorKind::Damaged) << options;
    }
}

TEST(Xz, BoundsTheMemoryOfForeignStreams) {
    const auto stream = [](const std::string& options) {
        return Made("head -c 100000 /dev/zero | xz " + options);
    };
    const auto context = Load("KTXz")->NewContext();
    Bytes back;
    EXPECT_TRUE(context->Decompress(stream("-9"), kLimit, &back));
    EXPECT_EQ(back, Bytes(100'000, 0));
    const kit::Status greedy = context->Decompress(stream("--lzma2=dict=512MiB"), kLimit, &back);
    ASSERT_FALSE(greedy);
    EXPECT_EQ(greedy.error().kind, kit::ErrorKind::TooLarge);
}

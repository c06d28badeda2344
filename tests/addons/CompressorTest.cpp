// What every compressor must do.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <thread>

#include "addons/KTCruncher.h"
#include "kit/app/BHandler.h"
#include "tests/addons/AddOnLoader.h"
#include "tests/addons/TemporaryFolder.h"

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

class Host : public KTSettingsHost {
public:
    void OpenSettings(const BMessage& description, KTSettingsOwner* owner,
                      const BMessenger&) override {
        window = description;
        this->owner = owner;
    }
    BMessage window;
    KTSettingsOwner* owner = nullptr;
};

}  // namespace

class Compressor : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        fCompressor = LoadAddOn<KTCruncher>(std::string("compressors/") + GetParam(),
                                            "instantiate_ktcruncher");
        ASSERT_TRUE(fCompressor);
        fCompressor->SetSettings(BMessage());
    }
    std::unique_ptr<KTCruncher> fCompressor;
};

INSTANTIATE_TEST_SUITE_P(All, Compressor, testing::Values("KTNone", "KTZstd"),
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
    TemporaryFolder folder;
    auto context = fCompressor->NewContext();
    const std::string packed = folder / "file.tar" + fCompressor->Suffix();
    Bytes all;
    {
        std::ofstream out(packed, std::ios::binary);
        for (const Bytes& content : {Prose(3'000'000), Noise(10'000), Prose(1)}) {
            Bytes frame;
            ASSERT_TRUE(context->Compress(content, &frame));
            out.write(reinterpret_cast<const char*>(frame.data()),
                      static_cast<std::streamsize>(frame.size()));
            all.insert(all.end(), content.begin(), content.end());
        }
    }
    std::string command = fCompressor->StockCommand();
    EXPECT_EQ(command.empty(), std::string(fCompressor->Suffix()).empty());
    if (command.empty()) command = "cat";
    const std::string unpacked = folder / "out";
    ASSERT_EQ(std::system((command + " < " + packed + " > " + unpacked).c_str()), 0);
    std::ifstream in(unpacked, std::ios::binary);
    const Bytes got{std::istreambuf_iterator<char>(in), {}};
    EXPECT_TRUE(got == all);
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
    Host host;
    fCompressor->ShowSettings(&host, BMessenger(), "English");
    EXPECT_EQ(host.owner != nullptr, fCompressor->HasSettings());
    fCompressor->ShowSettings(nullptr, BMessenger(), nullptr);
}

TEST(Zstd, ChecksItsLevel) {
    auto zstd = LoadAddOn<KTCruncher>("compressors/KTZstd", "instantiate_ktcruncher");
    ASSERT_TRUE(zstd);
    auto level = [&] {
        BMessage settings;
        zstd->Archive(&settings, true);
        return settings.Get<int32_t>("level", 0);
    };
    EXPECT_EQ(level(), 3);
    auto apply = [&](int32_t wanted) {
        BMessage values;
        values.Add("level", wanted);
        std::string problem;
        const bool taken = zstd->ApplySettings(values, BMessenger(), &problem);
        EXPECT_EQ(taken, problem.empty());
        return taken;
    };
    EXPECT_TRUE(apply(19));
    EXPECT_EQ(level(), 19);
    EXPECT_STREQ(zstd->Description(), "zstd, level 19");
    EXPECT_FALSE(apply(0));
    EXPECT_FALSE(apply(20));
    EXPECT_EQ(level(), 19);
    BMessage foreign;
    foreign.Add("level", int32_t{1000});
    zstd->SetSettings(foreign);
    EXPECT_EQ(level(), 19);
}

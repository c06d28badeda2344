#include "kit/support/KTPulseUtil.h"

#include <atomic>

#include "tests/kit/KitTest.h"

namespace {

class Counter : public BLooper {
public:
    Counter() : BLooper("counter") { Run(); }
    ~Counter() override { Stop(); }
    void MessageReceived(BMessage& message) override {
        if (message.what == "puls"_code) ++pulses;
    }
    std::atomic<int> pulses = 0;
};

TEST(Pulse, ComesAgainAndAgainUntilItIsDeleted) {
    Counter counter;
    {
        KTPulseUtil pulse(1ms, "puls"_code, BMessenger(&counter));
        ASSERT_TRUE(WaitUntil([&] { return counter.pulses >= 5; }));
    }
    BMessage answer;
    BMessenger(&counter).SendMessage(BMessage("sync"_code), &answer);
    const int last = counter.pulses;
    // Several periods of a pulse that still beats show that the deleted one does not.
    Counter second;
    KTPulseUtil still(1ms, "puls"_code, BMessenger(&second));
    ASSERT_TRUE(WaitUntil([&] { return second.pulses >= 5; }));
    EXPECT_EQ(counter.pulses, last);
}

TEST(Pulse, OnceIsOnce) {
    Counter counter;
    KTPulseUtil once(1ms, "puls"_code, BMessenger(&counter), KTPulseUtil::Mode::Once);
    ASSERT_TRUE(WaitUntil([&] { return counter.pulses == 1; }));
    Counter second;
    KTPulseUtil still(1ms, "puls"_code, BMessenger(&second));
    ASSERT_TRUE(WaitUntil([&] { return second.pulses >= 5; }));
    EXPECT_EQ(counter.pulses, 1);
}

TEST(Pulse, ALongPeriodDoesNotHoldUpTheDestructor) {
    Counter counter;
    const auto start = std::chrono::steady_clock::now();
    { const KTPulseUtil pulse(1h, "puls"_code, BMessenger(&counter)); }
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLong);
    EXPECT_EQ(counter.pulses, 0);
}

TEST(Pulse, OutlivesItsTarget) {
    auto counter = std::make_unique<Counter>();
    KTPulseUtil pulse(1ms, "puls"_code, BMessenger(counter.get()));
    ASSERT_TRUE(WaitUntil([&] { return counter->pulses >= 1; }));
    counter.reset();
}

}  // namespace

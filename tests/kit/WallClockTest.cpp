#include "kit/support/WallClock.h"

#include <atomic>

#include "tests/kit/KitTest.h"

namespace {

TEST(WallClock, TheAlarmGoesOffByTheClock) {
    std::atomic<int> woken = 0;
    kit::SystemClock clock([&] { ++woken; });
    // One that has passed, at once; and once.
    clock.SetAlarm(clock.Now() - 1000);
    ASSERT_TRUE(WaitUntil([&] { return woken == 1; }));
    // The next second: it is not early.
    const int64_t at = clock.Now() + 1;
    clock.SetAlarm(at);
    ASSERT_TRUE(WaitUntil([&] { return woken == 2; }));
    EXPECT_GE(clock.Now(), at);
    // One that was taken back does not come, another in its place does.
    clock.SetAlarm(clock.Now() + 1'000'000);
    clock.SetAlarm(std::nullopt);
    clock.SetAlarm(clock.Now());
    ASSERT_TRUE(WaitUntil([&] { return woken == 3; }));
}

}  // namespace

#include "ctl/ScheduleOptions.h"

#include <gtest/gtest.h>

namespace {

using core::Schedule;

constexpr int64_t kHour = 3600, kDay = 24 * kHour;
constexpr int64_t kNow = 20'000 * kDay + 15 * kHour;  // 2024-10-04 15:00, a Friday

const core::Zone kGreenwich([](int64_t) { return 0; });

Schedule Change(const ctl::ScheduleOptions& options, const Schedule& schedule = {}) {
    const auto changed = ctl::Changed(schedule, options, kNow, kGreenwich);
    EXPECT_TRUE(changed.ok());
    return changed.ok() ? *changed : Schedule();
}

TEST(ScheduleOptions, TimesAndDays) {
    EXPECT_EQ(Change({.at = "16:30"}).time, kNow + 90 * 60);
    EXPECT_EQ(Change({.at = "9:00"}).time, kNow + 18 * kHour);  // tomorrow: today it has passed
    EXPECT_EQ(Change({.at = "15:00"}).time, kNow + kDay);
    EXPECT_EQ(Change({.at = "08:00", .on = "2024-10-06"}).time, kNow + 2 * kDay - 7 * kHour);
    // A date alone keeps the time of day, everything else stays as it was.
    const Schedule former{.time = kNow - 3 * kHour, .days = 1, .excluded = 1};
    EXPECT_EQ(Change({.on = "2024-10-06"}, former),
              (Schedule{.time = kNow + 2 * kDay - 3 * kHour, .days = 1, .excluded = 1}));
    EXPECT_EQ(Change({.every = "none"}, former),
              (Schedule{.time = kNow - 3 * kHour, .excluded = 1}));
    EXPECT_EQ(Change({.every = "1week"}),
              (Schedule{.time = kNow, .days = 7}));  // repeats from now on
}

TEST(ScheduleOptions, IntervalsAndWeekdays) {
    const auto every = [](const char* text) { return Change({.every = text}); };
    EXPECT_EQ(every("1month").months, 1);
    EXPECT_EQ(every("2weeks3days").days, 17);
    EXPECT_EQ(every("12hours30minutes").hours, 12);
    EXPECT_EQ(every("12hours30minutes").minutes, 30);
    EXPECT_EQ(Change({.notOn = "sat,sunday"}).excluded, 1 | 1 << 6);
    EXPECT_EQ(Change({.notOn = "none"}, {.excluded = 3}).excluded, 0);
}

TEST(ScheduleOptions, WhatCannotBeMeant) {
    const ctl::ScheduleOptions kWrong[] = {
        {.at = "24:00"},       {.at = "12:60"},           {.at = "12:5"},
        {.at = "noon"},        {.at = "12:00 "},          {.on = "2024-02-30"},
        {.on = "04.10.2024"},  {.on = "1969-12-31"},      {.on = "2107-01-01"},
        {.every = "0days"},    {.every = "week"},         {.every = "1year"},
        {.every = "-1days"},   {.every = "99999999days"}, {.notOn = "su"},
        {.notOn = "sun,,mon"},
    };
    for (const auto& options : kWrong) {
        const auto changed = ctl::Changed({}, options, kNow, kGreenwich);
        EXPECT_FALSE(changed.ok()) << options.at << options.on << options.every << options.notOn;
    }
}

}  // namespace

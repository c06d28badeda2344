// The rules of schedules, against a table of cases and by what must hold for any schedule. The zone
// of most is one with the European summer time, made here: no test depends on the machine's.
#include "core/schedule/Schedule.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/schedule/ScheduleWords.h"

namespace {

using core::Schedule;
using core::Zone;
using std::chrono::days, std::chrono::seconds, std::chrono::sys_days, std::chrono::sys_seconds,
    std::chrono::year_month_day;

constexpr int64_t kHour = 3600;

int64_t Wall(int year, unsigned month, unsigned day, int hour, int minute = 0) {
    return sys_days{std::chrono::year(year) / month / day}.time_since_epoch().count() *
               core::kSecondsOfDay +
           hour * kHour + minute * 60;
}

// Local time is one hour ahead, two from the last Sunday of March to the last one of October, both
// at 01:00 of Greenwich.
int64_t EuropeanOffset(int64_t instant) {
    const year_month_day day{std::chrono::floor<days>(sys_seconds{seconds(instant)})};
    const auto change = [&](std::chrono::month month) {
        return sys_seconds{sys_days{day.year() / month / std::chrono::Sunday[std::chrono::last]}} +
               std::chrono::hours(1);
    };
    const sys_seconds at{seconds(instant)};
    return at >= change(std::chrono::March) && at < change(std::chrono::October) ? 2 * kHour
                                                                                 : kHour;
}

const Zone kEurope(EuropeanOffset);

std::string Text(std::optional<int64_t> instant) {
    if (!instant) return "never";
    const int64_t wall = kEurope.WallAt(*instant);
    const year_month_day date{sys_days{days(core::DayOf(wall))}};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d%s", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(wall % core::kSecondsOfDay / kHour),
                  static_cast<int>(wall % kHour / 60),
                  EuropeanOffset(*instant) == kHour ? "" : " summer");
    return text;
}

constexpr uint8_t On(std::initializer_list<int> weekdays) {
    uint8_t bits = 0;
    for (const int weekday : weekdays)
        bits |= static_cast<uint8_t>(1U << weekday);
    return bits;
}

Schedule Every(int32_t months, int32_t days, int32_t hours = 0, int32_t minutes = 0,
               uint8_t excluded = 0) {
    return {
        .months = months, .days = days, .hours = hours, .minutes = minutes, .excluded = excluded};
}

// The first runs of a series, one after the other, each looked for when the one before is over.
std::vector<std::string> Runs(const Schedule& schedule, int64_t first, int count) {
    std::vector<std::string> runs;
    auto due = core::Allowed(schedule, kEurope.InstantOf(first), kEurope);
    for (int n = 0; n < count; ++n) {
        runs.push_back(Text(due));
        if (due) due = core::NextDue(schedule, first, *due, *due + 60, kEurope);
    }
    return runs;
}

TEST(Schedule, SeriesOfDueTimes) {
    using Texts = std::vector<std::string>;
    const struct {
        const char* what;
        Schedule schedule;
        int64_t first;
        Texts runs;
    } kCases[] = {
        {"the 31st: months that are too short, without drifting",
         Every(1, 0),
         Wall(2026, 1, 31, 12),
         {"2026-01-31 12:00", "2026-02-28 12:00", "2026-03-31 12:00 summer",
          "2026-04-30 12:00 summer", "2026-05-31 12:00 summer"}},
        {"a leap day, every year",
         Every(12, 0),
         Wall(2024, 2, 29, 8),
         {"2024-02-29 08:00", "2025-02-28 08:00", "2026-02-28 08:00", "2027-02-28 08:00",
          "2028-02-29 08:00"}},
        {"months and days together",
         Every(1, 1),
         Wall(2026, 1, 31, 12),
         {"2026-01-31 12:00", "2026-03-01 12:00", "2026-04-02 12:00 summer"}},
        {"the hour that is left out",
         Every(0, 1),
         Wall(2026, 3, 28, 2, 30),
         {"2026-03-28 02:30", "2026-03-29 03:30 summer", "2026-03-30 02:30 summer"}},
        {"the hour that comes twice: once, the first time",
         Every(0, 1),
         Wall(2026, 10, 24, 2, 30),
         {"2026-10-24 02:30 summer", "2026-10-25 02:30 summer", "2026-10-26 02:30"}},
        {"hours go on through both",
         Every(0, 0, 1),
         Wall(2026, 10, 25, 1, 30),
         {"2026-10-25 01:30 summer", "2026-10-25 02:30 summer", "2026-10-25 02:30",
          "2026-10-25 03:30"}},
        {"hours over the hour that is left out",
         Every(0, 0, 1),
         Wall(2026, 3, 29, 1, 30),
         {"2026-03-29 01:30", "2026-03-29 03:30 summer", "2026-03-29 04:30 summer"}},
        {"daily, not at the weekend (2026-01-02 is a Friday)",
         Every(0, 1, 0, 0, On({0, 6})),
         Wall(2026, 1, 2, 9),
         {"2026-01-02 09:00", "2026-01-05 09:00", "2026-01-06 09:00"}},
        {"weekly on a day that is excluded: the day after, without drifting",
         Every(0, 7, 0, 0, On({0})),
         Wall(2026, 1, 4, 9),
         {"2026-01-05 09:00", "2026-01-12 09:00", "2026-01-19 09:00"}},
        {"monthly on the first, not on Sundays (2026-02-01 and 2026-03-01 are)",
         Every(1, 0, 0, 0, On({0})),
         Wall(2026, 1, 1, 9),
         {"2026-01-01 09:00", "2026-02-02 09:00", "2026-03-02 09:00", "2026-04-01 09:00 summer"}},
        {"every seven hours: a day left out counts once",
         Every(0, 0, 7, 0, On({0})),
         Wall(2026, 1, 3, 20),
         {"2026-01-03 20:00", "2026-01-05 03:00", "2026-01-05 07:00", "2026-01-05 14:00"}},
        {"beyond 2038",
         Every(12, 0),
         Wall(2037, 6, 1, 6),
         {"2037-06-01 06:00 summer", "2038-06-01 06:00 summer", "2039-06-01 06:00 summer"}},
        {"the end of what a time can say",
         Every(12, 0),
         Wall(2105, 6, 1, 6),
         {"2105-06-01 06:00 summer", "never"}},
        {"all days excluded",
         Every(0, 1, 0, 0, Schedule::kAllDays),
         Wall(2026, 1, 1, 6),
         {"never"}},
        {"not repeating", Every(0, 0), Wall(2026, 1, 1, 6), {"2026-01-01 06:00", "never"}},
    };
    for (const auto& test : kCases) {
        EXPECT_EQ(Runs(test.schedule, test.first, static_cast<int>(test.runs.size())), test.runs)
            << test.what;
    }
}

TEST(Schedule, WhatPassedMeanwhileIsLeftOut) {
    const int64_t first = Wall(2026, 1, 1, 9);
    const int64_t due = kEurope.InstantOf(first);
    const int64_t now = kEurope.InstantOf(Wall(2026, 5, 5, 8));
    EXPECT_EQ(Text(core::NextDue(Every(0, 1), first, due, now, kEurope)),
              "2026-05-05 09:00 summer");
    // A clock that was set back: never the time again that was.
    EXPECT_EQ(Text(core::NextDue(Every(0, 1), first, due, due - 7200, kEurope)),
              "2026-01-02 09:00");
    EXPECT_EQ(Text(core::OneIntervalLater(Every(1, 0), now, kEurope)), "2026-06-05 08:00 summer");
}

// Whatever the schedule: times only go forward, on allowed days, at the same time by the clock
// where days and months are counted; and what comes next depends on the instant alone, not on the
// way to it.
TEST(Schedule, HoldsForAnySchedule) {
    std::mt19937 random(20261122);  // NOLINT: the same ones each time
    const auto pick = [&](int64_t from, int64_t to) {
        return std::uniform_int_distribution<int64_t>(from, to)(random);
    };
    for (int round = 0; round < 400; ++round) {
        Schedule schedule;
        const bool calendar = pick(0, 1) == 0;
        if (calendar) {
            schedule.months = static_cast<int32_t>(pick(0, 3));
            schedule.days = static_cast<int32_t>(pick(schedule.months == 0 ? 1 : 0, 20));
        } else {
            schedule.days = static_cast<int32_t>(pick(0, 2));
            schedule.hours = static_cast<int32_t>(pick(0, 50));
            schedule.minutes = static_cast<int32_t>(pick(1, 120));
        }
        schedule.excluded = static_cast<uint8_t>(pick(0, Schedule::kAllDays - 1));
        const int64_t first =
            Wall(2026, static_cast<unsigned>(pick(1, 12)), static_cast<unsigned>(pick(1, 28)),
                 static_cast<int>(pick(0, 23)), static_cast<int>(pick(0, 59)));
        int64_t last = *core::Allowed(schedule, kEurope.InstantOf(first), kEurope);
        for (int run = 0; run < 120; ++run) {
            const auto due = core::DueAfter(schedule, first, last, kEurope);
            ASSERT_TRUE(due);
            ASSERT_GT(*due, last);
            const int64_t wall = kEurope.WallAt(*due);
            ASSERT_FALSE(schedule.IsExcluded(core::DayOf(wall))) << Text(due);
            const bool changes = EuropeanOffset(*due - 3 * kHour) != EuropeanOffset(*due);
            if (calendar && !changes) {
                ASSERT_EQ((wall - first) % core::kSecondsOfDay, 0) << Text(due);
            }
            if (calendar || schedule.excluded == 0) {
                ASSERT_EQ(core::DueAfter(schedule, first, pick(last, *due - 1), kEurope), due);
            }
            last = *due;
        }
    }
}

TEST(Schedule, RecordsOfAnyOrigin) {
    const Schedule schedule{.time = 0xFFFF'FFF0,
                            .months = 1,
                            .days = 2,
                            .hours = 3,
                            .minutes = 4,
                            .excluded = On({0, 6})};
    const BMessage record = schedule.ToRecord();
    EXPECT_EQ(record.Get("TIME", BTime()).seconds, 0xFFFF'FFF0);  // not before 1970: it has no sign
    EXPECT_EQ(Schedule::FromRecord(record), schedule);

    EXPECT_EQ(Schedule::FromRecord(BMessage()), Schedule());
    BMessage hostile;
    hostile.Add<int64_t>("TIME", 5);
    hostile.Add("Months", INT32_MIN);
    hostile.Add("Days", INT32_MAX);
    hostile.Add("Hours", "many");
    hostile.Add("Minutes", INT32_MAX);
    hostile.Add("Friday", int32_t{1});
    const Schedule read = Schedule::FromRecord(hostile);
    EXPECT_EQ(read.time, 0);
    EXPECT_EQ(read.months, 0);
    EXPECT_EQ(read.hours, 0);
    EXPECT_EQ(read.excluded, 0);
    EXPECT_TRUE(read.Repeats());
    // And its numbers can be worked with: at most one run is due before the end of time.
    for (const int64_t instant : {int64_t{0}, int64_t{1} << 31, core::kLastDue, INT64_MAX}) {
        EXPECT_EQ(core::DueAfter(read, Wall(2026, 1, 1, 0), instant, kEurope).has_value(),
                  instant == 0);
    }
}

TEST(Schedule, InWords) {
    auto* locale = KTLocale::GetInstance();
    locale->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
    locale->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);
    const int64_t now = kEurope.InstantOf(Wall(2026, 3, 27, 18));  // a Friday
    const auto next = [&](int64_t wall) {
        return core::RunsNextText(kEurope.InstantOf(wall), now, kEurope);
    };
    EXPECT_EQ(core::RunsNextText(0, now, kEurope), "as soon as there is room");
    EXPECT_EQ(core::RunsNextText(now, now, kEurope), "as soon as there is room");
    EXPECT_EQ(next(Wall(2026, 3, 27, 18, 1)), "in a minute (today, 18:01)");
    EXPECT_EQ(next(Wall(2026, 3, 27, 19, 30)), "in 90 minutes (today, 19:30)");
    EXPECT_EQ(next(Wall(2026, 3, 27, 21)), "in 3 hours (today, 21:00)");
    EXPECT_EQ(next(Wall(2026, 3, 28, 2, 30)), "in 9 hours (tomorrow, 02:30)");
    EXPECT_EQ(next(Wall(2026, 3, 29, 18)), "in 2 days (Sunday, 18:00)");
    EXPECT_EQ(next(Wall(2026, 4, 3, 18)), "in 7 days (2026-04-03, 18:00)");

    EXPECT_EQ(core::RepeatText(Every(0, 0)), "once");
    EXPECT_EQ(core::RepeatText(Every(1, 0)), "every month");
    EXPECT_EQ(core::RepeatText(Every(0, 7, 0, 0, On({0, 6}))),
              "every week, not on Sunday, Saturday");
    EXPECT_EQ(core::RepeatText(Every(2, 1, 12)), "every 2 months, 1 day, 12 hours");
    EXPECT_EQ(core::RepeatText(Every(0, 1, 0, 0, Schedule::kAllDays)),
              "never: all days are excluded");
}

}  // namespace

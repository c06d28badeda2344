#include "core/schedule/ScheduleWords.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"

namespace core {

namespace {

constexpr int64_t kMinute = 60, kHour = 60 * kMinute;

std::string Relative(int64_t due, int64_t now, int64_t days) {
    const int64_t left = due - now;
    if (left <= kMinute) return TextOf(kMoreInAMinute);
    if (left < 2 * kHour) return FormatTextOf(kMoreInMinutes, int32_t((left + 30) / kMinute));
    // Until tomorrow night people count hours, and days from there.
    if (days < 2) return FormatTextOf(kMoreInHours, int32_t((left + kHour / 2) / kHour));
    return FormatTextOf(kMoreInDays, static_cast<int32_t>(days));
}

std::string Day(int64_t wall, int64_t days) {
    if (days <= 1) return TextOf(days <= 0 ? kMoreToday : kMoreTomorrow);
    if (days < 7) return TextOf(text::kSunday + WeekdayOf(DayOf(wall)));
    return DayText(wall);
}

void AddWith(std::string& list, const std::string& part) {
    if (!list.empty() && !part.empty()) list += ", ";
    list += part;
}

// "3 months"; "" for none.
std::string Count(int32_t count, int32_t one, int32_t many) {
    if (count == 0) return {};
    return count == 1 ? TextOf(one) : FormatTextOf(many, count);
}

std::string Interval(const Schedule& schedule) {
    const Schedule interval{.months = schedule.months,
                            .days = schedule.days,
                            .hours = schedule.hours,
                            .minutes = schedule.minutes};
    constexpr std::array<std::pair<Schedule, int32_t>, 5> kPlain{{
        {{.months = 1}, kMoreEveryMonth},
        {{.days = 7}, kMoreEveryWeek},
        {{.days = 1}, kMoreEveryDay},
        {{.hours = 1}, kMoreEveryHour},
        {{.minutes = 1}, kMoreEveryMinute},
    }};
    for (const auto& [plain, words] : kPlain) {
        if (interval == plain) return TextOf(words);
    }
    std::string parts;
    AddWith(parts, Count(schedule.months, kMoreOneMonth, kMoreMonths));
    AddWith(parts, Count(schedule.days, kMoreOneDay, kMoreDays));
    AddWith(parts, Count(schedule.hours, kMoreOneHour, kMoreHours));
    AddWith(parts, Count(schedule.minutes, kMoreOneMinute, kMoreMinutes));
    return FormatTextOf(kMoreEvery, parts);
}

}  // namespace

std::string RunsNextText(int64_t due, int64_t now, const Zone& zone) {
    if (due <= now) return TextOf(kMoreRunsSoon);
    const int64_t wall = zone.WallAt(due);
    const int64_t days = DayOf(wall) - DayOf(zone.WallAt(now));
    return FormatTextOf(kMoreRunsNext, Relative(due, now, days),
                        FormatTextOf(kMoreDayAt, Day(wall, days), TimeOfDayText(wall)));
}

std::string RepeatText(const Schedule& schedule) {
    if (schedule.NeverRuns()) return TextOf(kMoreRunsNever);
    std::string words = schedule.Repeats() ? Interval(schedule) : TextOf(kMoreNotRepeated);
    std::string weekdays;
    for (int32_t weekday = 0; weekday < 7; ++weekday) {
        if ((schedule.excluded >> weekday & 1) != 0)
            AddWith(weekdays, TextOf(text::kSunday + weekday));
    }
    if (!weekdays.empty()) AddWith(words, FormatTextOf(kMoreNotOn, weekdays));
    return words;
}

std::string NextRunText(const Schedule& schedule, int64_t now, const Zone& zone) {
    if (schedule.NeverRuns()) return TextOf(kMoreNeverRuns);
    const int64_t due = Allowed(schedule, schedule.time, zone).value_or(0);
    return FormatTextOf(kMoreNextRun, RunsNextText(due, now, zone), RepeatText(schedule));
}

std::string DayText(int64_t wall) {
    const std::chrono::year_month_day day{std::chrono::sys_days{std::chrono::days(DayOf(wall))}};
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(day.year()),
                  static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
    return text.data();
}

std::string TimeOfDayText(int64_t wall) {
    const auto minute = static_cast<int>((wall - DayOf(wall) * kSecondsOfDay) / kMinute);
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%02d:%02d", minute / 60, minute % 60);
    return text.data();
}

}  // namespace core

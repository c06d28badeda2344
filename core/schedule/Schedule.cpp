#include "core/schedule/Schedule.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace core {

namespace {

constexpr std::array kWeekdays{"Sunday",   "Monday", "Tuesday", "Wednesday",
                               "Thursday", "Friday", "Saturday"};

// A century of each: no run that comes later is ever due.
constexpr int32_t kMostMonths = 100 * 12;
constexpr int32_t kMostDays = 100 * 366;
constexpr int32_t kMostHours = kMostDays * 24;
constexpr int32_t kMostMinutes = kMostHours * 60;

int32_t Part(const BMessage& record, const char* name, int32_t most) {
    return std::clamp(record.Get<int32_t>(name, 0), 0, most);
}

int64_t AddMonths(int64_t day, int64_t months) {
    using std::chrono::sys_days, std::chrono::year_month_day;
    const year_month_day from{sys_days{std::chrono::days(day)}};
    auto to = from + std::chrono::months(months);
    if (!to.ok()) to = to.year() / to.month() / std::chrono::last;
    return sys_days{to}.time_since_epoch().count();
}

// The n-th due time of the series, before excluded days are looked at.
int64_t Nth(const Schedule& schedule, int64_t first, int64_t n, const Zone& zone) {
    const int64_t firstDay = DayOf(first);
    const int64_t day = AddMonths(firstDay, n * schedule.months) + n * schedule.days;
    const int64_t elapsed = n * (schedule.hours * 3600LL + schedule.minutes * 60LL);
    return zone.InstantOf(first + (day - firstDay) * kSecondsOfDay) + elapsed;
}

// The earliest of them at or after `instant`.
int64_t NthFrom(const Schedule& schedule, int64_t first, int64_t instant, const Zone& zone) {
    // Each is later than the one before it. The doubling ends soon: an interval is a minute at
    // least.
    int64_t before = -1, found = 0;
    while (Nth(schedule, first, found, zone) < instant) {
        before = found;
        found = found * 2 + 1;
    }
    while (found - before > 1) {
        const int64_t middle = before + (found - before) / 2;
        (Nth(schedule, first, middle, zone) < instant ? before : found) = middle;
    }
    return Nth(schedule, first, found, zone);
}

std::optional<int64_t> IfSayable(std::optional<int64_t> due) {
    return due && *due <= kLastDue ? due : std::nullopt;
}

}  // namespace

Schedule Schedule::FromRecord(const BMessage& record) {
    Schedule schedule;
    schedule.time = record.Get("TIME", BTime()).seconds;
    schedule.months = Part(record, "Months", kMostMonths);
    schedule.days = Part(record, "Days", kMostDays);
    schedule.hours = Part(record, "Hours", kMostHours);
    schedule.minutes = Part(record, "Minutes", kMostMinutes);
    for (size_t day = 0; day < kWeekdays.size(); ++day) {
        if (record.Get(kWeekdays[day], false)) schedule.excluded |= static_cast<uint8_t>(1U << day);
    }
    return schedule;
}

BMessage Schedule::ToRecord() const {
    BMessage record;
    if (time != 0) record.Add("TIME", BTime::FromSeconds(time));
    record.Add("Months", months);
    record.Add("Days", days);
    record.Add("Hours", hours);
    record.Add("Minutes", minutes);
    for (size_t day = 0; day < kWeekdays.size(); ++day)
        record.Add(kWeekdays[day], (excluded >> day & 1) != 0);
    return record;
}

std::optional<int64_t> Allowed(const Schedule& schedule, int64_t due, const Zone& zone) {
    if (schedule.NeverRuns()) return std::nullopt;
    const int64_t wall = zone.WallAt(due);
    int64_t skipped = 0;
    while (schedule.IsExcluded(DayOf(wall) + skipped))
        ++skipped;
    // Not by way of the wall where nothing is skipped: an hour that comes twice stays what it was.
    return skipped == 0 ? due : zone.InstantOf(wall + skipped * kSecondsOfDay);
}

std::optional<int64_t> DueAfter(const Schedule& schedule, int64_t first, int64_t instant,
                                const Zone& zone) {
    if (!schedule.Repeats() || schedule.NeverRuns() || instant >= kLastDue) return std::nullopt;
    // The first due time of a row of excluded days stands for all of them; it may be what comes
    // next although its own day is over.
    const int64_t today = DayOf(zone.WallAt(instant));
    int64_t row = today;
    while (schedule.IsExcluded(row - 1))
        --row;
    if (schedule.IsExcluded(row)) {
        const int64_t start = zone.InstantOf(row * kSecondsOfDay);
        const int64_t due = NthFrom(schedule, first, start, zone);
        if (schedule.IsExcluded(DayOf(zone.WallAt(due)))) {
            const auto moved = Allowed(schedule, due, zone);
            if (moved && *moved > instant) return IfSayable(moved);
        }
    }
    return IfSayable(Allowed(schedule, NthFrom(schedule, first, instant + 1, zone), zone));
}

std::optional<int64_t> NextDue(const Schedule& schedule, int64_t first, int64_t last, int64_t now,
                               const Zone& zone) {
    return DueAfter(schedule, first, std::max(last, now), zone);
}

int64_t OneIntervalLater(const Schedule& schedule, int64_t instant, const Zone& zone) {
    return Nth(schedule, zone.WallAt(instant), 1, zone);
}

}  // namespace core

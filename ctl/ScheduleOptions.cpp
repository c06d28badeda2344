#include "ctl/ScheduleOptions.h"

#include <array>
#include <charconv>
#include <chrono>
#include <sstream>

#include "core/locale/MoreTexts.h"
#include "core/report/Format.h"

namespace ctl {

namespace {

constexpr std::string_view kNone = "none";

// Exactly `size` digits at the start, taken off.
std::optional<int32_t> TakeDigits(std::string_view& text, size_t size) {
    int32_t number = 0;
    if (text.size() < size) return std::nullopt;
    const auto [stop, problem] = std::from_chars(text.data(), text.data() + size, number);
    if (problem != std::errc() || stop != text.data() + size || number < 0) return std::nullopt;
    text.remove_prefix(size);
    return number;
}

bool Take(std::string_view& text, char wanted) {
    if (!text.starts_with(wanted)) return false;
    text.remove_prefix(1);
    return true;
}

std::optional<int64_t> ParseTimeOfDay(std::string_view text) {
    const auto hour = TakeDigits(text, text.find(':') == 1 ? 1 : 2);
    if (!hour || !Take(text, ':')) return std::nullopt;
    const auto minute = TakeDigits(text, 2);
    if (!minute || !text.empty() || *hour > 23 || *minute > 59) return std::nullopt;
    return *hour * int64_t{3600} + *minute * int64_t{60};
}

std::optional<int64_t> ParseDay(std::string_view text) {
    const auto year = TakeDigits(text, 4);
    if (!year || !Take(text, '-')) return std::nullopt;
    const auto month = TakeDigits(text, 2);
    if (!month || !Take(text, '-')) return std::nullopt;
    const auto day = TakeDigits(text, 2);
    if (!day || !text.empty()) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(*year),
                                           std::chrono::month(static_cast<unsigned>(*month)),
                                           std::chrono::day(static_cast<unsigned>(*day))};
    if (!date.ok()) return std::nullopt;
    return std::chrono::sys_days{date}.time_since_epoch().count();
}

bool ParseInterval(std::string_view text, core::Schedule& schedule) {
    schedule.months = schedule.days = schedule.hours = schedule.minutes = 0;
    if (text == kNone) return true;
    while (!text.empty()) {
        int32_t number = 0;
        const auto [stop, problem] =
            std::from_chars(text.data(), text.data() + text.size(), number);
        if (problem != std::errc() || number <= 0 || number > 100'000) return false;
        text.remove_prefix(static_cast<size_t>(stop - text.data()));
        const size_t end = std::min(text.find_first_of("0123456789"), text.size());
        std::string_view unit = text.substr(0, end);
        text.remove_prefix(end);
        if (unit.ends_with('s')) unit.remove_suffix(1);
        if (unit == "month") {
            schedule.months += number;
        } else if (unit == "week") {
            schedule.days += 7 * number;
        } else if (unit == "day") {
            schedule.days += number;
        } else if (unit == "hour") {
            schedule.hours += number;
        } else if (unit == "minute") {
            schedule.minutes += number;
        } else {
            return false;
        }
    }
    return schedule.Repeats();
}

// The word that is no weekday, or nothing when all are.
std::optional<std::string> ParseWeekdays(const std::string& text, core::Schedule& schedule) {
    constexpr std::array<std::string_view, 7> kNames{"sunday",   "monday", "tuesday", "wednesday",
                                                     "thursday", "friday", "saturday"};
    schedule.excluded = 0;
    if (text == kNone) return std::nullopt;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        size_t weekday = 0;
        // "sat" will do.
        while (weekday < kNames.size() && (word.size() < 3 || !kNames[weekday].starts_with(word)))
            ++weekday;
        if (weekday == kNames.size()) return word;
        schedule.excluded |= static_cast<uint8_t>(1U << weekday);
    }
    return std::nullopt;
}

kit::Error Wrong(int32_t textId, const std::string& typed) {
    return kit::Error::Make(kit::ErrorKind::Invalid, {}, core::FormatTextOf(textId, typed));
}

}  // namespace

kit::Result<core::Schedule> Changed(core::Schedule schedule, const ScheduleOptions& options,
                                    int64_t now, const core::Zone& zone) {
    if (!options.every.empty() && !ParseInterval(options.every, schedule))
        return Wrong(core::kMoreCtlBadInterval, options.every);
    if (!options.notOn.empty()) {
        if (const auto word = ParseWeekdays(options.notOn, schedule))
            return Wrong(core::kMoreCtlBadWeekday, *word);
    }
    if (options.at.empty() && options.on.empty()) {
        // It repeats from now on.
        if (schedule.time == 0 && schedule.Repeats()) schedule.time = now;
        return schedule;
    }
    const int64_t before = zone.WallAt(schedule.time != 0 ? schedule.time : now);
    int64_t day = core::DayOf(zone.WallAt(now));
    int64_t timeOfDay = before - core::DayOf(before) * core::kSecondsOfDay;
    if (!options.at.empty()) {
        const auto typed = ParseTimeOfDay(options.at);
        if (!typed) return Wrong(core::kMoreCtlBadTime, options.at);
        timeOfDay = *typed;
    }
    if (!options.on.empty()) {
        const auto typed = ParseDay(options.on);
        if (!typed) return Wrong(core::kMoreCtlBadDate, options.on);
        day = *typed;
    }
    schedule.time = zone.InstantOf(day * core::kSecondsOfDay + timeOfDay);
    if (options.on.empty() && schedule.time <= now)
        schedule.time = zone.InstantOf((day + 1) * core::kSecondsOfDay + timeOfDay);
    if (schedule.time <= 0 || schedule.time > core::kLastDue)
        return Wrong(core::kMoreCtlBadDate, options.on);
    return schedule;
}

}  // namespace ctl

#include "client/job/ScheduleFields.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include "core/schedule/Schedule.h"

namespace client {
namespace {

constexpr int64_t kMinute = 60;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The whole text, a "#" of the form standing for a digit.
bool HasForm(const std::string& text, std::string_view form) {
    return std::ranges::equal(
        text, form, [](char c, char wanted) { return wanted == '#' ? IsDigit(c) : c == wanted; });
}

// The numbers between the separators; nothing when there are others than `count` of them.
std::optional<std::vector<int>> Numbers(const std::string& text, char separator, size_t count) {
    constexpr size_t kMostDigits = 4;
    std::vector<int> numbers;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find(separator, start), text.size());
        const std::string part = text.substr(start, end - start);
        if (part.empty() || part.size() > kMostDigits || !std::ranges::all_of(part, IsDigit))
            return std::nullopt;
        numbers.push_back(std::atoi(part.c_str()));
        start = end + 1;
    }
    if (numbers.size() != count) return std::nullopt;
    return numbers;
}

// Seconds since midnight.
std::optional<int64_t> TimeOf(const std::string& text) {
    const auto parts = Numbers(text, ':', 2);
    if (!parts || (*parts)[0] > 23 || (*parts)[1] > 59) return std::nullopt;
    return (*parts)[0] * 60 * kMinute + (*parts)[1] * kMinute;
}

// Midnight of that day, as a wall clock reading.
std::optional<int64_t> DateOf(const std::string& text) {
    using namespace std::chrono;
    const auto parts = Numbers(text, '.', 3);
    if (!parts) return std::nullopt;
    const auto date = year((*parts)[2]) / (*parts)[1] / (*parts)[0];
    if (!date.ok()) return std::nullopt;
    return sys_days{date}.time_since_epoch().count() * core::kSecondsOfDay;
}

int32_t IntervalOf(const std::string& text) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<long long>(std::strtoll(text.c_str(), nullptr, 10),
                                                      Limits::min(), Limits::max()));
}

std::string TimeText(int64_t wall) {
    const int64_t minutes = (wall - core::DayOf(wall) * core::kSecondsOfDay) / kMinute;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d", static_cast<int>(minutes / 60),
                  static_cast<int>(minutes % 60));
    return text.data();
}

std::string DateText(int64_t wall) {
    using namespace std::chrono;
    const year_month_day day{sys_days{days(core::DayOf(wall))}};
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02u.%02u.%04d", static_cast<unsigned>(day.day()),
                  static_cast<unsigned>(day.month()), static_cast<int>(day.year()));
    return text.data();
}

int64_t ShownInstant(const BMessage& record, int64_t now) {
    const auto time = record.Find<BTime>("TIME");
    return time ? time->seconds : now;
}

}  // namespace

bool IsTime(const std::string& text) {
    return HasForm(text, "##:##");
}

bool IsDate(const std::string& text) {
    return HasForm(text, "##.##.####");
}

bool IsNumber(const std::string& text) {
    return std::ranges::all_of(text, IsDigit);
}

ScheduleFields FieldsOf(const BMessage& record, int64_t now, const core::Zone& zone) {
    const int64_t wall = zone.WallAt(ShownInstant(record, now));
    ScheduleFields fields;
    fields.time = TimeText(wall);
    fields.date = DateText(wall);
    for (size_t i = 0; i < kIntervals.size(); ++i)
        fields.intervals[i] = std::to_string(record.Get<int32_t>(kIntervals[i], 0));
    for (size_t i = 0; i < kWeekdays.size(); ++i)
        fields.excluded[i] = record.Get(kWeekdays[i], false);
    return fields;
}

std::optional<int64_t> InstantOf(const ScheduleFields& fields, const core::Zone& zone) {
    const auto time = TimeOf(fields.time);
    const auto date = DateOf(fields.date);
    if (!time || !date) return std::nullopt;
    const int64_t instant = zone.InstantOf(*date + *time);
    return instant >= 0 && instant <= core::kLastDue ? std::optional(instant) : std::nullopt;
}

void SaveFields(const ScheduleFields& fields, BMessage* record, int64_t now,
                const core::Zone& zone) {
    const int64_t formerInstant = ShownInstant(*record, now);
    const ScheduleFields former = FieldsOf(*record, now, zone);
    // Not by way of the wall while nothing was typed: an hour that comes twice stays what it was.
    int64_t instant = formerInstant - zone.WallAt(formerInstant) % kMinute;
    if (fields.time != former.time || fields.date != former.date) {
        ScheduleFields read = fields;
        if (!TimeOf(read.time)) read.time = former.time;
        if (!DateOf(read.date)) read.date = former.date;
        if (read.time != former.time || read.date != former.date)
            instant = InstantOf(read, zone).value_or(instant);
    }
    record->Remove("TIME");
    record->Add("TIME", BTime::FromSeconds(instant));
    for (size_t i = 0; i < kIntervals.size(); ++i)
        record->Set(kIntervals[i], IntervalOf(fields.intervals[i]));
    for (size_t i = 0; i < kWeekdays.size(); ++i)
        record->Set(kWeekdays[i], fields.excluded[i]);
}

}  // namespace client

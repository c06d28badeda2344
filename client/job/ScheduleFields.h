// What the scheduler dialog shows of a schedule record, and the record that is made of what was
// typed: "TIME" (4 bytes: until 2106), "Months", "Days", "Hours", "Minutes" (int32), "Sunday" to
// "Saturday" (bool: the job does not run on that day). Plain functions, any thread.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "core/schedule/Zone.h"
#include "kit/message/BMessage.h"

namespace client {

inline constexpr std::array kIntervals = {"Months", "Days", "Hours", "Minutes"};
inline constexpr std::array kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                         "Thursday", "Friday", "Saturday"};

struct ScheduleFields {
    std::string time, date;  // "18:05", "27.11.2026", by the clocks on the wall
    std::array<std::string, kIntervals.size()> intervals;
    std::array<bool, kWeekdays.size()> excluded{};
};

// A record without "TIME" shows `now` (seconds since the epoch).
ScheduleFields FieldsOf(const BMessage& record, int64_t now, const core::Zone& zone);

// Writes what was typed into the record that the fields were made of. A date or time that cannot be
// read, that no calendar or clock has, or that "TIME" cannot hold leaves the former one; one that
// was not touched stays what it was, to the minute. Intervals are taken as far as they are numbers.
void SaveFields(const ScheduleFields& fields, BMessage* record, int64_t now,
                const core::Zone& zone);

// When the typed date and time are; nothing when they cannot be used.
std::optional<int64_t> InstantOf(const ScheduleFields& fields, const core::Zone& zone);

// Whether a text has the form that the dialog asks for.
bool IsTime(const std::string& text);    // 18:05
bool IsDate(const std::string& text);    // 27.11.2026
bool IsNumber(const std::string& text);  // digits only, or nothing

}  // namespace client

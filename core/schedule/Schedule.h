// When a job runs: the schedule record ("scheduler" of a job's message) and its rules.
//
// A repeating job has a series of due times. It begins at a wall clock reading, the series' first
// one, and goes on by whole intervals counted from there, so that a month that is too short, or a
// day that was skipped, does not change what follows. Months and days are those of the calendar, at
// the same time by the clocks on the wall; hours and minutes besides pass as they pass. A due time
// on an excluded weekday comes on the next allowed day at the same time.
//
// Values and pure functions: any thread. Instants are seconds since the epoch.
#pragma once

#include <cstdint>
#include <optional>

#include "core/schedule/Zone.h"
#include "kit/message/BMessage.h"

namespace core {

struct Schedule {
    int64_t time = 0;  // "TIME", the next run; 0: none is set
    // The interval; all 0: the job does not repeat. Never negative, each a century at most.
    int32_t months = 0, days = 0, hours = 0, minutes = 0;
    uint8_t excluded = 0;  // weekdays on which the job does not run: bit 0 is Sunday

    // From a record of whatever origin: what is missing, of another type or nonsense counts as not
    // set.
    static Schedule FromRecord(const BMessage& record);
    BMessage ToRecord() const;

    bool Repeats() const { return months > 0 || days > 0 || hours > 0 || minutes > 0; }
    bool IsExcluded(int64_t day) const { return (excluded >> WeekdayOf(day) & 1) != 0; }
    bool NeverRuns() const { return excluded == kAllDays; }
    bool operator==(const Schedule&) const = default;

    static constexpr uint8_t kAllDays = 0x7F;
};

// The last instant that "TIME" can say (in 2106). Nothing is ever due later.
inline constexpr int64_t kLastDue = 0xFFFF'FFFF;

// A due time moved off the excluded weekdays; nothing when all are.
std::optional<int64_t> Allowed(const Schedule& schedule, int64_t due, const Zone& zone);

// The earliest due time after `instant` of the series that begins at the wall clock reading
// `first`. Nothing when the job does not repeat, when all days are excluded, or after kLastDue.
std::optional<int64_t> DueAfter(const Schedule& schedule, int64_t first, int64_t instant,
                                const Zone& zone);

// The run after the one that was due at `last`: the earliest due time of the series that is later
// than `last` and lies ahead of `now`. Times that passed meanwhile are left out.
std::optional<int64_t> NextDue(const Schedule& schedule, int64_t first, int64_t last, int64_t now,
                               const Zone& zone);

// The end of one interval that begins at `instant`, whatever day that is.
int64_t OneIntervalLater(const Schedule& schedule, int64_t instant, const Zone& zone);

}  // namespace core

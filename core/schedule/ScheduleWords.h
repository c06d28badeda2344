// Schedules in words, in the current language, for lists, dialogs and the command line alike.
#pragma once

#include <cstdint>
#include <string>

#include "core/schedule/Schedule.h"

namespace core {

// When a job runs next: "in 3 hours (today, 18:00)". A due time of 0, or one that has passed, is
// "as soon as there is room". Instants are seconds since the epoch.
std::string RunsNextText(int64_t due, int64_t now, const Zone& zone);

// "every month", "every 2 days, 12 hours, not on Saturday, Sunday", "never: all days are excluded".
std::string RepeatText(const Schedule& schedule);

// Both at once, for a job that is not submitted yet: "Next run: in 3 hours (today, 18:00), every
// week". `schedule.time` of 0, or one that has passed, is as soon as there is room.
std::string NextRunText(const Schedule& schedule, int64_t now, const Zone& zone);

// "2027-01-31" and "18:00" of a wall clock reading.
std::string DayText(int64_t wall);
std::string TimeOfDayText(int64_t wall);

}  // namespace core

// When a job is to run, as it is typed on the command line.
#pragma once

#include <optional>
#include <string>

#include "core/schedule/Schedule.h"
#include "kit/support/Result.h"

namespace ctl {

// Of each "" where nothing was typed: that stays as it was.
struct ScheduleOptions {
    std::string at{};     // "18:00"
    std::string on{};     // "2027-01-31"
    std::string every{};  // "1month", "2days12hours", "none"
    std::string notOn{};  // "saturday,sunday", "none"
    bool IsEmpty() const { return at.empty() && on.empty() && every.empty() && notOn.empty(); }
};

// The schedule that was, with what the user wants changed of it. A time alone is the next one that
// lies ahead; a date alone keeps the time of day. Invalid, in words for the user: what cannot be
// meant.
kit::Result<core::Schedule> Changed(core::Schedule schedule, const ScheduleOptions& options,
                                    int64_t now, const core::Zone& zone);

}  // namespace ctl

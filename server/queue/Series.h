// What a repeating job carries from one run to the next. It lies in the job's description, as the
// server's own; clients neither send nor get it.
#pragma once

#include <cstdint>
#include <optional>

#include "core/schedule/Schedule.h"

namespace server {

struct Series {
    int64_t first = 0;  // wall clock reading at which the series of due times begins
    int64_t since = 0;  // when it was due first: until then nobody misses a good run
    int64_t good = 0;   // end of the last good run; 0: there was none
    int64_t told = 0;   // when the user was last told that good runs are missing; 0: never

    static Series FromMessage(const BMessage& message);
    BMessage ToMessage() const;
    bool operator==(const Series&) const = default;
};

// When the user is to be told (again) that a job has had no good run for longer than its interval
// and a day: once a day. A clock that was set back counts from now. Nothing for a job that does not
// repeat.
std::optional<int64_t> OverdueAt(const core::Schedule& schedule, const Series& series, int64_t now,
                                 const core::Zone& zone);

}  // namespace server

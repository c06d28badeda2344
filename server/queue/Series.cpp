#include "server/queue/Series.h"

#include <algorithm>

namespace server {

Series Series::FromMessage(const BMessage& message) {
    return {.first = message.Get<int64_t>("first", 0),
            .since = message.Get<int64_t>("since", 0),
            .good = message.Get<int64_t>("good", 0),
            .told = message.Get<int64_t>("told", 0)};
}

BMessage Series::ToMessage() const {
    BMessage message;
    message.Add("first", first);
    message.Add("since", since);
    message.Add("good", good);
    message.Add("told", told);
    return message;
}

std::optional<int64_t> OverdueAt(const core::Schedule& schedule, const Series& series, int64_t now,
                                 const core::Zone& zone) {
    if (!schedule.Repeats()) return std::nullopt;
    // One that has not been due yet misses nothing.
    const int64_t from = std::max(std::min(series.good, now), series.since);
    // Days on which it must not run make the interval longer.
    const int64_t next = std::max(core::OneIntervalLater(schedule, from, zone),
                                  core::DueAfter(schedule, series.first, from, zone).value_or(0));
    int64_t at = next + core::kSecondsOfDay;
    if (series.told != 0) at = std::max(at, std::min(series.told, now) + core::kSecondsOfDay);
    return at;
}

}  // namespace server

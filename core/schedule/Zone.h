// Local time as the rules of schedules need it: wall clock readings, counted in seconds as if the
// wall's day had always 24 hours, and the instants at which a clock shows them.
#pragma once

#include <cstdint>
#include <functional>

namespace core {

class Zone {
public:
    // Seconds east of Greenwich at an instant (seconds since the epoch). Called on the thread of
    // whoever asks the zone.
    using OffsetAt = std::function<int64_t(int64_t instant)>;
    explicit Zone(OffsetAt offsetAt) : fOffsetAt(std::move(offsetAt)) {}
    // The machine's own, as it is set now.
    static Zone OfSystem();

    int64_t WallAt(int64_t instant) const { return instant + fOffsetAt(instant); }
    // When the clocks show this. A reading that comes twice is meant the first time; one that is
    // left out comes as much later as the clocks were put forward.
    int64_t InstantOf(int64_t wall) const;

private:
    OffsetAt fOffsetAt;
};

// Days since 1970-01-01 of a wall clock reading, and their weekdays (Sunday is 0).
int64_t DayOf(int64_t wall);
int WeekdayOf(int64_t day);

inline constexpr int64_t kSecondsOfDay = 86'400;

}  // namespace core

#include "core/schedule/Zone.h"

#include <ctime>

namespace core {

Zone Zone::OfSystem() {
    ::tzset();  // the zone may have been changed since the program started
    return Zone([](int64_t instant) -> int64_t {
        const time_t time = instant;
        tm local{};
        return ::localtime_r(&time, &local) ? local.tm_gmtoff : 0;
    });
}

int64_t Zone::InstantOf(int64_t wall) const {
    // No zone is further than a day from Greenwich, and none changes twice in two days.
    const int64_t before = wall - fOffsetAt(wall - kSecondsOfDay);
    if (WallAt(before) == wall) return before;
    const int64_t after = wall - fOffsetAt(wall + kSecondsOfDay);
    return WallAt(after) == wall ? after : before;
}

int64_t DayOf(int64_t wall) {
    return (wall >= 0 ? wall : wall - kSecondsOfDay + 1) / kSecondsOfDay;
}

int WeekdayOf(int64_t day) {
    constexpr int kThursday = 4;  // the first of January 1970
    return static_cast<int>(((day + kThursday) % 7 + 7) % 7);
}

}  // namespace core

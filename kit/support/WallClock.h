// The clock on the wall and an alarm by it. Unlike a pulse, the alarm goes by what the clock shows:
// it heeds that the clock is set and that the machine sleeps.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "kit/support/UniqueFd.h"

namespace kit {

class WallClock {
public:
    virtual ~WallClock() = default;
    virtual int64_t Now() const = 0;  // seconds since the epoch; any thread
    // One alarm at a time; nothing: none. One that has passed goes off at once. Any thread.
    virtual void SetAlarm(std::optional<int64_t> at) = 0;
};

// The machine's. `wake` is called on a thread of the clock's own when the alarm goes off, which
// ends it, and whenever the clock was set or the machine woke up, which does not. It must not call
// the clock's destructor; after that it is not called any more.
class SystemClock : public WallClock {
public:
    explicit SystemClock(std::function<void()> wake);
    ~SystemClock() override;
    SystemClock(const SystemClock&) = delete;
    SystemClock& operator=(const SystemClock&) = delete;

    int64_t Now() const override;
    void SetAlarm(std::optional<int64_t> at) override;

private:
    void Watch();
    void Arm();  // fMutex held

    const std::function<void()> fWake;
    const UniqueFd fTimer, fEnd;
    std::mutex fMutex;
    int64_t fAlarm;
    std::thread fThread;
};

}  // namespace kit

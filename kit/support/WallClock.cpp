#include "kit/support/WallClock.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

namespace kit {

namespace {

// In place of no alarm: the timer is kept running, because only a running one tells that the clock
// was set.
constexpr int64_t kNever = int64_t{1} << 40;

}  // namespace

SystemClock::SystemClock(std::function<void()> wake)
    : fWake(std::move(wake)),
      fTimer(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      fEnd(::eventfd(0, EFD_CLOEXEC)),
      fAlarm(kNever) {
    Arm();
    fThread = std::thread([this] { Watch(); });
}

SystemClock::~SystemClock() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(fEnd.Get(), &one, sizeof one);
    fThread.join();
}

int64_t SystemClock::Now() const {
    // Not time(): that one may be a few milliseconds behind the timer, so that an alarm seemed
    // early.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

void SystemClock::SetAlarm(std::optional<int64_t> at) {
    const std::lock_guard lock(fMutex);
    fAlarm = std::clamp<int64_t>(at.value_or(kNever), 1, kNever);
    Arm();
}

void SystemClock::Arm() {
    itimerspec when{};
    when.it_value.tv_sec = fAlarm;
    ::timerfd_settime(fTimer.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &when, nullptr);
}

void SystemClock::Watch() {
    pthread_setname_np(pthread_self(), "clock");
    std::array<pollfd, 2> waiting{{{fTimer.Get(), POLLIN, 0}, {fEnd.Get(), POLLIN, 0}}};
    for (;;) {
        if (::poll(waiting.data(), waiting.size(), -1) < 0) continue;
        if (waiting[1].revents != 0) return;
        uint64_t times = 0;
        // ECANCELED: the clock was set, or went on after a sleep.
        if (::read(fTimer.Get(), &times, sizeof times) < 0 && errno != ECANCELED) continue;
        {
            const std::lock_guard lock(fMutex);
            if (fAlarm <= Now()) fAlarm = kNever;
            Arm();
        }
        fWake();
    }
}

}  // namespace kit

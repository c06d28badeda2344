#include "kit/support/KTPulseUtil.h"

#include <pthread.h>

#include <algorithm>

#include "kit/message/BMessage.h"

KTPulseUtil::KTPulseUtil(std::chrono::microseconds period, uint32_t code, BMessenger target,
                         Mode mode)
    : fThread(&KTPulseUtil::PulseFunc, this, period, code, target, mode) {}

KTPulseUtil::~KTPulseUtil() {
    {
        std::lock_guard lock(fMutex);
        fEnd = true;
    }
    fChanged.notify_all();
    fThread.join();
}

void KTPulseUtil::PulseFunc(std::chrono::microseconds period, uint32_t code, BMessenger target,
                            Mode mode) {
    using Clock = std::chrono::steady_clock;
    pthread_setname_np(pthread_self(), "pulse");
    period = std::max(period, std::chrono::microseconds(100));
    auto due = Clock::now() + period;
    std::unique_lock lock(fMutex);
    while (!fChanged.wait_until(lock, due, [this] { return fEnd; })) {
        // Sent with the lock held: no pulse comes once the destructor has returned.
        if (target.SendMessage(code) == BSendResult::NoTarget || mode == Mode::Once) return;
        // After a long sleep of the machine the missed pulses are left out.
        due = std::max(due + period, Clock::now());
    }
}

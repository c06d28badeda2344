// Waiting for somebody to do something at the drive.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "server/engine/JobEnvironment.h"

namespace server {

// Looks whether it `isDone` again and again, each time after `every`. False: the job is to end,
// which is noticed soon whatever `every` is. A job that is paused looks when it goes on.
inline bool LookAgainUntil(JobControl& control, std::chrono::milliseconds every,
                           const std::function<bool()>& isDone) {
    constexpr auto kNotice = std::chrono::milliseconds(100);
    for (;;) {
        for (auto waited = std::chrono::milliseconds(0); waited < every; waited += kNotice) {
            std::this_thread::sleep_for(std::min(kNotice, every - waited));
            if (!control.MayGoOn()) return false;
        }
        if (isDone()) return true;
    }
}

}  // namespace server

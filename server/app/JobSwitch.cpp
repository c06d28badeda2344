#include "server/app/JobSwitch.h"

namespace server {

void JobSwitch::Pause(bool paused) {
    {
        std::lock_guard lock(fMutex);
        fPaused = paused;
    }
    fChanged.notify_all();
}

void JobSwitch::Abort() {
    {
        std::lock_guard lock(fMutex);
        fAborted = true;
    }
    fChanged.notify_all();
}

bool JobSwitch::MayGoOn() {
    std::unique_lock lock(fMutex);
    fChanged.wait(lock, [this] { return !fPaused || fAborted; });
    return !fAborted;
}

bool JobSwitch::IsAborted() const {
    std::lock_guard lock(fMutex);
    return fAborted;
}

}  // namespace server

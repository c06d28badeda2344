#include "server/app/SleepGuard.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>

#include <memory>

namespace server {

namespace {

constexpr uint64_t kPatience = 5'000'000;  // microseconds

template <class T, T* (*Release)(T*)>
struct Releaser {
    void operator()(T* object) const { Release(object); }
};
using Bus = std::unique_ptr<sd_bus, Releaser<sd_bus, sd_bus_flush_close_unref>>;
using BusMessage = std::unique_ptr<sd_bus_message, Releaser<sd_bus_message, sd_bus_message_unref>>;

}  // namespace

kit::UniqueFd KeepAwakeByLogind() {
    sd_bus* opened = nullptr;
    if (sd_bus_open_system(&opened) < 0) return {};
    const Bus bus(opened);
    sd_bus_set_method_call_timeout(bus.get(), kPatience);
    sd_bus_message* answer = nullptr;
    const int called =
        sd_bus_call_method(bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1",
                           "org.freedesktop.login1.Manager", "Inhibit", nullptr, &answer, "ssss",
                           "idle:sleep", "Velmora Backup", "A job is running", "block");
    const BusMessage owned(answer);
    int lease = -1;
    if (called < 0 || sd_bus_message_read(answer, "h", &lease) < 0) return {};
    // The message's own ends with it. Above the standard streams, as everything that is kept.
    return kit::UniqueFd(::fcntl(lease, F_DUPFD_CLOEXEC, 3));
}

WakefulControl::WakefulControl(JobControl& control, const SleepGuard& guard)
    : fControl(control), fGuard(guard) {
    if (fGuard) fLease = fGuard();
}

bool WakefulControl::IsAwake() const {
    const std::lock_guard lock(fMutex);
    return fLease.IsOpen();
}

void WakefulControl::Paused() {
    const std::lock_guard lock(fMutex);
    if (!fLease.IsOpen()) return;
    fLease.Reset();
    fReleased = true;
}

bool WakefulControl::MayGoOn() {
    // Looked at before the wait: whoever finds it so is made to wait, and is the one to ask again.
    const bool released = fReleased;
    if (!fControl.MayGoOn()) return false;
    if (released && fReleased.exchange(false)) {
        auto lease = fGuard();
        const std::lock_guard lock(fMutex);
        fLease = std::move(lease);
    }
    return true;
}

}  // namespace server

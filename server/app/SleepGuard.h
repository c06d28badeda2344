// Keeps the machine from going to sleep while jobs run.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include "kit/support/UniqueFd.h"
#include "server/engine/JobEnvironment.h"

namespace server {

// Asks for the machine to stay awake: it does until the descriptor is closed. Not open when there
// is nobody to ask, or the answer is no. Any thread; may take up to seconds.
using SleepGuard = std::function<kit::UniqueFd()>;

// The guard of systemd's logind, asked over the system bus: an inhibitor of "idle:sleep".
kit::UniqueFd KeepAwakeByLogind();

// The control of a running job that holds the machine awake, but not while the job is paused.
class WakefulControl : public JobControl {
public:
    // Asks for it at once. An empty guard is one that always says no.
    WakefulControl(JobControl& control, const SleepGuard& guard);

    bool IsAwake() const;  // whether the machine is held awake just now
    void Paused();         // lets go until the job goes on; call when `control` makes it wait

    bool MayGoOn() override;
    bool IsAborted() const override { return fControl.IsAborted(); }

private:
    JobControl& fControl;
    const SleepGuard& fGuard;
    mutable std::mutex fMutex;
    kit::UniqueFd fLease;
    std::atomic<bool> fReleased = false;  // for as long as the job is paused
};

}  // namespace server

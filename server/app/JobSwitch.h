// Pause, continue and abort of one running job.
#pragma once

#include <condition_variable>
#include <mutex>

#include "server/engine/JobEnvironment.h"

namespace server {

class JobSwitch : public JobControl {
public:
    void Pause(bool paused);
    void Abort();  // for good

    bool MayGoOn() override;
    bool IsAborted() const override;

private:
    mutable std::mutex fMutex;
    std::condition_variable fChanged;
    bool fPaused = false, fAborted = false;
};

}  // namespace server

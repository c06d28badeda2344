// Runs jobs, each on a thread of its own, with whatever engine it is given. What a job says goes to
// its JobEvents; that it ended is told once, as the last thing its thread does.
//
// Start, Collect and the switches are called on one thread, the looper's.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "server/app/JobSwitch.h"

namespace server {

class JobRunner {
public:
    // Runs one job to its end on the calling thread. An exception ends the job as abnormal, and
    // an abnormal end has its line.
    using Engine = std::function<core::JobEnd(const JobOrder&, JobEvents&, JobControl&)>;
    // Called on the job's thread.
    using Ended = std::function<void(int32_t id, core::JobEnd end)>;

    JobRunner(Engine engine, Ended ended);
    ~JobRunner();  // aborts all and waits for them

    void Start(JobOrder order, std::shared_ptr<JobEvents> events, bool paused);
    void Pause(int32_t id, bool paused);
    void Abort(int32_t id);
    void AbortAll();
    // Lets go of a job that told its end.
    void Collect(int32_t id);
    bool IsIdle() const { return fRuns.empty(); }

private:
    struct Run {
        JobOrder order;
        std::shared_ptr<JobEvents> events;
        JobSwitch control;
        std::thread thread;
    };
    void Work(Run& run);

    const Engine fEngine;
    const Ended fEnded;
    std::map<int32_t, std::unique_ptr<Run>> fRuns;
};

}  // namespace server

#include "server/app/JobRunner.h"

#include <sys/resource.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "core/protocol/Texts.h"

namespace server {

namespace {

constexpr int kNiceness = 5;

}  // namespace

JobRunner::JobRunner(Engine engine, Ended ended)
    : fEngine(std::move(engine)), fEnded(std::move(ended)) {}

JobRunner::~JobRunner() {
    AbortAll();
    for (auto& [id, run] : fRuns)
        run->thread.join();
}

void JobRunner::Start(JobOrder order, std::shared_ptr<JobEvents> events, bool paused) {
    auto run = std::make_unique<Run>();
    const int32_t id = order.id;
    run->order = std::move(order);
    run->events = std::move(events);
    run->control.Pause(paused);
    Run& started = *run;
    fRuns[id] = std::move(run);
    started.thread = std::thread([this, &started] { Work(started); });
}

void JobRunner::Work(Run& run) {
    // On Linux niceness belongs to the thread and goes to the threads it starts: the looper and the
    // user's programs come first.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNiceness);
    auto end = core::JobEnd::Abnormal;
    try {
        end = fEngine(run.order, *run.events, run.control);
    } catch (const std::exception& problem) {
        run.events->Words(core::LineType::Error, std::string("Internal error: ") + problem.what());
    } catch (...) {
        run.events->Words(core::LineType::Error, "Internal error");
    }
    if (end == core::JobEnd::Abnormal) {
        run.events->Line(core::LineType::Error, core::text::kJobAbnormalEnd, {});
    }
    fEnded(run.order.id, end);
}

void JobRunner::Pause(int32_t id, bool paused) {
    if (auto at = fRuns.find(id); at != fRuns.end()) at->second->control.Pause(paused);
}

void JobRunner::Abort(int32_t id) {
    if (auto at = fRuns.find(id); at != fRuns.end()) at->second->control.Abort();
}

void JobRunner::AbortAll() {
    for (auto& [id, run] : fRuns)
        run->control.Abort();
}

void JobRunner::Collect(int32_t id) {
    auto at = fRuns.find(id);
    if (at == fRuns.end()) return;
    at->second->thread.join();
    fRuns.erase(at);
}

}  // namespace server

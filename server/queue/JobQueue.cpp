#include "server/queue/JobQueue.h"

#include <algorithm>
#include <tuple>

#include "server/queue/JobDescription.h"

namespace server {

namespace {

std::optional<int64_t> TellAt(const QueuedJob& job, int64_t now, const core::Zone& zone) {
    auto at = OverdueAt(job.schedule, job.series, now, zone);
    if (at && job.spared != 0) at = std::max(*at, std::min(job.spared, now) + core::kSecondsOfDay);
    return at;
}

}  // namespace

QueuedJob QueuedJob::Make(int32_t id, BMessage description, int64_t submitted) {
    QueuedJob job;
    job.id = id;
    job.submitted = submitted;
    job.paused = description::IsOnHold(description);
    job.Describe(std::move(description));
    return job;
}

void QueuedJob::Describe(BMessage message) {
    description = std::move(message);
    type = description::TypeOf(description).value_or(core::JobType::Full);
    title = description::TitleOf(description);
    destination = description::DestinationOf(description);
    schedule = description::ScheduleOf(description);
    series = description::SeriesOf(description);
    due = schedule.time;
}

std::optional<QueuedJob> QueuedJob::Next(int32_t nextId, int64_t started, bool good, int64_t now,
                                         const core::Zone& zone) const {
    if (!schedule.Repeats()) return std::nullopt;
    std::optional<int64_t> nextDue = due;
    // One that may run on no day stays what it is; somebody started it by hand.
    if (!schedule.NeverRuns() && (due <= started || due <= now)) {
        nextDue = core::NextDue(schedule, series.first, Date(), now, zone);
    }
    if (!nextDue) return std::nullopt;
    BMessage message = description;
    description::SetDue(message, *nextDue);
    Series goesOn = series;
    if (good) {
        goesOn.good = now;
        goesOn.told = 0;
    }
    description::SetSeries(message, goesOn);
    QueuedJob next = Make(nextId, std::move(message), now);
    next.paused = false;  // "on hold" was said of the first run
    return next;
}

core::JobStatus QueuedJob::Status() const {
    if (!editors.empty()) return core::JobStatus::Edited;
    if (paused) return core::JobStatus::Paused;
    return running ? core::JobStatus::Running : core::JobStatus::Waiting;
}

bool JobQueue::Insert(QueuedJob job) {
    const int32_t id = job.id;
    return fJobs.emplace(id, std::move(job)).second;
}

const QueuedJob* JobQueue::Find(int32_t id) const {
    auto at = fJobs.find(id);
    return at == fJobs.end() ? nullptr : &at->second;
}

QueuedJob* JobQueue::Idle(int32_t id) {
    auto at = fJobs.find(id);
    return at == fJobs.end() || at->second.running ? nullptr : &at->second;
}

bool JobQueue::Pause(int32_t id) {
    auto at = fJobs.find(id);
    if (at == fJobs.end() || at->second.paused || !at->second.editors.empty()) return false;
    at->second.paused = true;
    return true;
}

bool JobQueue::Continue(int32_t id) {
    auto at = fJobs.find(id);
    if (at == fJobs.end() || !at->second.paused || !at->second.editors.empty()) return false;
    at->second.paused = false;
    return true;
}

bool JobQueue::StartNow(int32_t id) {
    QueuedJob* job = Idle(id);
    if (!job || job->Status() != core::JobStatus::Waiting || job->startNow) return false;
    job->startNow = true;
    return true;
}

bool JobQueue::MarkEdited(int32_t id, int32_t team) {
    QueuedJob* job = Idle(id);
    return job && job->editors.insert(team).second;
}

bool JobQueue::Unmark(int32_t id, int32_t team) {
    QueuedJob* job = Idle(id);
    return job && job->editors.erase(team) > 0;
}

std::vector<int32_t> JobQueue::ReleaseEditor(int32_t team) {
    std::vector<int32_t> changed;
    for (auto& [id, job] : fJobs) {
        if (job.editors.erase(team) > 0 && job.editors.empty()) changed.push_back(id);
    }
    return changed;
}

bool JobQueue::Change(int32_t id, BMessage description) {
    QueuedJob* job = Idle(id);
    if (!job) return false;
    job->Describe(std::move(description));
    return true;
}

JobQueue::Deletion JobQueue::Delete(int32_t id, bool abort) {
    auto at = fJobs.find(id);
    if (at == fJobs.end()) return Deletion::Unfit;
    const QueuedJob& job = at->second;
    if (job.running) {
        if (!abort && job.schedule.Repeats()) {
            BMessage message = job.description;
            description::EndSeries(message);
            at->second.Describe(std::move(message));
        }
        return Deletion::MustAbort;
    }
    if (!job.editors.empty() || (abort && !job.paused)) return Deletion::Unfit;
    fJobs.erase(at);
    return Deletion::Removed;
}

bool JobQueue::MayStart(const QueuedJob& job, int64_t now) {
    if (job.running || job.Status() != core::JobStatus::Waiting) return false;
    return job.startNow || (job.due <= now && !job.schedule.NeverRuns());
}

std::optional<int32_t> JobQueue::NextToStart(int64_t now) const {
    std::set<std::string_view> busy;
    int running = 0;
    for (const auto& [id, job] : fJobs) {
        if (!job.running) continue;
        ++running;
        busy.insert(job.destination);
    }
    if (running >= kMostRunning) return std::nullopt;

    const QueuedJob* first = nullptr;
    const auto order = [](const QueuedJob& job) {
        return std::tuple(!job.startNow, job.Date(), job.id);
    };
    for (const auto& [id, job] : fJobs) {
        if (!MayStart(job, now)) continue;
        if (busy.contains(job.destination)) continue;
        if (!first || order(job) < order(*first)) first = &job;
    }
    if (!first) return std::nullopt;
    return first->id;
}

std::optional<int64_t> JobQueue::NextDue(int64_t now) const {
    std::optional<int64_t> next;
    for (const auto& [id, job] : fJobs) {
        if (job.running || job.startNow || job.Status() != core::JobStatus::Waiting) continue;
        if (job.schedule.NeverRuns()) continue;
        if (job.due > now && (!next || job.due < *next)) next = job.due;
    }
    return next;
}

std::vector<int32_t> JobQueue::MendDues(int64_t now, const core::Zone& zone) {
    std::vector<int32_t> changed;
    for (auto& [id, job] : fJobs) {
        if (job.running || job.due <= now) continue;
        const auto next = core::DueAfter(job.schedule, job.series.first, now, zone);
        if (!next) continue;
        // The next one may be what has just run, before the clock was set back a little; it does
        // not run again.
        const auto second = core::DueAfter(job.schedule, job.series.first, *next, zone);
        if (!second || job.due <= *second) continue;
        BMessage message = job.description;
        description::SetDue(message, *next);
        job.Describe(std::move(message));
        changed.push_back(id);
    }
    return changed;
}

std::vector<int32_t> JobQueue::TakeOverdue(int64_t now, const core::Zone& zone) {
    std::vector<int32_t> overdue;
    for (auto& [id, job] : fJobs) {
        const auto at = TellAt(job, now, zone);
        if (!at || *at > now) continue;
        if (job.spared == 0 && (job.running || MayStart(job, now))) {
            job.spared = now;
            continue;
        }
        Series series = job.series;
        series.told = now;
        BMessage message = job.description;
        description::SetSeries(message, series);
        job.Describe(std::move(message));
        overdue.push_back(id);
    }
    return overdue;
}

std::optional<int64_t> JobQueue::NextOverdue(int64_t now, const core::Zone& zone) const {
    std::optional<int64_t> next;
    for (const auto& [id, job] : fJobs) {
        const auto at = TellAt(job, now, zone);
        if (at && (!next || *at < *next)) next = at;
    }
    return next;
}

bool JobQueue::SetRunning(int32_t id) {
    QueuedJob* job = Idle(id);
    if (!job || job->Status() != core::JobStatus::Waiting) return false;
    job->running = true;
    job->startNow = false;
    return true;
}

bool JobQueue::Ended(int32_t id) {
    auto at = fJobs.find(id);
    if (at == fJobs.end() || !at->second.running) return false;
    fJobs.erase(at);
    return true;
}

}  // namespace server

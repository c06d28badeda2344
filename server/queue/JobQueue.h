// The rules of the queue: which jobs there are, what may be done with one in which state, which is
// next. It starts nothing, stores nothing and asks no clock: times are the caller's, in seconds
// since the epoch.
//
// One thread at a time. What does not fit a job's state is refused by `false` and changes nothing.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "core/schedule/Schedule.h"
#include "kit/message/BMessage.h"
#include "server/queue/Series.h"

namespace server {

struct QueuedJob {
    int32_t id = 0;
    BMessage description;  // cleaned (description::Cleaned)
    // What follows from the description.
    core::JobType type = core::JobType::Full;
    std::string title, destination;
    core::Schedule schedule;
    Series series;    // of a job that repeats
    int64_t due = 0;  // 0: as soon as there is room

    int64_t submitted = 0;
    bool paused = false;  // running or not
    bool running = false;
    bool startNow = false;      // its time does not matter any more, and it goes first
    int64_t spared = 0;         // when its user was not told of missing runs, as one is due
    std::set<int32_t> editors;  // teams that have it open; never while it runs

    static QueuedJob Make(int32_t id, BMessage description, int64_t submitted);
    void Describe(BMessage description);  // takes it, and what follows from it
    core::JobStatus Status() const;
    int64_t Date() const { return due > 0 ? due : submitted; }  // what lists show
    // A repeating job's next run, under a new number, after one that started at `started` and ended
    // `now`. One that was started by hand before it was due does not cost the run that is due.
    std::optional<QueuedJob> Next(int32_t nextId, int64_t started, bool good, int64_t now,
                                  const core::Zone& zone) const;
};

class JobQueue {
public:
    static constexpr int kMostRunning = 2;

    bool Insert(QueuedJob job);
    const QueuedJob* Find(int32_t id) const;
    const std::map<int32_t, QueuedJob>& Jobs() const { return fJobs; }

    bool Pause(int32_t id);                     // waiting or running
    bool Continue(int32_t id);                  // paused
    bool StartNow(int32_t id);                  // waiting
    bool MarkEdited(int32_t id, int32_t team);  // not running
    bool Unmark(int32_t id, int32_t team);
    std::vector<int32_t> ReleaseEditor(int32_t team);  // the jobs whose status changed by it
    bool Change(int32_t id, BMessage description);     // not running

    enum class Deletion { Unfit, Removed, MustAbort };
    // `abort`: 'KTJD' with "flag". A waiting job is not aborted, an edited one not deleted; one
    // that is on hold goes either way. MustAbort: the job runs; end it, then call Ended.
    // One that is deleted while it runs repeats no more.
    Deletion Delete(int32_t id, bool abort);

    // The job to start now. Jobs that the user asked for first, then by due time or submission.
    std::optional<int32_t> NextToStart(int64_t now) const;
    // When to ask again although nothing happened; nothing when no job waits for its time.
    std::optional<int64_t> NextDue(int64_t now) const;
    // A clock that had been ahead left jobs behind that are due later than they need be: gives them
    // the due time that is next. The jobs that were changed.
    std::vector<int32_t> MendDues(int64_t now, const core::Zone& zone);

    // The repeating jobs of which the user is to be told now that good runs are missing; they count
    // as told. One that runs or is about to gets another day for it. NextOverdue: when to ask
    // again.
    std::vector<int32_t> TakeOverdue(int64_t now, const core::Zone& zone);
    std::optional<int64_t> NextOverdue(int64_t now, const core::Zone& zone) const;

    bool SetRunning(int32_t id);
    bool Ended(int32_t id);  // a running job's end: it leaves the queue

private:
    QueuedJob* Idle(int32_t id);  // null when it is not there or runs
    static bool MayStart(const QueuedJob& job, int64_t now);

    std::map<int32_t, QueuedJob> fJobs;
};

}  // namespace server

// The jobs: takes them from clients, keeps the queue in memory and on the disk, starts what is next
// and ends what has ended. The rules are JobQueue's, the running is JobRunner's; here they meet the
// messages, the records and the reports.
//
// Looper's thread. What must be durable is written on the records' worker, and told to clients
// after.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "server/app/JobPanels.h"
#include "server/app/JobRunner.h"
#include "server/app/KeyRing.h"
#include "server/app/ServerHost.h"
#include "server/app/SleepGuard.h"
#include "server/app/Worker.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/queue/JobQueue.h"
#include "server/queue/Records.h"
#include "server/reports/ReportDesk.h"
#include "server/reports/ReportWriter.h"

namespace server {

class JobDesk {
public:
    // What a job of this version can be run by, and the rest of the server.
    struct Parts {
        ServerHost& host;
        Records& records;  // belongs to `writing`'s thread from here on
        Worker& writing;
        CatalogueStore& catalogues;
        ReportDesk& reports;
        JobPanels& panels;
        KeyRing& keys;
        JobRunner::Engine engine;
        SleepGuard keepAwake;                    // may be empty
        std::function<void()> catalogueChanged;  // backups came or went while a job ran
        std::function<void()> scheduleChanged;   // NextWake or IsIdle may answer otherwise now
    };
    explicit JobDesk(Parts parts);

    // Takes over the queue of the last run: jobs that were running then end as abnormal, with a
    // report; those that repeat keep their next run.
    void Recover();
    void Schedule();    // starts what may start now, tells what has to be told
    void TimePassed();  // NextWake has come, or the clock was set
    std::optional<int64_t> NextWake() const;
    bool IsIdle() const { return fOutputs.empty(); }
    // Nothing is started any more; what runs is aborted. IsIdle tells when all have ended and were
    // reported.
    void Stop();

    // --- messages -------------------------------------------------------------------------------
    void Submit(BMessage& message);    // 'KTJA'
    void List(BMessage& message);      // 'KTJL'
    void Continue(BMessage& message);  // 'KTJC'
    void Pause(BMessage& message);     // 'KTJP'
    void StartNow(BMessage& message);  // 'KTbg'
    void Delete(BMessage& message);    // 'KTJD'
    void Edit(BMessage& message);      // 'KTje'
    void Get(BMessage& message);       // 'KTjg'
    void Set(BMessage& message);       // 'KTjs'
    void TeamGone(int32_t team);

private:
    // One run of a job: where its lines go, and its report.
    class Output;

    void Record(QueuedJob job, int32_t client);
    void Refuse(const BMessage& description, int32_t client, const std::string& words);
    void Inserted(QueuedJob job, int32_t client);
    void Start(int32_t id);
    void Ended(int32_t id, core::JobEnd end);
    void Finish(int32_t id, core::JobEnd end, std::optional<QueuedJob> next);
    std::optional<QueuedJob> NextRun(const QueuedJob& job, int64_t started, core::JobEnd end);
    core::JobEnd Run(const JobOrder& order, JobEvents& events, JobControl& control);

    void Changed(int32_t id);
    void NotifyStatus(int32_t id);
    void TellIfNeverRuns(const QueuedJob& job);
    void TellOverdue();
    void Store(const QueuedJob& job);
    // Of a job that is about to start: gives numbers to backups that it brings from elsewhere.
    std::function<int32_t(int32_t wanted)> NumbersFor(int32_t id);

    Parts fParts;
    JobQueue fQueue;
    std::map<int32_t, std::shared_ptr<Output>> fOutputs;  // of running jobs
    std::map<int32_t, BackupKeys> fKeys;  // of jobs that wait, for what they will read
    std::atomic<int32_t> fLastId = 0;     // jobs that insert count on, too
    bool fStopping = false;
    JobRunner fRunner;  // ends before what its jobs use
};

}  // namespace server

#include "server/app/JobDesk.h"

#include <algorithm>
#include <limits>

#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "server/queue/JobDescription.h"
#include "server/queue/JobList.h"

namespace server {

namespace {

// Chunks of reports that may wait for the disk before the jobs that write them are slowed down.
constexpr size_t kMostWaitingChunks = 16;

LineChunk Words(core::LineType type, const std::string& words) {
    LineChunk lines;
    lines.AddWords(type, words);
    return lines;
}

// Of a job that was aborted before its engine had begun to say anything.
void TellAborted(core::JobType type, JobEvents& events) {
    KTReportLine arguments;
    int32_t text = core::text::kBackupAborted;
    switch (type) {
        case core::JobType::Restore:
            text = core::text::kRestoreAborted;
            break;
        case core::JobType::Compare:
            text = core::text::kCompareAborted;
            break;
        case core::JobType::Insert:
            text = core::text::kInsertAborted;
            break;
        case core::JobType::Verify:
            text = core::text::kLine;
            arguments.AddString("Status:\t\t\t\tCheck aborted!!!");
            break;
        default:
            break;
    }
    events.Line(core::LineType::Totals, text, arguments);
}

}  // namespace

class JobDesk::Output : public JobEvents {
public:
    Output(ReportInfo info, ReportWriter::Store store)
        : report(std::move(info)),
          stream(std::make_shared<JobStream>(report.jobId)),
          writer(std::move(store)) {}

    void Line(core::LineType type, int32_t textId, KTReportLine arguments) override {
        writer.Add(type, textId, arguments);
        stream->Line(type, textId, arguments);
    }
    void SetProgress(const Progress& progress) override { stream->SetProgress(progress); }

    // What holds the machine awake while the job's thread is at work; null when it is done.
    void SetWakeful(WakefulControl* wakeful) {
        const std::lock_guard lock(fMutex);
        fWakeful = wakeful;
    }
    void Paused() {
        const std::lock_guard lock(fMutex);
        if (fWakeful) fWakeful->Paused();
    }

    const ReportInfo report;
    const std::shared_ptr<JobStream> stream;
    ReportWriter writer;

private:
    std::mutex fMutex;
    WakefulControl* fWakeful = nullptr;
};

JobDesk::JobDesk(Parts parts)
    : fParts(std::move(parts)),
      fRunner([this](const JobOrder& order, JobEvents& events,
                     JobControl& control) { return Run(order, events, control); },
              [this](int32_t id, core::JobEnd end) {
                  fParts.host.Later([this, id, end] { Ended(id, end); });
              }) {}

void JobDesk::Recover() {
    // Ids are the keys of backups: one that a backup or a report has is taken, whatever became of
    // the file of jobs.
    for (const auto& backup : fParts.catalogues.Backups()) {
        fLastId = std::max({fLastId.load(), backup.jobId, backup.baseId});
    }
    LineChunk crash;
    crash.AddWords(core::LineType::Error, "The backup server ended while this job was running.");
    crash.Add(core::LineType::Error, core::text::kJobAbnormalEnd, {});

    int unreadable = 0;
    std::vector<StoredJob> stored;
    std::vector<ReportInfo> unfinished;
    fParts.writing.Do([&] {
        auto queue = fParts.records.Queue();
        auto reports = fParts.records.Reports();
        stored = queue.Load(&unreadable);
        unfinished = reports.Load(false);
        fLastId = std::max({fLastId.load(), queue.LastId(), reports.LastJobId()});
        (void)queue.ReserveIds(fLastId);  // they are counted again by the next start
        for (const auto& report : unfinished) {
            fParts.reports.AppendStored(report.id, crash.Message());
            fParts.reports.FinishStored(report.id);
        }
    });
    std::vector<QueuedJob> next;
    for (const auto& [job, started] : stored) {
        if (started == 0) continue;
        if (auto run = NextRun(job, started, core::JobEnd::Abnormal)) next.push_back(*run);
    }
    fParts.writing.Do([&] {
        // In one go: a crash in between must not take a repeating job away.
        Database::Transaction transaction(fParts.records.File());
        auto queue = fParts.records.Queue();
        for (const auto& [job, started] : stored) {
            if (started != 0) (void)queue.Remove(job.id);
        }
        for (const auto& job : next)
            (void)queue.Insert(job);
        (void)transaction.Commit();
    });
    for (auto& job : next)
        fQueue.Insert(std::move(job));

    std::set<int32_t> told;
    for (const auto& report : unfinished) {
        fParts.reports.Announce(report, {.end = core::JobEnd::Abnormal});
        told.insert(report.jobId);
    }
    for (auto& [job, started] : stored) {
        if (started == 0) {
            fQueue.Insert(std::move(job));
        } else if (!told.contains(job.id)) {
            fParts.reports.Write({0, job.id, static_cast<int32_t>(job.type), job.title, started},
                                 crash);
        }
    }
    if (unreadable > 0) {
        fParts.reports.Write(
            {0, 0, 0, "Job queue", 0},
            Words(core::LineType::Error, std::to_string(unreadable) +
                                             " jobs of the queue could not be read and are lost."));
    }
}

void JobDesk::Stop() {
    fStopping = true;
    fRunner.AbortAll();
}

// --- submitting ---------------------------------------------------------------------------------

void JobDesk::Submit(BMessage& message) {
    BMessage description = description::Cleaned(message);
    const int32_t client = description.Get<int32_t>("client_id", message.SourceTeam());
    if (!description::TypeOf(message)) {
        Refuse(description, client,
               "The job was refused: it is of a kind that this version does not know.");
        return;
    }
    if (fLastId == std::numeric_limits<int32_t>::max()) {
        Refuse(description, client, "The job was refused: there are no more job numbers.");
        return;
    }
    const int32_t id = ++fLastId;
    description::Plan(description, fParts.host.Now(), fParts.host.LocalZone());
    const core::JobType type = *description::TypeOf(message);
    // The password ends here: what it opened goes with the job that reads, of one that writes only
    // the key that it locks is kept.
    if (!core::IsBackup(type)) fKeys[id] = fParts.keys.TakeFor(message.SourceTeam());
    QueuedJob job = QueuedJob::Make(id, std::move(description), fParts.host.Now());
    if (type != core::JobType::Full || !description::WantsProtection(message) ||
        !description::HasPassword(message)) {
        Record(std::move(job), client);
        return;
    }
    fParts.keys.Protect(
        description::PasswordOf(message),
        [this, job = std::move(job), client](const kit::Result<archive::Protection>& made) {
            fParts.host.Later([this, job, client, made]() mutable {
                if (!made) {
                    Refuse(job.description, client,
                           "The job was refused: its backup cannot be protected. " +
                               made.error().Text());
                    return;
                }
                description::SetProtection(job.description, *made);
                Record(std::move(job), client);
            });
        });
}

void JobDesk::Record(QueuedJob job, int32_t client) {
    fParts.writing.Post([this, job = std::move(job), client] {
        auto stored = fParts.records.Queue().Insert(job);
        fParts.host.Later([this, job, client, stored] {
            if (stored) {
                Inserted(job, client);
            } else {
                fKeys.erase(job.id);
                Refuse(job.description, client,
                       "The job was refused, because it could not be recorded: " +
                           stored.error().Text());
            }
        });
    });
}

void JobDesk::Refuse(const BMessage& description, int32_t client, const std::string& words) {
    fParts.reports.Write(
        {0, 0, description::RawTypeOf(description), description::TitleOf(description), 0},
        Words(core::LineType::Error, words), {.client = client});
}

void JobDesk::Inserted(QueuedJob job, int32_t client) {
    BMessage notice(core::code::kJobInserted);
    AddToJobList(notice, job);
    notice.Add("client_id", client);
    TellIfNeverRuns(job);
    fQueue.Insert(std::move(job));
    fParts.host.NotifyAll(notice);
    Schedule();
}

void JobDesk::TellIfNeverRuns(const QueuedJob& job) {
    if (!job.schedule.NeverRuns()) return;
    LineChunk lines;
    lines.Add(core::LineType::Error, core::kMoreNeverRuns, {});
    fParts.reports.Write({0, job.id, static_cast<int32_t>(job.type), job.title, 0},
                         std::move(lines));
}

// --- running ------------------------------------------------------------------------------------

void JobDesk::Schedule() {
    while (!fStopping) {
        const auto id = fQueue.NextToStart(fParts.host.Now());
        if (!id) break;
        Start(*id);
    }
    if (!fStopping) TellOverdue();
    fParts.scheduleChanged();
}

void JobDesk::TimePassed() {
    for (const int32_t id : fQueue.MendDues(fParts.host.Now(), fParts.host.LocalZone())) {
        const QueuedJob& job = *fQueue.Find(id);
        Store(job);
        BMessage notice(core::code::kJobChanged);
        notice.Add("job_id", id);
        notice.Add("date", BTime::FromSeconds(job.Date()));
        fParts.host.NotifyAll(notice);
    }
    Schedule();
}

std::optional<int64_t> JobDesk::NextWake() const {
    if (fStopping) return std::nullopt;
    const int64_t now = fParts.host.Now();
    const auto due = fQueue.NextDue(now);
    const auto overdue = fQueue.NextOverdue(now, fParts.host.LocalZone());
    return due && overdue ? std::min(*due, *overdue) : due ? due : overdue;
}

void JobDesk::TellOverdue() {
    const int64_t now = fParts.host.Now();
    for (const int32_t id : fQueue.TakeOverdue(now, fParts.host.LocalZone())) {
        const QueuedJob& job = *fQueue.Find(id);
        const bool ever = job.series.good != 0;
        KTReportLine arguments;
        arguments.AddString(job.title);
        arguments.AddString(core::DateText(ever ? job.series.good : job.series.since));
        LineChunk lines;
        lines.Add(core::LineType::Error, ever ? core::kMoreOverdueSince : core::kMoreOverdueEver,
                  arguments);
        // First the report: rather told twice than never.
        fParts.reports.Write({0, id, static_cast<int32_t>(job.type), job.title, 0},
                             std::move(lines), {.overdue = true});
        Store(job);
    }
}

void JobDesk::Start(int32_t id) {
    fQueue.SetRunning(id);
    const QueuedJob& job = *fQueue.Find(id);
    const int32_t reportId = fParts.reports.NewId();
    auto output = std::make_shared<Output>(
        ReportInfo{reportId, id, static_cast<int32_t>(job.type), job.title, fParts.host.Now()},
        [this, reportId](BMessage lines) {
            fParts.writing.PostSlowly(
                [this, reportId, lines = std::move(lines)] {
                    fParts.reports.AppendStored(reportId, lines);
                },
                kMostWaitingChunks);
        });
    fOutputs[id] = output;
    NotifyStatus(id);
    fParts.panels.JobStarted(id, job.type, job.title, job.description.Get<int32_t>("client_id", 0),
                             output->stream);
    JobOrder order{id, job.type, job.title, job.description, {}, NumbersFor(id)};
    if (auto keys = fKeys.extract(id)) order.keys = std::move(keys.mapped());
    fRunner.Start(std::move(order), std::move(output), job.paused);
}

std::function<int32_t(int32_t)> JobDesk::NumbersFor(int32_t id) {
    std::set<int32_t> taken;
    for (const auto& [other, job] : fQueue.Jobs())
        if (other != id) taken.insert(other);
    return [this, taken = std::move(taken), last = fLastId.load()](int32_t wanted) {
        // Whoever had it, no job has it any more, and none will get it.
        if (wanted > 0 && wanted <= last && !taken.contains(wanted)) return wanted;
        for (int32_t now = fLastId;;) {
            if (now == std::numeric_limits<int32_t>::max()) return 0;
            const int32_t next = std::max(wanted, now + 1);
            if (fLastId.compare_exchange_weak(now, next)) return next;
        }
    };
}

// On the job's thread.
core::JobEnd JobDesk::Run(const JobOrder& order, JobEvents& events, JobControl& control) {
    auto& output = static_cast<Output&>(events);
    const auto& report = output.report;
    // That it runs is on the disk before it does anything, so that a crash is noticed by the next
    // start.
    fParts.writing.Do([&] {
        Database::Transaction transaction(fParts.records.File());
        (void)fParts.records.Queue().SetStarted(order.id, report.date);
        fParts.reports.BeginStored(report);
        (void)transaction.Commit();  // a full disk must not keep a backup from being made
    });
    if (!control.MayGoOn()) {
        TellAborted(order.type, events);
        return core::JobEnd::Aborted;
    }
    WakefulControl wakeful(control, fParts.keepAwake);
    if (wakeful.IsAwake()) events.Line(core::LineType::Detail, core::kMoreKeptAwake, {});
    struct Registered {
        Output& output;
        Registered(Output& out, WakefulControl& control) : output(out) {
            output.SetWakeful(&control);
        }
        ~Registered() { output.SetWakeful(nullptr); }
    } const registered(output, wakeful);
    return fParts.engine(order, events, wakeful);
}

void JobDesk::Ended(int32_t id, core::JobEnd end) {
    fRunner.Collect(id);
    auto output = fOutputs.at(id);
    auto next = NextRun(*fQueue.Find(id), output->report.date, end);
    fParts.writing.Post([this, id, end, output, next, rest = output->writer.TakeRest()] {
        Database::Transaction transaction(fParts.records.File());
        const bool stored = fParts.reports.AppendStored(output->report.id, rest);
        fParts.reports.FinishStored(output->report.id);
        (void)fParts.records.Queue().Remove(id);
        if (next) (void)fParts.records.Queue().Insert(*next);
        if (!transaction.Commit() && stored) {
            fParts.reports.KeepInMemory(output->report.id, rest);
        }
        fParts.host.Later([this, id, end, next] { Finish(id, end, next); });
    });
}

std::optional<QueuedJob> JobDesk::NextRun(const QueuedJob& job, int64_t started, core::JobEnd end) {
    if (fLastId == std::numeric_limits<int32_t>::max()) return std::nullopt;
    // A file that could not be read does not make a backup a bad one.
    const bool good =
        end == core::JobEnd::Good || (end == core::JobEnd::Errors && core::IsBackup(job.type) &&
                                      fParts.catalogues.FindByJob(job.id).has_value());
    std::optional<QueuedJob> next;
    // A job that inserts may take the number meanwhile.
    for (int32_t last = fLastId;;) {
        next = job.Next(last + 1, started, good, fParts.host.Now(), fParts.host.LocalZone());
        if (!next || fLastId.compare_exchange_strong(last, last + 1)) break;
    }
    return next;
}

// Whoever hears of the end finds the report and the backup in their lists.
void JobDesk::Finish(int32_t id, core::JobEnd end, std::optional<QueuedJob> next) {
    fParts.reports.Announce(fOutputs.at(id)->report, {.end = end});
    fOutputs.erase(id);
    fParts.reports.ApplyDeletion();
    if (next && !fQueue.Find(id)->schedule.Repeats()) {
        // It was deleted in its last moment.
        fParts.writing.Post([this, gone = next->id] { (void)fParts.records.Queue().Remove(gone); });
        next.reset();
    }
    fQueue.Ended(id);
    BMessage notice(next ? core::code::kJobChanged : core::code::kJobRemoved);
    notice.Add("job_id", id);
    if (next) {
        notice.Add("new_id", next->id);
        notice.Add("jobstatus", static_cast<int32_t>(next->Status()));
        notice.Add("date", BTime::FromSeconds(next->Date()));
        fQueue.Insert(std::move(*next));
    }
    fParts.host.NotifyAll(notice);
    fParts.catalogueChanged();
    fParts.panels.JobEnded(id, end);
    Schedule();
}

// --- what clients ask of a job ------------------------------------------------------------------

void JobDesk::List(BMessage& message) {
    BMessage reply(core::code::kJobInserted);
    for (const auto& [id, job] : fQueue.Jobs())
        AddToJobList(reply, job);
    for (const auto& backup : fParts.catalogues.Backups()) {
        if (backup.IsBase()) AddToJobList(reply, backup);
    }
    if (reply.IsEmpty()) reply.what = core::code::kNone;
    message.SendReply(std::move(reply));
}

void JobDesk::Continue(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    if (!fQueue.Continue(id)) return;
    fRunner.Pause(id, false);
    Changed(id);
}

void JobDesk::Pause(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    if (!fQueue.Pause(id)) return;
    fRunner.Pause(id, true);
    if (auto running = fOutputs.find(id); running != fOutputs.end()) running->second->Paused();
    Changed(id);
}

void JobDesk::StartNow(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    if (!fQueue.StartNow(id)) return;
    Store(*fQueue.Find(id));
    Schedule();
}

void JobDesk::Edit(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    const int32_t team = message.SourceTeam();
    const bool edit = message.Get<int32_t>("edit", 0) != 0;
    if (!(edit ? fQueue.MarkEdited(id, team) : fQueue.Unmark(id, team))) return;
    NotifyStatus(id);
    Schedule();
}

void JobDesk::TeamGone(int32_t team) {
    for (const int32_t id : fQueue.ReleaseEditor(team))
        NotifyStatus(id);
    Schedule();
}

void JobDesk::Delete(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    const bool abort = message.Get<int32_t>("flag", 0) != 0;
    switch (fQueue.Delete(id, abort)) {
        case JobQueue::Deletion::Unfit:
            return;
        case JobQueue::Deletion::MustAbort:
            if (!abort) Store(*fQueue.Find(id));
            fRunner.Abort(id);
            return;
        case JobQueue::Deletion::Removed:
            break;
    }
    fKeys.erase(id);
    fParts.writing.Post([this, id] {
        (void)fParts.records.Queue().Remove(id);
        fParts.host.Later([this, id] {
            BMessage removed(core::code::kJobRemoved);
            removed.Add("job_id", id);
            fParts.host.NotifyAll(removed);
            Schedule();
        });
    });
}

void JobDesk::Get(BMessage& message) {
    const QueuedJob* job = fQueue.Find(message.Get<int32_t>("job_id", 0));
    if (!job || job->running) {
        message.SendReply(core::code::kNone);
        return;
    }
    BMessage reply = job->description;
    reply.what = core::code::kSubmitJob;
    reply.Remove("client_id");
    description::RemoveProtection(reply);
    description::RemoveSeries(reply);
    reply.Add("job_id", job->id);
    message.SendReply(std::move(reply));
}

void JobDesk::Set(BMessage& message) {
    const int32_t id = message.Get<int32_t>("job_id", 0);
    const QueuedJob* job = fQueue.Find(id);
    const auto edited = message.Find<BMessage>("job_data");
    if (!job || job->running || !edited || !description::TypeOf(*edited)) return;
    const QueuedJob former = *job;
    BMessage changed = description::Edited(former.description, *edited);
    description::Plan(changed, fParts.host.Now(), fParts.host.LocalZone(), &former.description);
    fQueue.Change(id, std::move(changed));
    Store(*job);
    // What its editor has opened by passwords is for this job.
    if (!core::IsBackup(job->type) && job->editors.contains(message.SourceTeam()))
        fKeys[id].merge(fParts.keys.TakeFor(message.SourceTeam()));
    if (!former.schedule.NeverRuns()) TellIfNeverRuns(*job);

    BMessage notice(core::code::kJobChanged);
    notice.Add("job_id", id);
    if (job->title != former.title) notice.Add("title", job->title);
    if (job->type != former.type) notice.Add("job_type", static_cast<int32_t>(job->type));
    if (job->Date() != former.Date()) notice.Add("date", BTime::FromSeconds(job->Date()));
    fParts.host.NotifyAll(notice);
    Schedule();
}

void JobDesk::Changed(int32_t id) {
    Store(*fQueue.Find(id));
    NotifyStatus(id);
    Schedule();
}

void JobDesk::NotifyStatus(int32_t id) {
    BMessage notice(core::code::kJobChanged);
    notice.Add("job_id", id);
    notice.Add("jobstatus", static_cast<int32_t>(fQueue.Find(id)->Status()));
    fParts.host.NotifyAll(notice);
}

void JobDesk::Store(const QueuedJob& job) {
    fParts.writing.Post([this, job] {
        // In memory it is as the user wants it; the next change tries again.
        (void)fParts.records.Queue().Update(job);
    });
}

}  // namespace server

#include "server/queue/JobList.h"

namespace server {

namespace {

void AddEntry(BMessage& list, int32_t id, const std::string& title, int32_t status,
              core::JobType type, int64_t date, bool base) {
    list.Add("job_id", id);
    list.Add("title", title);
    list.Add("jobstatus", status);
    list.Add("job_type", static_cast<int32_t>(type));
    list.Add("date", BTime::FromSeconds(date));
    list.Add("base", base);
}

}  // namespace

void AddToJobList(BMessage& list, const QueuedJob& job) {
    AddEntry(list, job.id, job.title, static_cast<int32_t>(job.Status()), job.type, job.Date(),
             false);
}

void AddToJobList(BMessage& list, const BackupInfo& backup) {
    AddEntry(list, backup.jobId, backup.title, 0, backup.type, backup.start, true);
}

}  // namespace server

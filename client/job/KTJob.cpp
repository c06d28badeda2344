#include "client/job/KTJob.h"

void KTJob::Replace(const BMessage& job) {
    fJob = job;
    fJob.what = core::code::kSubmitJob;
    // Routing adds a value of its own; a job starts with one.
    for (int32_t i = fJob.Count("job_type") - 1; i > 0; --i)
        fJob.RemoveAt("job_type", i);
}

BMessage KTJob::StartInfo() const {
    return core::WithoutPasswords(fJob.Get("start_info", BMessage()));
}

uint32_t KTJob::StartTime() const {
    return Schedule().Get("TIME", BTime()).seconds;
}

void KTJob::ClearSchedule() {
    auto schedule = fJob.Find<BMessage>("scheduler");
    if (!schedule) return;
    for (const char* name : {"TIME", "Months", "Days", "Hours", "Minutes"})
        schedule->Remove(name);
    fJob.Set("scheduler", *schedule);
}

core::HeaderSave KTJob::Save(const std::string& path) const {
    return core::SaveHeaderFile(path, fFiles.jobMagic, fJob, fFiles.mimeType);
}

core::HeaderLoad KTJob::Load(const std::string& path, BMessage* job) const {
    return core::LoadHeaderFile(path, fFiles.jobMagic, job);
}

#include "client/restore/KTRestoreJob.h"

namespace {

constexpr KTJob::FileKind kFiles = {core::kRestoreJobMagic, core::kRestoreSelectionMagic,
                                    core::kRestoreSelectionType, "default_res"};

}  // namespace

KTRestoreJob::KTRestoreJob() : KTJob(kFiles) {
    Replace(BMessage());
}

void KTRestoreJob::Replace(const BMessage& job) {
    KTJob::Replace(job);
    fJob.Remove("job_type");
    fJob.Add("job_type", static_cast<int32_t>(core::JobType::Restore));
}

void KTRestoreJob::SetDivert(bool divert) {
    BMessage settings = Settings();
    settings.Set("divert", static_cast<int32_t>(divert));
    SetSettings(settings);
}

BMessage KTRestoreJob::InsertStartInfo() const {
    return core::WithoutPasswords(InsertSettings().Get("start_info", BMessage()));
}

void KTRestoreJob::SetInsertStartInfo(const BMessage& info) {
    BMessage settings = InsertSettings();
    settings.Set("start_info", info);
    SetInsertSettings(settings);
}

BMessage KTRestoreJob::InsertJob(int64_t now) {
    BMessage job = InsertSettings();
    job.what = core::code::kSubmitJob;
    job.Remove("job_type");
    job.Add("job_type", static_cast<int32_t>(core::JobType::Insert));
    BMessage schedule = job.Get("scheduler", BMessage());
    schedule.Set("TIME", BTime::FromSeconds(now));
    job.Set("scheduler", schedule);
    SetInsertSettings(job);
    return job;
}

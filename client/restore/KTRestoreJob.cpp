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

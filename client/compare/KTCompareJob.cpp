#include "client/compare/KTCompareJob.h"

namespace {

// The type is shared with restore jobs; the magic tells them apart.
constexpr KTJob::FileKind kFiles = {core::kCompareJobMagic, core::kRestoreSelectionMagic,
                                    core::kRestoreSelectionType, "default_cmp"};
// Spelled as ever: nothing is stored under it.
constexpr char kSettingsMade[] = "comapare";

}  // namespace

KTCompareJob::KTCompareJob() : KTJob(kFiles) {
    Replace(BMessage());
}

void KTCompareJob::Replace(const BMessage& job) {
    KTJob::Replace(job);
    fJob.Remove("job_type");
    fJob.Add("job_type", static_cast<int32_t>(core::JobType::Compare));
}

void KTCompareJob::InitSettings() {
    if (fJob.Has(kSettingsMade)) return;
    BMessage all;
    all.Add("compareall", int32_t{1});
    fJob.Add("compare", all);
}

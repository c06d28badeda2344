#include "client/backup/KTBackupJob.h"

#include "addons/KTCruncher.h"
#include "addons/KTVolume.h"
#include "client/addons/AddOnCatalogue.h"
#include "core/selection/KTSelection.h"

namespace {

constexpr KTJob::FileKind kFiles = {core::kBackupJobMagic, core::kSelectionMagic,
                                    core::kBackupSelectionType, "default_bak"};

void KeepFirst(BMessage& message, std::string_view name) {
    for (int32_t i = message.Count(name) - 1; i > 0; --i)
        message.RemoveAt(name, i);
}

}  // namespace

KTBackupJob::KTBackupJob() : KTDestinationJob(kFiles) {
    fJob.Set("job_type", static_cast<int32_t>(core::JobType::Full));
}

void KTBackupJob::Replace(const BMessage& job) {
    KTDestinationJob::Replace(job);
    // Sending adds values of its own; a job starts with one of each.
    for (const char* name : {"addon", "bak_addonpacker"})
        KeepFirst(fJob, name);
    const auto type = fJob.Find<int32_t>("job_type");
    if (!type || !core::IsKnownJobType(*type) ||
        !core::IsBackup(static_cast<core::JobType>(*type))) {
        fJob.Remove("job_type");
        SetType(core::JobType::Full);
    }
}

core::JobType KTBackupJob::Type() const {
    return static_cast<core::JobType>(fJob.Get<int32_t>("job_type", 1));
}

void KTBackupJob::SetType(core::JobType type) {
    fJob.Set("job_type", static_cast<int32_t>(type));
}

core::JobType KTBackupJob::TypeOfMenuIndex(int32_t index) {
    return index == 1   ? core::JobType::Incremental
           : index == 2 ? core::JobType::Differential
                        : core::JobType::Full;
}

void KTBackupJob::KeepWhatTheTypeUses() {
    fJob.Remove(IsFull() ? "base_id" : "selection");
}

std::string KTBackupJob::Packer() const {
    return fJob.Get("bak_addonpacker", std::string(kUsualPacker));
}

BMessage KTBackupJob::PackerSettings() const {
    BMessage settings = fJob.Get("bak_packer", BMessage());
    const auto owner = settings.FindString("addon");
    return !owner || *owner == Packer() ? settings : BMessage();
}

void KTBackupJob::StorePacker(BMessage settings) {
    const std::string chosen = Packer();
    if (!settings.Has("addon")) settings.Add("addon", chosen);
    if (settings.FindString("addon") == chosen) fJob.Set("bak_packer", settings);
}

BMessage KTBackupJob::StartInfoFor(std::string_view baseTitle) const {
    BMessage info = StartInfo();
    if (!IsFull()) info.Set("title", baseTitle);
    return info;
}

void KTBackupJob::SetTitle(std::string_view title) {
    BMessage info = fJob.Get("start_info", BMessage());
    info.Set("title", title);
    fJob.Set("start_info", info);
}

void KTBackupJob::ForgetPassword() {
    const BMessage info = fJob.Get("start_info", BMessage());
    if (info.Has("password")) fJob.Set("start_info", core::WithoutPasswords(info));
}

std::string KTBackupJob::VarRule(std::string_view bootVolume) {
    return "EXCLUDE /" + std::string(bootVolume) + "/var/*";
}

BMessage KTBackupJob::ForSending(const KTVolume* destination, const KTCruncher* packer,
                                 std::string_view bootVolume) const {
    BMessage job = fJob;
    job.what = core::code::kSubmitJob;
    if (IsFull()) {
        job.Remove("base_id");
        BMessage selection = Selection();
        core::selection::EnsureLast(selection, VarRule(bootVolume));
        job.Set("selection", selection);
    } else {
        job.Remove("selection");
        job.Set("base_id", BaseId());
    }
    if (job.Count("addon", B_MESSAGE_TYPE) == 0) job.Add("addon", kUsualDestination);
    if (job.Count("volume", B_MESSAGE_TYPE) == 0 && destination) {
        BMessage settings;
        destination->Archive(&settings, true);
        job.Set("volume", settings);
    }
    if (job.Count("bak_addonpacker", B_MESSAGE_TYPE) == 0) job.Add("bak_addonpacker", "");
    if (job.Count("bak_packer", B_MESSAGE_TYPE) == 0 && packer) {
        BMessage settings;
        packer->Archive(&settings, true);
        job.Set("bak_packer", settings);
    }
    return job;
}

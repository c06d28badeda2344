// The job of the backup tools: what is backed up, where to and how. A plain value; one thread at a
// time.
#pragma once

#include <string>
#include <string_view>

#include "client/addons/KTDestinationJob.h"

class KTVolume;
class KTCruncher;

class KTBackupJob : public KTDestinationJob {
public:
    KTBackupJob();

    // A missing or unknown "job_type" becomes full.
    void Replace(const BMessage& job) override;

    core::JobType Type() const;
    bool IsFull() const { return Type() == core::JobType::Full; }
    void SetType(core::JobType type);
    // The items of the mode menu, in their order.
    static core::JobType TypeOfMenuIndex(int32_t index);
    static int32_t MenuIndexOf(core::JobType type) { return static_cast<int32_t>(type) - 1; }

    // --- what is backed up ----------------------------------------------------------------------
    int32_t BaseId() const { return fJob.Get<int32_t>("base_id", 0); }  // 0: none chosen
    void SetBase(int32_t jobId) { fJob.Set("base_id", jobId); }
    // Keeps of selection and base what the type uses, and takes the other one away.
    void KeepWhatTheTypeUses();

    // Only a full backup does.
    bool MayOverwrite() const override { return IsFull(); }

    // --- compressor -----------------------------------------------------------------------------
    std::string Packer() const;
    void SetPacker(std::string_view addOn) { fJob.Set("bak_addonpacker", addOn); }
    BMessage PackerSettings() const;  // empty unless they are the chosen compressor's
    void StorePacker(BMessage settings);

    // --- start information ----------------------------------------------------------------------
    // What the start dialog opens with: no password, and for other than full backups the base's
    // title.
    BMessage StartInfoFor(std::string_view baseTitle) const;
    void SetTitle(std::string_view title);
    // A password is used for one sending and not kept.
    void ForgetPassword();

    // --- sending --------------------------------------------------------------------------------
    // The message that is posted; the kept job stays as it is. The selection of a full backup ends
    // in the rule that leaves /var of the boot volume out. "addon" and "bak_addonpacker" get a
    // second value behind the chosen one: receivers take the first. Without "volume" or
    // "bak_packer" the objects (null: none) are archived into them.
    BMessage ForSending(const KTVolume* destination, const KTCruncher* packer,
                        std::string_view bootVolume) const;
    static std::string VarRule(std::string_view bootVolume);
};

// The course of one backup, from the first line of its report to the last.
//
// Used by one thread, the job's; the threads it starts end with it.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "addons/KTCruncher.h"
#include "addons/KTVolume.h"
#include "server/archive/BackupWriter.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/JobReport.h"
#include "server/engine/TreePacker.h"

namespace server {

// What an incremental or differential backup is built on.
struct BaseBackup {
    // Held as long as the job runs, so that none of them goes away: the whole chain, the newest
    // last.
    std::vector<std::shared_ptr<const BackupInfo>> held;
    CatalogueOrigin origin;
    CatalogueReader catalogue;
    const BackupInfo& Info() const { return *held.back(); }

    // Of the set that `setId` names: the full backup for a differential one, else the newest.
    // NotFound: there is none, or one of those that it builds on is missing; the error's path names
    // it. Denied: its tree is still locked. Unsupported: its catalogue was lost and made anew, so
    // that it does not tell what was to be saved.
    static kit::Result<std::unique_ptr<BaseBackup>> Find(CatalogueStore& catalogues, int32_t setId,
                                                         core::JobType type);
};

class BackupJob {
public:
    // `base`: for other than full backups. The add-ons are set up as the job wants them. All
    // references must live as long as this.
    BackupJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobReport& report, JobControl& control, KTVolume& volume, KTCruncher& compressor,
              std::unique_ptr<BaseBackup> base = nullptr);

    core::JobEnd Run();

private:
    bool CheckDestination();
    bool FindSources();
    bool WriteData();
    bool FinishCatalogue();
    bool WriteRest();
    bool WriteCatalogue();
    bool CopyBaseFrames();
    bool WriteGone();
    bool WriteKey();
    bool WriteManifest();
    bool MakeItExist();
    core::JobEnd Ended(bool published);

    // Older backups that are to be overwritten; how many went.
    int RemoveOldBackups();
    bool MayBeOverwritten(const std::string& name);
    bool MakeRoom();
    bool WaitForDisc(const archive::BackupWriter::FullDisc& full);
    std::string ProblemWithDisc(int64_t needed, int64_t before);
    bool DestinationFailed(const kit::Error& error);
    bool TellFailure(const kit::Error& error);
    int32_t SetId() const;
    int Workers() const;

    const JobOrder& fOrder;
    const EngineConfig& fConfig;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;
    KTVolume& fVolume;
    KTCruncher& fCompressor;

    int64_t fStart = 0;  // seconds since the epoch
    std::string fName;
    std::string fTitle;
    const std::unique_ptr<BaseBackup> fBase;
    const std::optional<archive::Protection> fProtection;
    std::vector<BVolume> fSources;
    std::vector<core::SelectionRule> fRules;
    std::vector<OwnFiles> fOwn;
    int32_t fSource = 0;      // its place in the chain
    int64_t fFirstFrame = 0;  // its own come after those of its base
    std::unique_ptr<CatalogueWriter> fCatalogue;
    std::unique_ptr<archive::BackupWriter> fWriter;
    bool fRemovable = false;
    bool fInRest = false;                 // the media are written
    std::optional<kit::Error> fDiscFull;  // what stands behind them did not fit
    std::set<std::string> fKept;          // older backups of which it was told that they stay
    archive::Manifest fManifest;
    TreePacker::Totals fTotals;
};

}  // namespace server

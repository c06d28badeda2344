// The course of one full backup, from the first line of its report to the last.
//
// Used by one thread, the job's; the threads it starts end with it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addons/KTCruncher.h"
#include "addons/KTVolume.h"
#include "server/archive/BackupWriter.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/JobReport.h"
#include "server/engine/TreePacker.h"

namespace server {

class BackupJob {
public:
    // The add-ons are set up as the job wants them. All references must live as long as this.
    BackupJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobReport& report, JobControl& control, KTVolume& volume, KTCruncher& compressor);

    core::JobEnd Run();

private:
    bool CheckDestination();
    bool FindSources();
    void FindOwnFiles();
    bool WriteData();
    bool WriteCatalogue();
    bool WriteKey();
    bool WriteManifest();
    bool MakeItExist();
    void RemoveOldBackups();
    core::JobEnd Ended(bool published);

    bool WaitForRoom(int medium);
    bool DestinationFailed(const kit::Error& error);
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
    const std::optional<archive::Protection> fProtection;
    std::vector<BVolume> fSources;
    std::vector<core::SelectionRule> fRules;
    std::vector<OwnFiles> fOwn;
    std::unique_ptr<CatalogueWriter> fCatalogue;
    std::unique_ptr<archive::BackupWriter> fWriter;
    TreePacker::Totals fTotals;
};

}  // namespace server

// Brings backups that lie on a destination back into the catalogue: those that the job names, one
// after the other. Writes nothing to the destination.
//
// Used by one thread, the job's.
#pragma once

#include <string>
#include <vector>

#include "addons/KTVolume.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/JobReport.h"

namespace server {

class InsertJob {
public:
    InsertJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobReport& report, JobControl& control);
    core::JobEnd Run();

private:
    std::vector<std::string> Folders() const;
    bool InsertAll();
    void Insert(KTVolume& volume, const std::string& folder);
    bool LookAt(KTVolume& volume, const std::string& folder, BackupInfo* info);
    bool MakeCatalogue(KTVolume& volume, BackupInfo* info);
    bool Lock(KTVolume& volume, BackupInfo* info);
    kit::Status Adopt(BackupInfo* info);
    int32_t SetIdOf(const std::string& full, int32_t wanted) const;
    int32_t FreeId(int32_t wanted) const;

    const JobOrder& fOrder;
    const EngineConfig& fConfig;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;
    int64_t fFiles = 0, fBytes = 0;
};

}  // namespace server

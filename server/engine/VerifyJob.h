// Checks backups where they lie: every file against its sum, every frame against its checksum,
// every member's header against the catalogue. Changes nothing.
#pragma once

#include <map>
#include <string>

#include "server/engine/JobEnvironment.h"
#include "server/engine/SelectedBackups.h"

namespace server {

class VerifyJob {
public:
    VerifyJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobReport& report, JobControl& control);
    core::JobEnd Run();

private:
    void Check(const OpenBackup& backup);
    void CheckSums(const OpenBackup& backup);
    void CheckSum(const OpenBackup& backup, const std::string& file, const std::string& sum);
    void CheckDisc(const OpenBackup& backup, int disc);
    void CheckStream(const OpenBackup& backup);

    const JobOrder& fOrder;
    const EngineConfig& fConfig;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;
    int fReadDisc = 0;                            // the one in the drive
    std::map<std::string, std::string> fChecked;  // media of discs before the last: their sums
    int64_t fBackups = 0, fFiles = 0, fBytes = 0;
};

}  // namespace server

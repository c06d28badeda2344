// One restore from its order to its last line. The catalogue is walked in the order of the stream;
// its directories are made on the way, everything else is handed in bundles, frame by frame, to
// threads that read and write. Hard links and what directories carry come at the end.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "core/selection/RestorePlaces.h"
#include "server/engine/CatalogueWalk.h"
#include "server/engine/EntryRestorer.h"
#include "server/engine/JobEnvironment.h"

namespace server {

class RestoreJob {
public:
    RestoreJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
               JobReport& report, JobControl& control);
    core::JobEnd Run();

private:
    class Backup;  // the restore of what is selected of one backup

    void TellSettings();
    core::JobEnd Ended();

    const JobOrder& fOrder;
    const EngineConfig& fConfig;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;

    std::vector<core::SelectionRule> fRules;
    Overwrite fOverwrite = Overwrite::No;
    bool fCreateEmpty = false, fCreateRoot = false, fDivert = false;
    RestoreLosses fLosses;
    std::atomic<int64_t> fFiles = 0, fBytes = 0, fKept = 0;
    std::atomic<int64_t> fTaken = 0;  // what the selection found
    std::atomic<bool> fFull = false;
};

}  // namespace server

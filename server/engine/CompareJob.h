// One comparison from its order to its last line: what is selected of a backup against what is on
// disk where it came from. The catalogue is walked in the order of the stream; its entries go in
// bundles to threads that read both sides. Beside them the disk is walked for what is new there.
// Changes nothing.
#pragma once

#include <atomic>
#include <vector>

#include "core/selection/KTSelection.h"
#include "server/engine/CompareItems.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/JobReport.h"
#include "server/engine/SelectedBackups.h"

namespace server {

class CompareJob {
public:
    CompareJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
               JobReport& report, JobControl& control);
    core::JobEnd Run();

private:
    class Backup;  // the comparison of what is selected of one backup

    core::JobEnd Ended();

    const JobOrder& fOrder;
    const EngineConfig& fConfig;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;

    const CompareItems fItems;
    std::vector<core::SelectionRule> fRules;
    std::atomic<int64_t> fFiles = 0, fBytes = 0, fDifferent = 0, fUnreadable = 0;
    int64_t fTaken = 0;  // what the selection found
};

}  // namespace server

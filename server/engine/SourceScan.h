// Counts what a backup will read, on a thread of its own that runs ahead of the reading, so that
// progress has totals early. Keeps nothing of what it sees; problems are left to the one who reads.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

#include "kit/storage/BVolume.h"
#include "server/engine/JobReport.h"
#include "server/engine/TreeWalk.h"

namespace server {

class SourceScan {
public:
    // All references must live as long as this.
    SourceScan(const core::SelectionMatcher& matcher, const std::vector<OwnFiles>& own,
               const std::vector<BVolume>& volumes, JobReport& report, JobControl& control);
    ~SourceScan();  // ends it
    void Wait();

private:
    std::atomic<bool> fEnd = false;
    std::thread fThread;
};

}  // namespace server

// What a running job shows: the job's threads put in every line and every step of progress, the
// looper takes out what is new at its own pace. In between only the newest of each kind is kept, so
// a job may be as quick as it likes. Thread-safe.
#pragma once

#include <mutex>
#include <optional>
#include <vector>

#include "server/engine/JobEnvironment.h"

namespace server {

class JobStream {
public:
    explicit JobStream(int32_t jobId) : fJobId(jobId) {}

    // Directories and files are not shown as lines: the progress names them.
    void Line(core::LineType type, int32_t textId, const KTReportLine& arguments);
    void SetProgress(const Progress& progress);

    // 'KTJF' messages that nobody has taken yet: at most a volume line, another line (an error
    // stays until it was taken) and the progress.
    std::vector<BMessage> TakeNew();
    // What a panel that comes late needs: the volume line and the last progress.
    std::vector<BMessage> Latest() const;

private:
    BMessage ProgressMessage(const Progress& progress) const;

    const int32_t fJobId;
    mutable std::mutex fMutex;
    std::optional<BMessage> fVolume;
    std::optional<Progress> fProgress;
    std::vector<BMessage> fNewLines;  // at most one of type volume and one other, in their order
    bool fNewProgress = false;
};

}  // namespace server

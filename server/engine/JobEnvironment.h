// Where the engine meets the rest of the server. The engine does one job at a time per thread and
// talks through these; it knows no client, no queue and no wording.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "core/protocol/LineTypes.h"
#include "core/report/KTReportLine.h"
#include "kit/storage/BVolume.h"
#include "server/archive/AgeKeys.h"
#include "server/catalogue/CatalogueStore.h"

namespace server {

struct Progress {
    int64_t size = 0, maxSize = 0;    // bytes done, bytes in all
    int64_t count = 0, maxCount = 0;  // files
    int32_t elapsed = 0, remain = 0;  // seconds
    float speed = 0;                  // bytes per second
    std::string path;                 // what is being worked on: "/Volume/path"
};

// What the engine has to say. Calls come from the job's threads, one at a time, and must not block
// long.
class JobEvents {
public:
    virtual ~JobEvents() = default;
    virtual void Line(core::LineType type, int32_t textId, KTReportLine arguments) = 0;
    virtual void SetProgress(const Progress& progress) = 0;  // at most 10 a second

    // Words without a text id of their own: text 279.
    void Words(core::LineType type, const std::string& words);
};

// What others want of a running job. Thread-safe.
class JobControl {
public:
    virtual ~JobControl() = default;
    // Waits while the job is paused; false when it is to end now. Called between blocks, from any
    // of the job's threads.
    virtual bool MayGoOn() = 0;
    virtual bool IsAborted() const = 0;
};

struct EngineConfig {
    std::string addOnFolder;  // "…/Backup_Server/add-ons": destination/ and compressors/ below it
    BVolumeRoster roster;     // volume names to mounts
    int workers = 0;          // compressing threads; 0: one per core
    // Files of the server's own that change while it works: left out of backups, with everything
    // beside them whose name begins with theirs (logs, journals).
    std::vector<std::string> ownFiles;
    // A medium that is waited for is looked for this often.
    std::chrono::milliseconds lookAgain = std::chrono::seconds(2);
    std::function<int64_t()> now;  // seconds since the epoch; empty: the system's clock
};

// What opens protected backups, by their names. Shared, so that it is wiped when the last job that
// has it ends.
using BackupKeys = std::map<std::string, std::shared_ptr<const archive::AgeIdentity>>;

// One job as the engine needs it. `description` is the submitted message ('KTJA').
struct JobOrder {
    int32_t id = 0;
    core::JobType type = core::JobType::Full;
    std::string title;
    BMessage description;
    BackupKeys keys;  // of the protected backups that it may read
    // A job number for a backup that comes from elsewhere: `wanted` where no job has it, else (0,
    // too) one that nobody ever had. 0: there are no more. Job's thread.
    std::function<int32_t(int32_t wanted)> number;
};

// Runs the job to its end on the calling thread (and threads of its own) and says how it ended.
// Every error is a line; nothing is thrown. A finished backup is in `catalogues` when this returns
// well.
core::JobEnd RunJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                    JobEvents& events, JobControl& control);

}  // namespace server

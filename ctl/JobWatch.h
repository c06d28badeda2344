// Submits a job and follows it to its end: progress line, Ctrl-C, report, exit code.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "core/schedule/Schedule.h"
#include "ctl/ExitCode.h"
#include "kit/message/BMessage.h"

namespace ctl {

class ServerConnection;

struct WatchOptions {
    core::JobType type = core::JobType::Full;
    bool onHold = false;                       // not to be waited for
    std::optional<core::Schedule> schedule{};  // nor one that has this
    bool json = false;                         // one document at the end
    bool verbose = false;                      // print the whole report
    // Of an insert: the folders of the backups that are to come into the catalogue.
    std::vector<std::string> inserted = {};
};
// The server must be connected. Adds the client's id to the job.
ExitCode SubmitAndWatch(ServerConnection& server, BMessage job, const WatchOptions& options);

}  // namespace ctl

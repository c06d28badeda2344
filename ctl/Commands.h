// The commands. Each does its work, prints what there is to print and tells how to end.
#pragma once

#include <string>
#include <vector>

#include "ctl/ExitCode.h"

namespace ctl {

class ServerConnection;

struct BackupOptions {
    std::vector<std::string> paths;
    std::string target;
    std::string compress = "zstd";
    std::string title;
    bool onHold = false;
    bool json = false;
    bool verbose = false;
};
ExitCode Backup(ServerConnection& server, const BackupOptions& options);

ExitCode Jobs(ServerConnection& server, bool json);
// "pause", "continue" or "abort" for the job that the user named.
enum class JobCommand { Pause, Continue, Abort };
ExitCode Control(ServerConnection& server, JobCommand command, const std::string& job, bool json);

ExitCode Reports(ServerConnection& server, bool json);
ExitCode Report(ServerConnection& server, int32_t id, bool json);

}  // namespace ctl

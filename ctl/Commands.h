// The commands. Each does its work, prints what there is to print and tells how to end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/ExitCode.h"
#include "ctl/ScheduleOptions.h"

namespace ctl {

class ServerConnection;

// What the options of a command begin with, as far as it has them.
struct CommonOptions {
    bool json = false;
    bool verbose = false;
    std::optional<int> passwordFd;
};

struct BackupOptions : CommonOptions {
    std::vector<std::string> paths;
    std::string target;
    std::string compress = "zstd";
    std::string title;
    std::string incremental, differential;  // the backup whose set it goes to; one of them at most
    ScheduleOptions when;  // empty: it starts as soon as there is room, and is waited for
    bool onHold = false;
    bool protect = false;
};
ExitCode Backup(ServerConnection& server, const BackupOptions& options);

ExitCode Jobs(ServerConnection& server, bool json);
ExitCode Queue(ServerConnection& server, bool json);  // with when they run next
// What is to be done with the job that the user named. Abort: the run; Delete: all runs to come.
enum class JobCommand { Start, Pause, Continue, Abort, Delete, Hold };
ExitCode Control(ServerConnection& server, JobCommand command, const std::string& job, bool json);

// Shows the schedule of the job that the user named, changed before if the options say so.
struct ScheduleCommand : CommonOptions {
    std::string job;
    ScheduleOptions options;
    bool none = false;  // no schedule any more
};
ExitCode ShowSchedule(ServerConnection& server, const ScheduleCommand& command);

// What running jobs say, line by line, until the user interrupts.
ExitCode Watch(ServerConnection& server, bool json);
// The same of one running job, until it ends; then its report. A report's number is just printed.
ExitCode Follow(ServerConnection& server, const std::string& number, bool json);

ExitCode Reports(ServerConnection& server, bool json);
ExitCode Report(ServerConnection& server, int32_t id, bool json);
// The same with a server that is connected.
ExitCode PrintReportOf(ServerConnection& server, int32_t id, bool json);

ExitCode List(ServerConnection& server, bool json);

struct BrowseOptions : CommonOptions {
    std::string backup;
    std::string path = "/";
};
ExitCode Browse(ServerConnection& server, const BrowseOptions& options);

struct FindOptions : CommonOptions {
    std::string text;
    int32_t most = 100;
};
ExitCode Find(ServerConnection& server, const FindOptions& options);

struct RestoreOptions : CommonOptions {
    std::string backup;
    std::vector<std::string> paths;
    std::string target;  // "": the old places
    std::string overwrite = "no";
};
ExitCode Restore(ServerConnection& server, const RestoreOptions& options);

struct CompareOptions : CommonOptions {
    std::string backup;
    std::vector<std::string> paths;  // none: all of it
    std::vector<std::string> items;  // words of IsCompareItem; none: all of them
};
ExitCode Compare(ServerConnection& server, const CompareOptions& options);

struct VerifyOptions : CommonOptions {
    std::string backup;
};
ExitCode Verify(ServerConnection& server, const VerifyOptions& options);

struct ScanOptions : CommonOptions {
    std::string folder;
};
ExitCode Scan(ServerConnection& server, const ScanOptions& options);

struct InsertOptions : CommonOptions {
    std::string folder;
    std::vector<std::string> backups;
};
ExitCode Insert(ServerConnection& server, const InsertOptions& options);

struct DeleteOptions : CommonOptions {
    std::vector<std::string> backups;
    bool withData = false;
    bool yes = false;  // do not ask
};
ExitCode Delete(ServerConnection& server, const DeleteOptions& options);

}  // namespace ctl

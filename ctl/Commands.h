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

struct BackupOptions {
    std::vector<std::string> paths;
    std::string target;
    std::string compress = "zstd";
    std::string title;
    std::string incremental, differential;  // the backup whose set it goes to; one of them at most
    ScheduleOptions when;  // empty: it starts as soon as there is room, and is waited for
    bool onHold = false;
    bool protect = false;
    std::optional<int> passwordFd;
    bool json = false;
    bool verbose = false;
};
ExitCode Backup(ServerConnection& server, const BackupOptions& options);

ExitCode Jobs(ServerConnection& server, bool json);
ExitCode Queue(ServerConnection& server, bool json);  // with when they run next
// What is to be done with the job that the user named. Abort: the run; Delete: all runs to come.
enum class JobCommand { Start, Pause, Continue, Abort, Delete, Hold };
ExitCode Control(ServerConnection& server, JobCommand command, const std::string& job, bool json);

// Shows the schedule of the job that the user named, changed before if the options say so.
struct ScheduleCommand {
    std::string job;
    ScheduleOptions options;
    bool none = false;  // no schedule any more
    bool json = false;
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

struct BrowseOptions {
    std::string backup;
    std::string path = "/";
    std::optional<int> passwordFd;
    bool json = false;
};
ExitCode Browse(ServerConnection& server, const BrowseOptions& options);

struct FindOptions {
    std::string text;
    int32_t most = 100;
    bool json = false;
};
ExitCode Find(ServerConnection& server, const FindOptions& options);

struct RestoreOptions {
    std::string backup;
    std::vector<std::string> paths;
    std::string target;  // "": the old places
    std::string overwrite = "no";
    std::optional<int> passwordFd;
    bool json = false;
    bool verbose = false;
};
ExitCode Restore(ServerConnection& server, const RestoreOptions& options);

struct CompareOptions {
    std::string backup;
    std::vector<std::string> paths;  // none: all of it
    std::vector<std::string> items;  // words of IsCompareItem; none: all of them
    std::optional<int> passwordFd;
    bool json = false;
    bool verbose = false;
};
ExitCode Compare(ServerConnection& server, const CompareOptions& options);

struct VerifyOptions {
    std::string backup;
    std::optional<int> passwordFd;
    bool json = false;
    bool verbose = false;
};
ExitCode Verify(ServerConnection& server, const VerifyOptions& options);

struct ScanOptions {
    std::string folder;
    bool json = false;
};
ExitCode Scan(ServerConnection& server, const ScanOptions& options);

struct InsertOptions {
    std::string folder;
    std::vector<std::string> backups;
    bool json = false;
    bool verbose = false;
};
ExitCode Insert(ServerConnection& server, const InsertOptions& options);

struct DeleteOptions {
    std::vector<std::string> backups;
    bool withData = false;
    bool yes = false;  // do not ask
    bool json = false;
};
ExitCode Delete(ServerConnection& server, const DeleteOptions& options);

}  // namespace ctl

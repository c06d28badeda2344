// The backups that the server knows, as commands name and list them.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "ctl/ExitCode.h"
#include "kit/support/Result.h"

namespace ctl {

class ServerConnection;

struct ListedBackup {
    std::string name, title;
    core::JobType type = core::JobType::Full;
    int32_t jobId = 0, baseId = 0;
    int64_t date = 0;  // seconds since the epoch
};

// Oldest first. Nothing when the server does not answer.
std::optional<std::vector<ListedBackup>> ListBackups(ServerConnection& server);

// Those that a user means: by the name, else by the job's number or the title.
std::vector<ListedBackup> MeantBackups(const std::vector<ListedBackup>& all,
                                       const std::string& text);
// The one that is meant. Where it is none, or several, that is told, and why is in `problem`.
std::optional<ListedBackup> FindBackup(ServerConnection& server, const std::string& text,
                                       ExitCode* problem);

std::string BackupLine(const ListedBackup& backup);  // for a list, harmless for a terminal
nlohmann::ordered_json BackupJson(const ListedBackup& backup);

}  // namespace ctl

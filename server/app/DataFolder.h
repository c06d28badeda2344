// Where the server keeps its records and catalogues.
#pragma once

#include <string>

#include "kit/support/Result.h"

namespace server {

// "data" in the server's own program folder where the user may write there; else
// `$XDG_DATA_HOME/velmora-backup/Backup_Server/data` (without that variable `~/.local/share/…`).
// Makes it, for the user alone.
kit::Result<std::string> PrepareDataFolder(const std::string& programFolder);

}  // namespace server

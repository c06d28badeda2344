// Backups that lie in a directory, whether the catalogue knows them or not.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/message/BMessage.h"

namespace ctl {

class ServerConnection;

struct FoundBackup {
    std::string id;  // its folder's name
    std::string title;
    int64_t date = 0;
    bool isProtected = false;
    bool isKnown = false;  // in the catalogue already
};

// What is in `folder` (an absolute path), the oldest first; nothing when the server is silent.
std::optional<std::vector<FoundBackup>> FindBackups(ServerConnection& server,
                                                    const std::string& folder);
// Those that the user may mean: by the folder's name, with or without what says that it is not
// whole, else by the title.
std::vector<FoundBackup> MeantBackups(const std::vector<FoundBackup>& all, const std::string& text);
std::string FoundLine(const FoundBackup& backup);

// Brings them into the catalogue.
BMessage InsertJob(const std::string& folder, const std::vector<FoundBackup>& backups,
                   const std::string& title);

}  // namespace ctl

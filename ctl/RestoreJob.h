// Makes the jobs for `backupctl restore`, `backupctl compare` and `backupctl verify`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/BackupTree.h"
#include "kit/message/BMessage.h"

namespace ctl {

// "no", "older", "rename" or "yes", as the number that the job carries.
std::optional<int32_t> ParseOverwrite(const std::string& text);

// `entries` of the backup: to their old places, or each under its own name into the folder
// `target`. The backup itself is not among them.
BMessage RestoreJob(const ListedBackup& backup, const std::vector<TreeEntry>& entries,
                    const std::optional<std::string>& target, int32_t overwrite,
                    const std::string& title);
// Words for what a comparison can look at: "data", "attributes", "size", "modified", "created",
// "link", "permissions", "user", "group".
bool IsCompareItem(const std::string& word);
// `items` of them; none: all.
BMessage CompareJob(const ListedBackup& backup, const std::vector<TreeEntry>& entries,
                    const std::vector<std::string>& items, const std::string& title);
BMessage VerifyJob(const ListedBackup& backup, const std::string& title);

}  // namespace ctl

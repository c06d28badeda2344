// The tree of one backup as the server's catalogue has it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/Password.h"
#include "kit/storage/BVolume.h"

namespace ctl {

struct TreeEntry {
    std::string path;  // "/Volume/folder/file"; "/" is the backup itself
    int32_t type = 0;  // as in the catalogue's messages
    int64_t size = 0, date = 0;

    bool HoldsOthers() const { return type != 0 && type != 2; }
    std::string Name() const { return path.substr(path.rfind('/') + 1); }
};

class BackupTree {
public:
    BackupTree(ServerConnection& server, ListedBackup backup, const PasswordSource& passwords)
        : fServer(server), fBackup(std::move(backup)), fPasswords(passwords) {}

    // In byte order. A tree that is locked is unlocked first. Nothing: the server does not answer,
    // or the tree stays locked; that was told.
    std::optional<std::vector<TreeEntry>> Children(const std::string& path);
    // What a user calls so: "Volume/path" as the tree has it, or a path of this machine, which need
    // not be there any more. Nothing: there is no such entry, or as above; that was told.
    std::optional<TreeEntry> Find(const std::string& typed);

    const ListedBackup& Backup() const { return fBackup; }

private:
    std::optional<TreeEntry> EntryAt(const std::string& path, bool* failed);

    ServerConnection& fServer;
    const ListedBackup fBackup;
    const PasswordSource& fPasswords;
};

// The places in a tree that a typed path may mean, the likeliest first: "/Volume/path", without a
// slash at the end.
std::vector<std::string> PlacesOf(const std::string& typed, const std::vector<BVolume>& volumes);

}  // namespace ctl

// Questions about what lies on a remote: one run of rclone each, no second try.
#pragma once

#include <string>
#include <vector>

#include "addons/KTRemote/Rclone.h"
#include "addons/KTVolume.h"

namespace remote_files {

struct Entry {
    std::string name;
    int64_t size = 0;  // bytes; -1: not known
    bool isFolder = false;
};

// What lies directly in a folder, by name. Names that are none (with a "/" in them) are left out.
kit::Result<std::vector<Entry>> List(const RcloneLimits& limits, const std::string& path,
                                     const Rclone::Stop& stop);
// Of one file; -1: not known.
kit::Result<int64_t> SizeOf(const RcloneLimits& limits, const std::string& path,
                            const Rclone::Stop& stop);
// Unknown where the remote does not tell.
kit::Result<KTVolumeSpace> Space(const RcloneLimits& limits, const std::string& path,
                                 const Rclone::Stop& stop);
// Folders get another name in one step.
kit::Result<bool> CanMoveFolders(const RcloneLimits& limits, const std::string& path,
                                 const Rclone::Stop& stop);

}  // namespace remote_files

// The mount list of this process, and which file systems in it hold people's files.
#pragma once

#include <string_view>
#include <vector>

#include "kit/storage/BVolume.h"

namespace kit {

// What /proc/self/mountinfo says, in its order; of several mounts on one point the last, which is
// the one that is seen. Empty when it cannot be read.
std::vector<MountSource::Mount> ReadMounts();

enum class MountKind {
    Pseudo,     // the system's own: never a volume
    Temporary,  // holds files, but not beyond a restart
    Real,
};
MountKind KindOf(const MountSource::Mount& mount);

}  // namespace kit

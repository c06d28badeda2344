// What the backup machinery itself writes: it changes while a job runs, and no backup has it.
#pragma once

#include <vector>

#include "addons/KTVolume.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/TreeWalk.h"

namespace server {

// The backups on the destination and the files of the server; `more` are further files of a job's
// own, each with all that begins with its name.
std::vector<OwnFiles> OwnFilesOf(const KTVolume& destination, const EngineConfig& config,
                                 const std::vector<std::string>& more = {});

}  // namespace server

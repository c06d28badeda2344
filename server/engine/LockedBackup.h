// Opens the tree of a protected backup that came by insert, when its password has been given.
#pragma once

#include <memory>
#include <string>

#include "server/engine/JobEnvironment.h"

namespace server {

// From its own catalogue, or from its media where that is missing or damaged, which takes as long
// as reading all of it. From then on its tree lies open in the catalogue, as that of a backup made
// here. Good also for one that is open already. What is wrong is told to `events`. One thread at a
// time.
bool OpenLockedBackup(const std::string& name, std::shared_ptr<const archive::AgeIdentity> key,
                      const EngineConfig& config, CatalogueStore& catalogues, JobEvents& events,
                      JobControl& control);

}  // namespace server

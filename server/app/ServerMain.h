// The server program but for its engine.
#pragma once

#include "server/app/BackupServer.h"

namespace server {

using EngineFunction = decltype(BackupServer::Configuration::engine);

// Runs the server until it is asked to end (SIGTERM, SIGINT). 0: it ended cleanly, or another copy
// runs already; 1: it could not start, and said why on standard error. `makeEngine` gets the
// server's program folder.
int ServerMain(const std::function<EngineFunction(const std::string& programFolder)>& makeEngine);

}  // namespace server

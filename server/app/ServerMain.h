// The server program but for its engine.
#pragma once

#include "server/app/BackupServer.h"

namespace server {

using EngineFunction = decltype(BackupServer::Configuration::engine);

struct ServerFolders {
    std::string program;  // add-ons lie below it
    std::string data;
};

// Runs the server until it is asked to end (SIGTERM, SIGINT). 0: it ended cleanly, or another copy
// runs already; 1: it could not start, and said why on standard error.
int ServerMain(const std::function<EngineFunction(const ServerFolders& folders)>& makeEngine);

}  // namespace server

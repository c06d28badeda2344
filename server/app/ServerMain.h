// The server program but for its engine.
#pragma once

#include "server/app/BackupServer.h"

namespace server {

struct ServerFolders {
    std::string program;  // add-ons lie below it
    std::string data;
};

// Completes the configuration: the engine, and where they are not the machine's the clock and the
// rest.
using Configure =
    std::function<void(const ServerFolders& folders, BackupServer::Configuration& configuration)>;

// Runs the server until it is asked to end (SIGTERM, SIGINT). 0: it ended cleanly, or another copy
// runs already; 1: it could not start, and said why on standard error.
int ServerMain(const Configure& configure);

}  // namespace server

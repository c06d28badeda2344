// The backup server's program.
#include "server/app/ServerMain.h"
#include "server/queue/Records.h"

int main() {
    return server::ServerMain([](const server::ServerFolders& folders,
                                 server::BackupServer::Configuration& configuration) {
        server::EngineConfig config;
        config.addOnFolder = folders.program + "/add-ons";
        config.ownFiles = {folders.data + '/' + server::Records::kFileName};
        configuration.keepAwake = server::KeepAwakeByLogind;
        configuration.engine = [config](const server::JobOrder& order,
                                        server::CatalogueStore& catalogues,
                                        server::JobEvents& events, server::JobControl& control) {
            return server::RunJob(order, config, catalogues, events, control);
        };
    });
}

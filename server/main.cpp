// The backup server's program.
#include "server/app/ServerMain.h"

int main() {
    return server::ServerMain([](const std::string& programFolder) -> server::EngineFunction {
        server::EngineConfig config;
        config.addOnFolder = programFolder + "/add-ons";
        return [config](const server::JobOrder& order, server::CatalogueStore& catalogues,
                        server::JobEvents& events, server::JobControl& control) {
            return server::RunJob(order, config, catalogues, events, control);
        };
    });
}

#include "server/app/ServerMain.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "kit/support/EndSignals.h"
#include "server/app/DataFolder.h"

namespace server {

namespace {

// How long running jobs may take to end when the server is asked to. What does not manage it is
// ended as by a crash: the next start reports it.
constexpr unsigned kMostSecondsToEnd = 15;

}  // namespace

int ServerMain(const Configure& configure) {
    ::umask(077);
    ::setsid();  // fails where it leads its group already, which is as good
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGPIPE, SIG_IGN);
    kit::EndSignals::Block();

    BackupServer server;
    switch (server.InitCheck()) {
        case BApplication::Start::Ready:
            break;
        case BApplication::Start::AlreadyRunning:
            return 0;
        case BApplication::Start::Failed:
            std::fprintf(stderr, "BackupServer: %s\n", server.Problem().c_str());
            return 1;
    }
    const std::string folder = BApplication::ProgramFolder();
    const auto data = PrepareDataFolder(folder);
    if (!data) {
        std::fprintf(stderr, "BackupServer: %s\n", data.error().Text().c_str());
        return 1;
    }
    BackupServer::Configuration configuration;
    configuration.dataFolder = *data;
    configuration.addOnFolder = folder + "/add-ons";
    configure({folder, *data}, configuration);
    if (auto opened = server.Open(std::move(configuration)); !opened) {
        std::fprintf(stderr, "BackupServer: %s\n", opened.error().Text().c_str());
        return 1;
    }
    {
        const kit::EndSignals ends([&server] {
            ::alarm(kMostSecondsToEnd);
            server.PostMessage(B_QUIT_REQUESTED);
        });
        server.Loop();
    }
    return 0;
}

}  // namespace server

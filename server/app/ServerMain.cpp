#include "server/app/ServerMain.h"

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "server/app/DataFolder.h"

namespace server {

namespace {

// How long running jobs may take to end when the server is asked to. What does not manage it is
// ended as by a crash: the next start reports it.
constexpr unsigned kMostSecondsToEnd = 15;

// Turns the signals that end a program into a polite request, on a thread of its own. The signals
// must be blocked before any other thread is started.
class EndSignals {
public:
    explicit EndSignals(BLooper& looper) : fThread([this, &looper] { Wait(looper); }) {}
    ~EndSignals() {
        fOver = true;
        ::pthread_kill(fThread.native_handle(), SIGUSR1);
        fThread.join();
    }
    static sigset_t Set() {
        sigset_t set;
        ::sigemptyset(&set);
        for (const int number : {SIGTERM, SIGINT, SIGUSR1})
            ::sigaddset(&set, number);
        return set;
    }

private:
    void Wait(BLooper& looper) {
        const sigset_t set = Set();
        for (;;) {
            int number = 0;
            if (::sigwait(&set, &number) != 0) continue;
            if (fOver) return;
            if (number == SIGUSR1) continue;  // somebody else's
            ::alarm(kMostSecondsToEnd);
            looper.PostMessage(B_QUIT_REQUESTED);
        }
    }

    std::atomic<bool> fOver = false;
    std::thread fThread;
};

}  // namespace

int ServerMain(const std::function<EngineFunction(const ServerFolders& folders)>& makeEngine) {
    ::umask(077);
    ::setsid();  // fails where it leads its group already, which is as good
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGPIPE, SIG_IGN);
    const sigset_t signals = EndSignals::Set();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

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
    if (auto opened = server.Open({*data, folder + "/add-ons", makeEngine({folder, *data})});
        !opened) {
        std::fprintf(stderr, "BackupServer: %s\n", opened.error().Text().c_str());
        return 1;
    }
    {
        EndSignals ends(server);
        server.Loop();
    }
    return 0;
}

}  // namespace server

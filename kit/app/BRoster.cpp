#include "kit/app/BRoster.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <thread>

#include "kit/app/SignatureLock.h"
#include "kit/link/Peer.h"
#include "kit/support/Process.h"

namespace {

// What comes through the pipe of a launch: the new program's id, then, only if it failed, why.
struct Report {
    int32_t team = 0;
    int32_t error = 0;
};

void Tell(int pipe, const Report& report) {
    // Smaller than PIPE_BUF: written as a whole or not at all.
    [[maybe_unused]] const ssize_t ignored = ::write(pipe, &report, sizeof report);
}

// Between fork and exec: nothing but calls that are safe there, other threads may hold any lock.
[[noreturn]] void BecomeProgram(const char* path, char* const* arguments, int null, int pipe) {
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : {SIGPIPE, SIGCHLD, SIGHUP, SIGINT, SIGTERM, SIGQUIT}) {
        ::signal(number, SIG_DFL);
    }
    for (const int stream : {0, 1, 2})
        ::dup2(null, stream);
    ::close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
    // So that it does not keep a medium busy for which it was started from.
    if (path[0] == '/') {
        [[maybe_unused]] const int ignored = ::chdir("/");
    }
    ::execv(path, arguments);
    Tell(pipe, {::getpid(), errno});
    ::_exit(127);
}

bool Accepts(const std::string& path, int32_t team) {
    sockaddr_un address{};
    if (!kit::SocketAddress(path, &address)) return false;
    const kit::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return socket.IsOpen() &&
           ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               0 &&
           kit::TrustedPeer(socket.Get()) == team;
}

}  // namespace

std::optional<int32_t> BRoster::TeamFor(const std::string& signature) const {
    return kit::SignatureLock::Holder(fDirectory, signature);
}

kit::Result<int32_t> BRoster::Launch(const std::string& path,
                                     const std::vector<std::string>& arguments) const {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    std::array<int, 2> ends;
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return kit::Error::FromErrno(errno, path, "pipe");
    const kit::UniqueFd in(ends[0]);
    // Above the standard streams, which the new program gets replaced.
    kit::UniqueFd out(::fcntl(ends[1], F_DUPFD_CLOEXEC, 3));
    ::close(ends[1]);
    const kit::UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!out.IsOpen() || !null.IsOpen()) return kit::Error::FromErrno(errno, path, "/dev/null");

    const pid_t child = ::fork();
    if (child < 0) return kit::Error::FromErrno(errno, path, "fork");
    if (child == 0) {
        ::setsid();
        const pid_t grandchild = ::fork();
        if (grandchild == 0) BecomeProgram(path.c_str(), argv.data(), null.Get(), out.Get());
        Tell(out.Get(), {grandchild, grandchild < 0 ? errno : 0});
        ::_exit(0);
    }
    out.Reset();
    Report outcome;
    for (;;) {
        Report report;
        const ssize_t count = ::read(in.Get(), &report, sizeof report);
        if (count < 0 && errno == EINTR) continue;
        if (count != static_cast<ssize_t>(sizeof report)) break;  // the end: exec went well
        outcome.team = report.team;
        if (report.error != 0) outcome.error = report.error;
    }
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    if (outcome.error != 0) return kit::Error::FromErrno(outcome.error, path, "cannot start");
    if (outcome.team <= 0) return kit::Error::FromErrno(EIO, path, "cannot start");
    return outcome.team;
}

bool BRoster::WaitForTeam(int32_t team, int milliseconds) const {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    const std::string path = fDirectory.SocketPath(team);
    for (;;) {
        if (Accepts(path, team)) return true;
        if (Clock::now() >= end || !kit::ProcessRuns(team)) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

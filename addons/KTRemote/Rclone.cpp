#include "addons/KTRemote/Rclone.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "addons/KTRemote/RcloneErrors.h"

extern char** environ;  // NOLINT: the platform's name

using kit::Error;
using kit::ErrorKind;
using kit::Status;
using kit::UniqueFd;

namespace {

constexpr auto kNotice = std::chrono::milliseconds(100);
constexpr size_t kMostSaid = 8192;

std::string Duration(RcloneLimits::Time time) {
    return std::to_string(time.count()) + "ms";
}

// Both ends close when another program is started.
bool MakePipe(UniqueFd* read, UniqueFd* write) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    *read = UniqueFd(ends[0]);
    *write = UniqueFd(ends[1]);
    return true;
}

// A pipe whose end that goes away makes no signal.
bool MakeInput(UniqueFd* read, UniqueFd* write) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
    *read = UniqueFd(ends[0]);
    *write = UniqueFd(ends[1]);
    ::shutdown(read->Get(), SHUT_WR);
    return true;
}

class SpawnSettings {
public:
    SpawnSettings() {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawnattr_init(&attributes);
        // A group of its own, so that all of it can be killed and no key of a terminal reaches it;
        // signals as a program expects them.
        sigset_t none, all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setsigdefault(&attributes, &all);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

kit::Result<std::unique_ptr<Rclone>> Rclone::Start(const RcloneLimits& limits,
                                                   const std::vector<std::string>& command,
                                                   const std::vector<std::string>& paths,
                                                   Input input, Stop stop) {
    std::unique_ptr<Rclone> run(
        new Rclone(limits, paths.empty() ? "rclone" : paths.front(), std::move(stop)));
    std::vector<std::string> words{limits.program};
    words.insert(words.end(), command.begin(), command.end());
    // What fails is tried again by us, who can tell it and stop it.
    for (const std::string& option :
         {std::string("--ask-password=false"), std::string("--log-level=ERROR"),
          std::string("--stats=0"), std::string("--retries=1"),
          std::string("--low-level-retries=2"), "--contimeout=" + Duration(limits.connect),
          "--timeout=" + Duration(limits.idle)}) {
        words.push_back(option);
    }
    words.emplace_back("--");
    words.insert(words.end(), paths.begin(), paths.end());
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    UniqueFd theirInput, theirOutput, theirErrors;
    if (input == Input::Stream
            ? !MakeInput(&theirInput, &run->fInput)
            : !(theirInput = UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC))).IsOpen()) {
        return Error::FromErrno(errno, limits.program, "start");
    }
    if (!MakePipe(&run->fOutput, &theirOutput) || !MakePipe(&run->fErrors, &theirErrors)) {
        return Error::FromErrno(errno, limits.program, "start");
    }
    SpawnSettings settings;
    ::posix_spawn_file_actions_adddup2(&settings.actions, theirInput.Get(), 0);
    ::posix_spawn_file_actions_adddup2(&settings.actions, theirOutput.Get(), 1);
    ::posix_spawn_file_actions_adddup2(&settings.actions, theirErrors.Get(), 2);
    pid_t process = -1;
    const int problem = ::posix_spawnp(&process, limits.program.c_str(), &settings.actions,
                                       &settings.attributes, arguments.data(), environ);
    if (problem == ENOENT) {
        return Error::Make(ErrorKind::Unsupported, limits.program, "rclone is not installed");
    }
    if (problem != 0) return Error::FromErrno(problem, limits.program, "start");
    run->fProcess = process;
    run->fHandle = UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    if (!run->fHandle.IsOpen()) return Error::FromErrno(errno, limits.program, "watch");
    for (const UniqueFd* fd : {&run->fInput, &run->fOutput, &run->fErrors}) {
        if (fd->IsOpen()) ::fcntl(fd->Get(), F_SETFL, O_NONBLOCK);
    }
    return run;
}

Rclone::~Rclone() {
    if (fProcess < 0) return;
    // Before its input ends: a stream cut short must not be taken for a whole one.
    ::kill(-fProcess, SIGKILL);
    while (::waitpid(fProcess, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void Rclone::TakeErrors() {
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(fErrors.Get(), buffer, sizeof(buffer));
        if (got == 0) fErrors.Reset();
        if (got <= 0) break;
        fSaid.append(buffer, static_cast<size_t>(got));
        if (fSaid.size() > 2 * kMostSaid) fSaid.erase(0, fSaid.size() - kMostSaid);
    }
}

kit::Result<Rclone::Ready> Rclone::Await(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        if (fStop && fStop()) return Error::Make(ErrorKind::Aborted, fPath, "stopped");
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return Error::Make(ErrorKind::Io, fPath, "the remote does not answer");
        }
        pollfd polled[3] = {
            {fd, events, 0}, {fErrors.Get(), POLLIN, 0}, {fHandle.Get(), POLLIN, 0}};
        const int count = ::poll(polled, 3, static_cast<int>(std::min(left, kNotice).count()));
        if (count < 0 && errno != EINTR) return Error::FromErrno(errno, fPath, "poll");
        if (count <= 0) continue;
        if (polled[1].revents != 0) TakeErrors();
        // What it printed last is read before its end is seen.
        if (polled[0].revents != 0) return Ready::Yes;
        if (polled[2].revents != 0) return Ready::Ended;
    }
}

Error Rclone::Failure() {
    if (fErrors.IsOpen()) TakeErrors();
    return RcloneError(fCode, fSaid, fPath);
}

Status Rclone::Write(std::span<const uint8_t> data) {
    while (!data.empty()) {
        const auto ready = Await(fInput.Get(), POLLOUT, Clock::now() + fLimits.stall);
        if (!ready) return ready.error();
        const ssize_t sent = *ready == Ready::Ended
                                 ? -1
                                 : ::send(fInput.Get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (sent < 0 && *ready == Ready::Yes && (errno == EINTR || errno == EAGAIN)) continue;
        if (sent < 0) {
            // It ends before its input does only when it has failed.
            Status ended = Wait(Clock::now() + fLimits.call);
            if (!ended) return ended;
            return Error::Make(ErrorKind::Io, fPath, "rclone ended too early");
        }
        data = data.subspan(static_cast<size_t>(sent));
    }
    return {};
}

kit::Result<size_t> Rclone::Read(std::span<uint8_t> into) {
    size_t done = 0;
    while (done < into.size()) {
        const auto ready = Await(fOutput.Get(), POLLIN, Clock::now() + fLimits.stall);
        if (!ready) return ready.error();
        const ssize_t got = ::read(fOutput.Get(), into.data() + done, into.size() - done);
        if (got < 0 && (errno == EINTR || errno == EAGAIN) && *ready == Ready::Yes) continue;
        if (got < 0 && errno != EAGAIN) return Error::FromErrno(errno, fPath, "read");
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

Status Rclone::Wait(Clock::time_point deadline) {
    CloseInput();
    while (fProcess >= 0) {
        const auto ready = Await(-1, 0, deadline);
        if (!ready) return ready.error();
        int status = 0;
        const pid_t process = ::waitpid(fProcess, &status, WNOHANG);
        if (process == 0) continue;
        fProcess = -1;
        fCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    if (fCode != 0) return Failure();
    return {};
}

kit::Result<std::string> Rclone::Ask(const RcloneLimits& limits,
                                     const std::vector<std::string>& command,
                                     const std::vector<std::string>& paths,
                                     RcloneLimits::Time patience, const Stop& stop, size_t most) {
    const auto deadline = Clock::now() + patience;
    auto run = Start(limits, command, paths, Input::None, stop);
    if (!run) return run.error();
    std::string answer;
    uint8_t buffer[16384];
    for (;;) {
        const auto ready = (*run)->Await((*run)->fOutput.Get(), POLLIN, deadline);
        if (!ready) return ready.error();
        const ssize_t got = ::read((*run)->fOutput.Get(), buffer, sizeof(buffer));
        if (got < 0 && (errno == EINTR || errno == EAGAIN) && *ready == Ready::Yes) continue;
        if (got <= 0) break;
        answer.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(got));
        if (answer.size() > most) return Error::Make(ErrorKind::TooLarge, "rclone", "answer");
    }
    if (Status ended = (*run)->Wait(deadline); !ended) return ended.error();
    return answer;
}

#include "kit/app/SignatureLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <chrono>
#include <string_view>
#include <thread>

#include "kit/support/Process.h"

namespace kit {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kPause{5};

enum class Held { No, Yes, Unreadable };

// Whether somebody has the lock for good, and as which team.
Held AskOnce(int file, int32_t* team) {
    if (::flock(file, LOCK_SH | LOCK_NB) == 0) {
        ::flock(file, LOCK_UN);
        return Held::No;
    }
    std::array<char, 16> text;
    const ssize_t count = ::pread(file, text.data(), text.size(), 0);
    if (count < 2 || text[static_cast<size_t>(count) - 1] != '\n') return Held::Unreadable;
    const char* const end = text.data() + count - 1;
    const auto [stop, error] = std::from_chars(text.data(), end, *team);
    // Between taking the lock and writing, a file still names its last holder: that one is not
    // believed.
    if (error != std::errc() || stop != end || !ProcessRuns(*team)) return Held::Unreadable;
    return Held::Yes;
}

bool IsStillAt(int file, const std::string& path) {
    struct stat ours {};
    struct stat there {};
    return ::fstat(file, &ours) == 0 && ::stat(path.c_str(), &there) == 0 &&
           ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

}  // namespace

Result<SignatureLock> SignatureLock::Take(const RunDirectory& directory,
                                          const std::string& signature) {
    const std::string path = directory.LockPath(signature);
    const auto end = Clock::now() + kPatience;
    for (;;) {
        SignatureLock lock;
        lock.fFile =
            UniqueFd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!lock.fFile.IsOpen()) return Error::FromErrno(errno, path, "cannot open the lock file");
        const int file = lock.fFile.Get();
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) {
            // Somebody may have removed the file between the two steps; then the lock is worth
            // nothing.
            if (!IsStillAt(file, path)) continue;
            const std::string text = std::to_string(::getpid()) + "\n";
            if (::ftruncate(file, 0) != 0 ||
                ::pwrite(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
                return Error::FromErrno(errno, path, "cannot write the lock file");
            }
            return lock;
        }
        int32_t team = 0;
        const bool listens = AskOnce(file, &team) == Held::Yes &&
                             ::access(directory.SocketPath(team).c_str(), F_OK) == 0;
        lock.fFile.Reset();
        if (listens || Clock::now() >= end) return lock;
        std::this_thread::sleep_for(kPause);
    }
}

std::optional<int32_t> SignatureLock::Holder(const RunDirectory& directory,
                                             const std::string& signature) {
    const std::string path = directory.LockPath(signature);
    const auto end = Clock::now() + kPatience;
    for (;;) {
        const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (!file.IsOpen()) return std::nullopt;
        int32_t team = 0;
        switch (AskOnce(file.Get(), &team)) {
            case Held::No:
                return std::nullopt;
            case Held::Yes:
                return team;
            case Held::Unreadable:
                break;
        }
        if (Clock::now() >= end) return std::nullopt;
        std::this_thread::sleep_for(kPause);
    }
}

void SignatureLock::Release() {
    if (!fFile.IsOpen()) return;
    [[maybe_unused]] const int ignored = ::ftruncate(fFile.Get(), 0);
    fFile.Reset();
}

}  // namespace kit

#include "addons/KTRemote/RemoteWriter.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "addons/KTRemote/RemoteFiles.h"
#include "kit/storage/FileIo.h"

using kit::Error;
using kit::ErrorKind;
using kit::Status;
using kit::UniqueFd;

namespace {

constexpr size_t kBlock = size_t{256} << 10;
constexpr int64_t kLookAtDisk = int64_t{64} << 20;  // how often its free space is looked at
constexpr int64_t kNoRoom = int64_t{4} << 20;       // a remote that has less left is full
// What the slowest line still takes in a second: by that the end of a file is waited for.
constexpr int64_t kSlowest = int64_t{16} << 10;

UniqueFd NamelessFile(const std::string& folder) {
    std::string name = folder + "/velmora-XXXXXX";
    UniqueFd file(::mkostemp(name.data(), O_CLOEXEC));
    if (file.IsOpen()) ::unlink(name.c_str());
    return file;
}

bool HasRoom(int fd, int64_t bytes) {
    struct statvfs space;
    return ::fstatvfs(fd, &space) == 0 &&
           static_cast<int64_t>(space.f_bavail) * static_cast<int64_t>(space.f_frsize) >= bytes;
}

}  // namespace

RemoteWriter::RemoteWriter(const RcloneLimits& limits, std::string path, Rclone::Stop stop,
                           TryAgain tryAgain)
    : fLimits(limits),
      fPath(std::move(path)),
      fStop(std::move(stop)),
      fTryAgain(std::move(tryAgain)),
      fKept(NamelessFile(limits.keepIn)) {}

Status RemoteWriter::Write(std::span<const uint8_t> data) {
    if (fFailed) return *fFailed;
    Keep(data);
    fSize += static_cast<int64_t>(data.size());
    return Insist([&] { return Send(data); });
}

void RemoteWriter::Keep(std::span<const uint8_t> data) {
    if (!fKept.IsOpen()) return;
    const int64_t size = fSize + static_cast<int64_t>(data.size());
    const bool isTurn = fSize / kLookAtDisk != size / kLookAtDisk || fSize == 0;
    if (size > fLimits.mostKept || (isTurn && !HasRoom(fKept.Get(), fLimits.leaveFree)) ||
        !kit::WriteAll(fKept.Get(), data, fPath)) {
        fKept.Reset();
    }
}

Status RemoteWriter::SendKept(int64_t end) {
    Bytes block(kBlock);
    while (fSent < end) {
        const auto most = std::min<int64_t>(end - fSent, static_cast<int64_t>(kBlock));
        const ssize_t got = ::pread(fKept.Get(), block.data(), static_cast<size_t>(most), fSent);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            fKept.Reset();
            return Error::Make(ErrorKind::Io, fPath, "what was to be sent again cannot be read");
        }
        if (Status sent = fSending->Write({block.data(), static_cast<size_t>(got)}); !sent)
            return sent;
        fSent += got;
    }
    return {};
}

Status RemoteWriter::Send(std::span<const uint8_t> fresh) {
    const int64_t before = fSize - static_cast<int64_t>(fresh.size());
    if (!fSending) {
        fSent = 0;
        auto started = Rclone::Start(fLimits, {"rcat"}, {fPath}, Rclone::Input::Stream, fStop);
        if (!started) return started.error();
        fSending = std::move(*started);
    }
    if (fSent < before) {
        if (Status sent = SendKept(before); !sent) return sent;
    }
    if (Status sent = fSending->Write(fresh.subspan(static_cast<size_t>(fSent - before))); !sent)
        return sent;
    fSent = fSize;
    return {};
}

Status RemoteWriter::Complete() {
    if (!fSending || fSent < fSize) {
        if (Status sent = Send({}); !sent) return sent;
    }
    fSending->CloseInput();
    // Remotes that take no streams are sent the whole file only now.
    const auto patience = fLimits.stall + std::chrono::seconds(fSize / kSlowest);
    if (Status ended = fSending->Wait(Rclone::Clock::now() + patience); !ended) return ended;
    const auto size = remote_files::SizeOf(fLimits, fPath, fStop);
    if (!size) return size.error();
    if (*size >= 0 && *size != fSize) {
        return Error::Make(
            ErrorKind::Io, fPath,
            "only " + std::to_string(*size) + " of " + std::to_string(fSize) + " bytes arrived");
    }
    return {};
}

Status RemoteWriter::Insist(const std::function<Status()>& step) {
    for (;;) {
        Status status = step();
        if (status) return status;
        fSending.reset();
        const Error error = status.error();
        // A file is all or nothing there: it is sent again from its beginning.
        if (error.kind != ErrorKind::Io) {
            fFailed = error;
        } else if (!fKept.IsOpen()) {
            fFailed = Error::Make(ErrorKind::Io, fPath,
                                  error.detail +
                                      "; this file was too large to be sent again "
                                      "(smaller media can be)");
        } else if (!fTryAgain(error, fTries++)) {
            fFailed = fStop() ? Error::Make(ErrorKind::Aborted, fPath, "stopped") : error;
        } else if (IsFull()) {
            fFailed = Error::Make(ErrorKind::Full, fPath, "there is no room left on the remote");
        }
        if (fFailed) return *fFailed;
    }
}

// Some remotes hang up when they are full, without saying why.
bool RemoteWriter::IsFull() const {
    const size_t end = fPath.find_last_of(":/");
    const std::string folder = fPath.substr(0, fPath[end] == ':' ? end + 1 : end);
    const auto space = remote_files::Space(fLimits, folder, fStop);
    return space && space->freeBytes >= 0 && space->freeBytes < std::min(fSize, kNoRoom);
}

Status RemoteWriter::Truncate(int64_t size) {
    if (fFailed) return *fFailed;
    if (size < 0 || size > fSize) return Error::Make(ErrorKind::Invalid, fPath, "truncate");
    if (size == fSize) return {};
    if (!fKept.IsOpen()) {
        return Error::Make(ErrorKind::Unsupported, fPath, "what was sent cannot be taken back");
    }
    fSending.reset();
    if (::ftruncate(fKept.Get(), size) != 0 || ::lseek(fKept.Get(), size, SEEK_SET) < 0)
        return Error::FromErrno(errno, fLimits.keepIn, "truncate");
    fSize = size;
    return {};
}

Status RemoteWriter::Finish() {
    if (fFailed) return *fFailed;
    Status status = Insist([this] { return Complete(); });
    fSending.reset();
    fKept.Reset();
    return status;
}

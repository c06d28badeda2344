#include "kit/storage/FileIo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace kit {

namespace {

constexpr char kTemporaryName[] = "/.velmora-XXXXXX";

// The file that `path` leads to; `path` itself where nothing is there yet.
std::string Resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), ::free);
    return real ? std::string(real.get()) : path;
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

Status SyncFolder(const std::string& folder) {
    const UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen()) return Error::FromErrno(errno, folder, "open folder");
    // Some file systems have no way to sync a folder and say so; the rename is as safe as they make
    // it.
    if (::fsync(fd.Get()) != 0 && errno != EINVAL && errno != EROFS) {
        return Error::FromErrno(errno, folder, "sync folder");
    }
    return {};
}

}  // namespace

Result<Bytes> ReadFile(const std::string& path, size_t limit) {
    // Not blocking: a FIFO under the name of a file must not hold anybody up.
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.IsOpen()) return Error::FromErrno(errno, path, "open");
    struct stat status {};
    if (::fstat(fd.Get(), &status) != 0) return Error::FromErrno(errno, path, "stat");
    if (!S_ISREG(status.st_mode))
        return Error::Make(ErrorKind::Invalid, path, "not a regular file");
    if (static_cast<uint64_t>(status.st_size) > limit) {
        return Error::Make(ErrorKind::TooLarge, path, "too large to be what it should be");
    }

    Bytes data(static_cast<size_t>(status.st_size));
    size_t have = 0;
    for (;;) {
        if (have == data.size()) {
            // The file may have grown, and files in /proc tell no size: ask until the end.
            if (have > limit) return Error::Make(ErrorKind::TooLarge, path, "grew too large");
            data.resize(std::min(limit + 1, have + 4096));
        }
        const ssize_t got = ::read(fd.Get(), data.data() + have, data.size() - have);
        if (got < 0) {
            if (errno == EINTR) continue;
            return Error::FromErrno(errno, path, "read");
        }
        if (got == 0) break;
        have += static_cast<size_t>(got);
    }
    if (have > limit) return Error::Make(ErrorKind::TooLarge, path, "grew too large");
    data.resize(have);
    return data;
}

Status WriteAll(int fd, std::span<const uint8_t> data, const std::string& path) {
    while (!data.empty()) {
        const ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return Error::FromErrno(errno, path, "write");
        }
        data = data.subspan(static_cast<size_t>(written));
    }
    return {};
}

Result<FileReplacement> FileReplacement::Begin(const std::string& path) {
    FileReplacement replacement;
    replacement.fPath = Resolved(path);
    struct stat status {};
    if (::stat(replacement.fPath.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) {
            return Error::Make(ErrorKind::Invalid, path, "not a regular file");
        }
        if (::access(replacement.fPath.c_str(), W_OK) != 0) {
            return Error::FromErrno(errno, path, "open for writing");
        }
    }
    std::string name = FolderOf(replacement.fPath) + kTemporaryName;
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);  // mode 0600
    if (fd < 0) return Error::FromErrno(errno, path, "create");
    replacement.fFile = UniqueFd(fd);
    replacement.fTemporary = std::move(name);
    return replacement;
}

FileReplacement::FileReplacement(FileReplacement&& other) noexcept
    : fPath(std::move(other.fPath)),
      fTemporary(std::exchange(other.fTemporary, {})),
      fFile(std::move(other.fFile)) {}

FileReplacement::~FileReplacement() {
    if (!fTemporary.empty()) ::unlink(fTemporary.c_str());
}

Status FileReplacement::Write(std::span<const uint8_t> data) {
    return WriteAll(fFile.Get(), data, fPath);
}

Status FileReplacement::Commit() {
    if (::fsync(fFile.Get()) != 0) return Error::FromErrno(errno, fPath, "sync");
    // Network file systems report a full disk as late as here.
    if (::close(fFile.Release()) != 0) return Error::FromErrno(errno, fPath, "close");
    if (::rename(fTemporary.c_str(), fPath.c_str()) != 0) {
        return Error::FromErrno(errno, fPath, "rename");
    }
    fTemporary.clear();
    return SyncFolder(FolderOf(fPath));
}

Status ReplaceFile(const std::string& path, std::span<const uint8_t> data,
                   const std::function<Status(const std::string& temporary)>& prepare) {
    auto replacement = FileReplacement::Begin(path);
    if (!replacement) return replacement.error();
    if (auto written = replacement->Write(data); !written) return written;
    if (prepare) {
        if (auto prepared = prepare(replacement->TemporaryPath()); !prepared) return prepared;
    }
    return replacement->Commit();
}

}  // namespace kit

#include "server/engine/RestoreTarget.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace server {

namespace {

// A longer path is gone in pieces.
constexpr size_t kLongestPath = PATH_MAX - 64;

int OpenBeneath(int directory, const char* path, uint64_t flags) {
    open_how how{};
    how.flags = flags | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    long fd = 0;
    do {
        fd = ::syscall(SYS_openat2, directory, path, &how, sizeof(how));
    } while (fd < 0 && (errno == EINTR || errno == EAGAIN));
    return static_cast<int>(fd);
}

}  // namespace

kit::Result<RestoreTarget> RestoreTarget::Open(const std::string& path, bool create) {
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) {
        return kit::Error::Make(kit::ErrorKind::Invalid, path, "no absolute path");
    }
    if (create) {
        for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
            const std::string part = path.substr(0, slash);
            if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST && errno != EROFS &&
                errno != EACCES && errno != EPERM) {
                return kit::Error::FromErrno(errno, part, "cannot make the directory");
            }
            if (slash == std::string::npos) break;
        }
    }
    kit::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen()) return kit::Error::FromErrno(errno, path, "cannot open the directory");
    return RestoreTarget(path, std::move(fd));
}

kit::Result<kit::UniqueFd> RestoreTarget::OpenDirectory(std::string_view relative) const {
    kit::UniqueFd piece;
    std::string_view left = relative.empty() ? "." : relative;
    for (;;) {
        std::string_view part = left;
        if (part.size() > kLongestPath) part = part.substr(0, part.rfind('/', kLongestPath));
        const int above = piece.IsOpen() ? piece.Get() : fDirectory.Get();
        const std::string path(part);
        kit::UniqueFd next(OpenBeneath(above, path.c_str(), O_RDONLY));
        // Who may not list it may still be allowed to write to it.
        if (!next.IsOpen() && errno == EACCES) {
            next = kit::UniqueFd(OpenBeneath(above, path.c_str(), O_PATH));
        }
        if (!next.IsOpen()) return kit::Error::FromErrno(errno, PathOf(relative), "");
        piece = std::move(next);
        if (part.size() == left.size()) return piece;
        left.remove_prefix(part.size() + 1);
    }
}

std::string RestoreTarget::PathOf(std::string_view relative) const {
    std::string path = fPath == "/" ? "" : fPath;
    if (!relative.empty()) path += "/" + std::string(relative);
    return path.empty() ? "/" : path;
}

}  // namespace server

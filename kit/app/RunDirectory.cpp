#include "kit/app/RunDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "kit/link/Peer.h"

namespace kit {

RunDirectory RunDirectory::Default() {
    const char* runtime = ::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/') {
        return RunDirectory(std::string(runtime) + "/velmora-backup");
    }
    return RunDirectory("/tmp/velmora-backup-" + std::to_string(::geteuid()));
}

Status RunDirectory::Prepare() const {
    constexpr int32_t kHighestTeam = 4194304;  // the kernel's own limit of process ids
    sockaddr_un address{};
    if (!SocketAddress(SocketPath(kHighestTeam), &address)) {
        return Error::Make(ErrorKind::TooLarge, fPath,
                           "the path of the run folder is too long for a socket's address");
    }
    if (::mkdir(fPath.c_str(), 0700) != 0 && errno != EEXIST) {
        return Error::FromErrno(errno, fPath, "cannot make the run folder");
    }
    struct stat status {};
    if (::lstat(fPath.c_str(), &status) != 0) {
        return Error::FromErrno(errno, fPath, "cannot look at the run folder");
    }
    if (!S_ISDIR(status.st_mode)) {
        return Error::Make(ErrorKind::Invalid, fPath, "the run folder is not a folder");
    }
    if (status.st_uid != ::geteuid()) {
        return Error::Make(ErrorKind::Denied, fPath, "the run folder belongs to another user");
    }
    if ((status.st_mode & 0077) != 0) {
        return Error::Make(ErrorKind::Denied, fPath, "the run folder is open to others");
    }
    return {};
}

std::string RunDirectory::LockPath(const std::string& signature) const {
    std::string name = signature;
    std::replace(name.begin(), name.end(), '/', '_');
    return fPath + "/" + name + ".lock";
}

std::string RunDirectory::SocketPath(int32_t team) const {
    return fPath + "/team-" + std::to_string(team) + ".sock";
}

}  // namespace kit

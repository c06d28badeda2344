// Where the running programs of one user meet: the folder with their lock files and sockets.
// docs/protocol.md describes what lies in it.
#pragma once

#include <string>

#include "kit/support/Result.h"

namespace kit {

class RunDirectory {
public:
    // `$XDG_RUNTIME_DIR/velmora-backup`, or `/tmp/velmora-backup-UID`. Nothing is made yet.
    static RunDirectory Default();
    explicit RunDirectory(std::string path) : fPath(std::move(path)) {}

    // Makes the folder with mode 0700 and checks it: the user's own directory, no rights for
    // others, short enough for a socket's address. The error says in words what is wrong.
    Status Prepare() const;

    const std::string& Path() const { return fPath; }
    std::string LockPath(const std::string& signature) const;
    std::string SocketPath(int32_t team) const;

private:
    std::string fPath;
};

}  // namespace kit

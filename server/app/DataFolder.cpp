#include "server/app/DataFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace server {

namespace {

std::string UsersDataFolder() {
    const char* base = ::getenv("XDG_DATA_HOME");
    if (base && base[0] == '/') return base;
    const char* home = ::getenv("HOME");
    return std::string(home ? home : "") + "/.local/share";
}

kit::Status Make(const std::string& folder) {
    std::error_code problem;
    std::filesystem::create_directories(folder, problem);  // what is missing, by the umask
    if (problem) return kit::Error::FromErrno(problem.value(), folder);
    if (::chmod(folder.c_str(), 0700) != 0) return kit::Error::FromErrno(errno, folder);
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return kit::Error::FromErrno(errno, folder);
    return {};
}

}  // namespace

kit::Result<std::string> PrepareDataFolder(const std::string& programFolder) {
    const std::string beside = programFolder + "/data";
    if (Make(beside)) return beside;
    const std::string own = UsersDataFolder() + "/velmora-backup/Backup_Server/data";
    if (auto made = Make(own); !made) return made.error();
    return own;
}

}  // namespace server

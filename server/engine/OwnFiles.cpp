#include "server/engine/OwnFiles.h"

#include <sys/stat.h>

#include "server/archive/Format.h"

namespace server {

std::vector<OwnFiles> OwnFilesOf(const KTVolume& destination, const EngineConfig& config,
                                 const std::vector<std::string>& more) {
    std::vector<OwnFiles> own;
    auto add = [&own](const std::string& directory, std::string words, auto covers) {
        struct stat info;
        if (directory.empty() || ::stat(directory.c_str(), &info) != 0) return;
        own.push_back({info.st_dev, info.st_ino, std::move(words), covers});
    };
    // Everything else in the directory of the destination is the user's and is saved.
    const std::string local = destination.LocalDirectory();
    add(local, "Left out, the backups in the destination itself: " + local,
        [](std::string_view name) {
            return archive::BackupOfFolder(name).has_value() || name == archive::kReadmeFile;
        });
    std::vector<std::string> files = config.ownFiles;
    files.insert(files.end(), more.begin(), more.end());
    for (const std::string& path : files) {
        const size_t slash = path.rfind('/');
        if (slash == std::string::npos) continue;
        add(path.substr(0, slash), "Left out, in use by the backup itself: " + path,
            [name = path.substr(slash + 1)](std::string_view found) {
                return found.starts_with(name);
            });
    }
    return own;
}

}  // namespace server

// What KTImage does in its directory.
//
// A backup under way is NAME.partial; Publish renames it. Deleting goes the other way: the folder
// gets the name of a partial one first, so that a backup that is there under its own name is always
// whole.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "addons/KTImage/KTImage.h"
#include "addons/common/KTMediaSettings.h"
#include "kit/storage/BVolume.h"
#include "kit/storage/FileIo.h"
#include "kit/support/UniqueFd.h"

using kit::Error;
using kit::ErrorKind;
using kit::Status;
using kit::UniqueFd;

namespace {

constexpr char kPartial[] = ".partial";
// Written data is handed to the disk in pieces of this size, so that Finish has little left to wait
// for.
constexpr int64_t kWriteBack = int64_t{8} << 20;

Error Failure(const std::string& path, const char* what) {
    return Error::FromErrno(errno, path, what);
}

bool IsComponent(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

Error BadName(const std::string& name) {
    return Error::Make(ErrorKind::Invalid, name, "not a name of one component");
}

Status SyncDirectory(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsOpen()) return Failure(path, "open");
    // Some file systems cannot sync a directory; there is nothing better to do on them.
    if (::fsync(fd.Get()) != 0 && errno != EINVAL && errno != ENOTSUP) {
        return Failure(path, "sync");
    }
    return {};
}

class ImageWriter : public KTVolumeWriter {
public:
    ImageWriter(UniqueFd fd, std::string path) : fFd(std::move(fd)), fPath(std::move(path)) {}

    Status Write(std::span<const uint8_t> data) override {
        if (Status status = kit::WriteAll(fFd.Get(), data, fPath); !status) return status;
        fSize += static_cast<int64_t>(data.size());
        if (fSize - fHandedOver >= kWriteBack) {
            // A mere hint: where it is not supported Finish does all the work.
            ::sync_file_range(fFd.Get(), fHandedOver, fSize - fHandedOver, SYNC_FILE_RANGE_WRITE);
            fHandedOver = fSize;
        }
        return {};
    }

    Status Truncate(int64_t size) override {
        if (::ftruncate(fFd.Get(), size) != 0) return Failure(fPath, "truncate");
        if (::lseek(fFd.Get(), size, SEEK_SET) < 0) return Failure(fPath, "seek");
        fSize = size;
        fHandedOver = std::min(fHandedOver, size);
        return {};
    }

    Status Finish() override {
        if (::fsync(fFd.Get()) != 0) return Failure(fPath, "sync");
        // The result of close matters on network file systems.
        if (::close(fFd.Release()) != 0) return Failure(fPath, "close");
        return {};
    }

private:
    UniqueFd fFd;
    std::string fPath;
    int64_t fSize = 0;
    int64_t fHandedOver = 0;
};

// The files of a folder. `others`: whether anything else is in it.
kit::Result<std::vector<KTVolumeFile>> FilesOf(const std::string& path, bool* others = nullptr) {
    DIR* directory = ::opendir(path.c_str());
    if (!directory) return Failure(path, "open");
    std::vector<KTVolumeFile> files;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (!entry) break;
        struct stat info;
        if (::fstatat(::dirfd(directory), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(info.st_mode)) {
            files.push_back({entry->d_name, info.st_size});
        } else if (others && std::strcmp(entry->d_name, ".") != 0 &&
                   std::strcmp(entry->d_name, "..") != 0) {
            *others = true;
        }
    }
    int code = errno;
    ::closedir(directory);
    if (code != 0) return Error::FromErrno(code, path, "read");
    std::sort(files.begin(), files.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return files;
}

// A folder gets its final name, all that is in it being safe.
Status Rename(const std::string& directory, const std::string& from, const std::string& to) {
    const std::string before = directory + "/" + from;
    const std::string after = directory + "/" + to;
    if (Status status = SyncDirectory(before); !status) return status;
    if (::renameat2(AT_FDCWD, before.c_str(), AT_FDCWD, after.c_str(), RENAME_NOREPLACE) != 0) {
        // Not every file system can promise not to replace; a folder that is in the way and not
        // empty stops a plain rename as well.
        if (errno != EINVAL || ::rename(before.c_str(), after.c_str()) != 0) {
            return Failure(before, "rename");
        }
    }
    return SyncDirectory(directory);
}

}  // namespace

Status KTImage::CheckAccess() {
    if (fPath.empty() || fPath[0] != '/') {
        return Error::Make(ErrorKind::Invalid, fPath, "no directory is set");
    }
    if (media_settings::ProblemWithSize(fMediaSize, false)) {
        return Error::Make(ErrorKind::Invalid, fPath, "media below 16 MiB");
    }
    struct stat info;
    if (::stat(fPath.c_str(), &info) != 0) return Failure(fPath, "open");
    if (!S_ISDIR(info.st_mode)) return Error::FromErrno(ENOTDIR, fPath, "open");
    struct statvfs space;
    if (::statvfs(fPath.c_str(), &space) == 0 && (space.f_flag & ST_RDONLY) != 0) {
        return Error::FromErrno(EROFS, fPath);
    }
    if (::access(fPath.c_str(), R_OK | W_OK | X_OK) != 0) return Failure(fPath, "write");
    return {};
}

kit::Result<KTVolumeSpace> KTImage::Space() {
    struct statvfs space;
    if (::statvfs(fPath.c_str(), &space) != 0) return Failure(fPath, "ask for space");
    KTVolumeSpace answer;
    const auto block = static_cast<int64_t>(space.f_frsize);
    answer.capacity = static_cast<int64_t>(space.f_blocks) * block;
    answer.freeBytes = static_cast<int64_t>(space.f_bavail) * block;
    answer.readOnly = (space.f_flag & ST_RDONLY) != 0;
    const std::vector<BVolume> volumes = BVolumeRoster().Volumes();
    if (const BVolume* volume = BVolumeRoster::ByPath(volumes, fPath)) {
        // Without its disc the directory is the system's own.
        answer.removable = volume->removable || (fRemovable && !volume->isBoot);
    }
    return answer;
}

Status KTImage::BeginBackup(const std::string& name) {
    if (!IsComponent(name)) return BadName(name);
    const std::string path = fPath + "/" + name;
    if (::access(path.c_str(), F_OK) == 0) return Error::Make(ErrorKind::Exists, path);
    const std::string partial = path + kPartial;
    if (::mkdir(partial.c_str(), 0700) != 0) return Failure(partial, "make directory");
    return {};
}

kit::Result<std::unique_ptr<KTVolumeWriter>> KTImage::CreateFile(const std::string& name,
                                                                 const std::string& file) {
    if (!IsComponent(name) || !IsComponent(file)) return BadName(name + "/" + file);
    std::string path = fPath + "/" + name + kPartial + "/" + file;
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.IsOpen()) return Failure(path, "create");
    return std::unique_ptr<KTVolumeWriter>(new ImageWriter(std::move(fd), std::move(path)));
}

Status KTImage::Publish(const std::string& name) {
    if (!IsComponent(name)) return BadName(name);
    return Rename(fPath, name + kPartial, name);
}

Status KTImage::ClosePart(const std::string& name, const std::string& folder,
                          const std::vector<std::string>& files) {
    if (!IsComponent(name) || !IsComponent(folder)) return BadName(name + "/" + folder);
    const std::string partial = fPath + "/" + name + kPartial;
    const auto there = FilesOf(partial);
    if (!there) return there.error();
    for (const KTVolumeFile& file : *there) {
        if (std::find(files.begin(), files.end(), file.name) != files.end()) continue;
        const std::string path = partial + "/" + file.name;
        if (::unlink(path.c_str()) != 0) return Failure(path, "delete");
    }
    return Rename(fPath, name + kPartial, folder);
}

Status KTImage::RemoveBackup(const std::string& folder) {
    if (!IsComponent(folder)) return BadName(folder);
    std::string path = fPath + "/" + folder;
    bool others = false;
    auto files = FilesOf(path, &others);
    if (!files) return files.error();
    // A backup holds files only: whatever this is, it is somebody else's.
    if (others) return Error::Make(ErrorKind::Invalid, path, "not a backup");
    if (!folder.ends_with(kPartial)) {
        const std::string partial = path + kPartial;
        if (::rename(path.c_str(), partial.c_str()) != 0) return Failure(path, "rename");
        path = partial;
    }
    for (const KTVolumeFile& file : *files) {
        const std::string name = path + "/" + file.name;
        if (::unlink(name.c_str()) != 0 && errno != ENOENT) return Failure(name, "delete");
    }
    if (::rmdir(path.c_str()) != 0) return Failure(path, "delete");
    return SyncDirectory(fPath);
}

kit::Result<std::vector<std::string>> KTImage::ListBackups() {
    DIR* directory = ::opendir(fPath.c_str());
    if (!directory) return Failure(fPath, "open");
    std::vector<std::string> folders;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (!entry) break;
        struct stat info;
        if (entry->d_name[0] != '.' &&
            ::fstatat(::dirfd(directory), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(info.st_mode)) {
            folders.emplace_back(entry->d_name);
        }
    }
    int code = errno;
    ::closedir(directory);
    if (code != 0) return Error::FromErrno(code, fPath, "read");
    std::sort(folders.begin(), folders.end());
    return folders;
}

kit::Result<std::vector<KTVolumeFile>> KTImage::ListFiles(const std::string& folder) {
    if (!IsComponent(folder)) return BadName(folder);
    return FilesOf(fPath + "/" + folder);
}

kit::Result<size_t> KTImage::ReadAt(const std::string& folder, const std::string& file,
                                    int64_t offset, std::span<uint8_t> into) {
    if (!IsComponent(folder) || !IsComponent(file)) return BadName(folder + "/" + file);
    if (offset < 0) return Error::Make(ErrorKind::Invalid, file, "offset below 0");
    const std::string path = fPath + "/" + folder + "/" + file;
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsOpen()) return Failure(path, "open");
    size_t done = 0;
    while (done < into.size()) {
        ssize_t got = ::pread(fd.Get(), into.data() + done, into.size() - done,
                              offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return Failure(path, "read");
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

Status KTImage::WriteRootFile(const std::string& file, std::span<const uint8_t> data) {
    if (!IsComponent(file)) return BadName(file);
    return kit::ReplaceFile(fPath + "/" + file, data);
}

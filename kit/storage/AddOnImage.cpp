#include "kit/storage/AddOnImage.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

namespace kit {

namespace {

struct CloseFolder {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// A group that nobody but the user is in: many systems give everybody one, and let it write by
// default.
bool IsOwnGroup(gid_t group) {
    std::array<char, size_t{16} * 1024> userBuffer{};
    std::array<char, size_t{16} * 1024> groupBuffer{};
    passwd user{};
    passwd* userFound = nullptr;
    struct group entry {};
    struct group* groupFound = nullptr;
    if (::getpwuid_r(::geteuid(), &user, userBuffer.data(), userBuffer.size(), &userFound) != 0 ||
        !userFound || user.pw_gid != group) {
        return false;
    }
    if (::getgrgid_r(group, &entry, groupBuffer.data(), groupBuffer.size(), &groupFound) != 0 ||
        !groupFound || std::string_view(entry.gr_name) != user.pw_name) {
        return false;
    }
    for (char** member = entry.gr_mem; *member; ++member) {
        if (std::string_view(*member) != user.pw_name) return false;
    }
    return true;
}

// Nobody but the user and root could have put something else there.
bool IsTrusted(const struct stat& status) {
    if (status.st_uid != ::geteuid() && status.st_uid != 0) return false;
    if (status.st_mode & S_IWOTH) return false;
    return !(status.st_mode & S_IWGRP) || IsOwnGroup(status.st_gid);
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

Result<AddOnImage> AddOnImage::Load(const std::string& path) {
    const std::string folder = FolderOf(path);
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        return Error::FromErrno(errno, folder, "folder of add-ons");
    }
    if (!IsTrusted(status)) {
        return Error::Make(ErrorKind::Denied, folder, "others can write this folder of add-ons");
    }
    // A link could lead to where others write. Nobody can change the file between this look and the
    // loading, as nobody else can write its folder.
    if (::lstat(path.c_str(), &status) != 0) return Error::FromErrno(errno, path, "add-on");
    if (!S_ISREG(status.st_mode)) return Error::Make(ErrorKind::Invalid, path, "not a file");
    if (!IsTrusted(status)) {
        return Error::Make(ErrorKind::Denied, path, "others can write this add-on");
    }
    // With a slash in it, or the loader would search its own folders.
    const std::string whole = path.find('/') == std::string::npos ? "./" + path : path;
    void* handle = ::dlopen(whole.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = ::dlerror();
        return Error::Make(ErrorKind::Damaged, path, reason ? reason : "cannot be loaded");
    }
    return AddOnImage(handle, path);
}

std::vector<std::string> AddOnImage::Candidates(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> directory(::opendir(folder.c_str()));
    while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] == '.') continue;
        struct stat status {};
        if (::fstatat(::dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

AddOnImage::AddOnImage(AddOnImage&& other) noexcept
    : fHandle(std::exchange(other.fHandle, nullptr)), fPath(std::move(other.fPath)) {}

AddOnImage& AddOnImage::operator=(AddOnImage&& other) noexcept {
    if (this != &other) {
        if (fHandle) ::dlclose(fHandle);
        fHandle = std::exchange(other.fHandle, nullptr);
        fPath = std::move(other.fPath);
    }
    return *this;
}

AddOnImage::~AddOnImage() {
    if (fHandle) ::dlclose(fHandle);
}

void* AddOnImage::Symbol(const char* name) const {
    return fHandle ? ::dlsym(fHandle, name) : nullptr;
}

}  // namespace kit

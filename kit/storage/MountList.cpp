#include "kit/storage/MountList.h"

#include <libmount/libmount.h>

#include <algorithm>
#include <array>
#include <memory>
#include <unordered_map>

namespace kit {

namespace {

constexpr const char* kMountInfo = "/proc/self/mountinfo";

// Real ones whose source is no device file. Those that lie on a device are told by that.
constexpr std::array<std::string_view, 14> kRealTypes{
    "9p",  "bcachefs", "btrfs", "ceph",  "cifs",     "fuseblk", "glusterfs",
    "nfs", "nfs4",     "smb3",  "smbfs", "virtiofs", "vboxsf",  "zfs"};
// User space file systems that hold files; the rest of "fuse." are portals, monitors and the like.
constexpr std::array<std::string_view, 13> kRealFuseTypes{
    "fuse.cryfs",    "fuse.encfs",   "fuse.exfat",      "fuse.glusterfs", "fuse.gocryptfs",
    "fuse.mergerfs", "fuse.ntfs",    "fuse.ntfs-3g",    "fuse.rclone",    "fuse.s3fs",
    "fuse.sshfs",    "fuse.unionfs", "fuse.vmhgfs-fuse"};

template <class List>
bool IsIn(const List& list, std::string_view text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string Text(const char* text) {
    return text ? text : "";
}

}  // namespace

std::vector<MountSource::Mount> ReadMounts() {
    const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table(
        mnt_new_table_from_file(kMountInfo), mnt_unref_table);
    const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> iterator(
        mnt_new_iter(MNT_ITER_FORWARD), mnt_free_iter);
    std::vector<MountSource::Mount> mounts;
    if (!table || !iterator) return mounts;

    std::unordered_map<std::string, size_t> places;
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) {
        MountSource::Mount mount;
        mount.mountPoint = Text(mnt_fs_get_target(fs));
        mount.root = Text(mnt_fs_get_root(fs));
        mount.fileSystem = Text(mnt_fs_get_fstype(fs));
        mount.source = Text(mnt_fs_get_srcpath(fs));
        if (mount.source.empty()) mount.source = Text(mnt_fs_get_source(fs));
        mount.device = mnt_fs_get_devno(fs);
        mount.readOnly = mnt_fs_match_options(fs, "ro") == 1;
        if (mount.mountPoint.empty() || mount.mountPoint.front() != '/') continue;
        const auto [place, isNew] = places.try_emplace(mount.mountPoint, mounts.size());
        if (isNew) {
            mounts.push_back(std::move(mount));
        } else {
            mounts[place->second] = std::move(mount);
        }
    }
    return mounts;
}

MountKind KindOf(const MountSource::Mount& mount) {
    if (mount.mountPoint == "/") return MountKind::Real;
    for (const std::string_view folder : {"/proc", "/sys", "/dev"}) {
        if (IsAtOrBelow(mount.mountPoint, folder)) return MountKind::Pseudo;
    }
    const std::string_view type = mount.fileSystem;
    if (type == "tmpfs" || type == "ramfs") return MountKind::Temporary;
    // Images of installed programs, dozens of them on some systems.
    if (type == "squashfs" || type == "erofs") return MountKind::Pseudo;
    if (type.starts_with("fuse.")) {
        return IsIn(kRealFuseTypes, type) ? MountKind::Real : MountKind::Pseudo;
    }
    if (IsIn(kRealTypes, type) || mount.source.starts_with("/dev/")) return MountKind::Real;
    return MountKind::Pseudo;
}

}  // namespace kit

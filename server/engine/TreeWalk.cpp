#include "server/engine/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace server {

namespace {

constexpr size_t kBlockSize = 64 * 1024;
constexpr size_t kOpenLevels = 16;  // that stay open behind the present one
// A directory's names are reserved room for at most this much in advance.
constexpr int64_t kMaxReserved = int64_t{64} << 20;
constexpr size_t kKeptNames = size_t{1} << 20;  // more than this is given back after a directory

// How the kernel tells a directory's entries (getdents64).
struct KernelEntry {
    uint64_t node;
    int64_t next;
    unsigned short length;
    unsigned char type;
    char name[1];
};

bool IsDots(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// One record of Level::subs.
constexpr size_t kSubHead = sizeof(int64_t) + 1;

}  // namespace

int OpenForReading(int parent, const char* name, int flags) {
    flags |= O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    int fd = ::openat(parent, name, flags | O_NOATIME);
    if (fd < 0 && errno == EPERM) fd = ::openat(parent, name, flags);  // somebody else's file
    return fd;
}

TreeWalk::TreeWalk(const core::SelectionMatcher& matcher, const std::vector<OwnFiles>& own,
                   Order order)
    : fMatcher(matcher), fOwn(own), fOrder(order), fBlock(kBlockSize) {}

// The mount that the node is on; where the kernel does not say, its device, which serves nearly as
// well.
uint64_t TreeWalk::MountOf(int fd, const char* name, struct stat* info) const {
    struct statx found;
    if (::statx(fd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH,
                STATX_BASIC_STATS | STATX_MNT_ID, &found) != 0) {
        info->st_mode = 0;
        return 0;
    }
    info->st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    info->st_ino = found.stx_ino;
    info->st_mode = found.stx_mode;
    info->st_nlink = found.stx_nlink;
    info->st_uid = found.stx_uid;
    info->st_gid = found.stx_gid;
    info->st_size = static_cast<off_t>(found.stx_size);
    info->st_mtim = {found.stx_mtime.tv_sec, found.stx_mtime.tv_nsec};
    info->st_ctim = {found.stx_ctime.tv_sec, found.stx_ctime.tv_nsec};
    return (found.stx_mask & STATX_MNT_ID) != 0 ? found.stx_mnt_id : info->st_dev;
}

bool TreeWalk::Run(const std::string& volume, const std::string& mountPoint, int64_t tag,
                   TreeVisitor& visitor) {
    fLevels.clear();
    fPath = "/" + volume;
    // The mount point itself may be reached through links.
    kit::UniqueFd root(::open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root.IsOpen()) {
        visitor.Unreadable(fPath, errno);
        return true;
    }
    struct stat info {};
    fMount = MountOf(root.Get(), "", &info);
    const bool included = fMatcher.Includes(fPath);
    if (!included && !fMatcher.MayInclude(fPath)) return true;
    WalkNode node;
    node.path = fPath;
    node.included = included;
    node.info = &info;
    if (!Push(node, tag, root.Release(), false, visitor)) return false;
    while (!fLevels.empty()) {
        Level& level = fLevels.back();
        if (level.nextSub >= level.subs.size()) {
            fLevels.pop_back();
            if (!fLevels.empty()) fPath.resize(fLevels.back().pathLength);
            continue;
        }
        if (!level.fd.IsOpen() && !Reopen()) {
            visitor.Unreadable(fPath, ESTALE);
            level.nextSub = level.subs.size();
            continue;
        }
        if (!EnterSub(visitor)) return false;
    }
    return true;
}

bool TreeWalk::EnterSub(TreeVisitor& visitor) {
    Level& level = fLevels.back();
    const char* record = level.subs.data() + level.nextSub;
    int64_t tag;
    std::memcpy(&tag, record, sizeof(tag));
    const bool included = record[sizeof(tag)] != 0;
    const char* name = record + kSubHead;
    level.nextSub += kSubHead + std::strlen(name) + 1;

    if (!visitor.MayGoOn()) return false;
    fPath += '/';
    fPath += name;
    struct stat info {};
    WalkNode node;
    node.parent = level.fd.Get();
    node.name = name;
    node.path = fPath;
    node.included = included;
    node.info = &info;
    kit::UniqueFd fd(OpenForReading(level.fd.Get(), name, O_DIRECTORY));
    if (!fd.IsOpen()) {
        const int code = errno;
        if (MountOf(level.fd.Get(), name, &info) == 0) info.st_mode = 0;
        visitor.Enter(node, tag, -1, code);
        fPath.resize(level.pathLength);
        return true;
    }
    if (MountOf(fd.Get(), "", &info) != fMount) {
        visitor.Enter(node, tag, fd.Get(), 0);
        visitor.EndOfEntries(tag);
        visitor.OtherMount(fPath);
        fPath.resize(level.pathLength);
        return true;
    }
    return Push(node, tag, fd.Release(), level.uniform, visitor);
}

bool TreeWalk::Push(const WalkNode& node, int64_t tag, int fd, bool uniform, TreeVisitor& visitor) {
    Level level;
    level.fd = kit::UniqueFd(fd);
    level.device = node.info->st_dev;
    level.node = node.info->st_ino;
    level.pathLength = fPath.size();
    level.tag = tag;
    level.uniform = uniform || fMatcher.IsUniform(node.path);
    level.included = node.included;
    for (const OwnFiles& own : fOwn) {
        if (own.device == level.device && own.node == level.node) level.own = &own;
    }
    visitor.Enter(node, tag, fd, 0);
    if (!ReadEntries(level, visitor)) return false;
    visitor.EndOfEntries(tag);
    // Without directories to come there is nothing to come back for.
    if (level.subs.empty()) {
        fPath.resize(fLevels.empty() ? 0 : fLevels.back().pathLength);
        return true;
    }
    fLevels.push_back(std::move(level));
    CloseFarLevels();
    return true;
}

bool TreeWalk::ReadEntries(Level& level, TreeVisitor& visitor) {
    fNames.clear();
    fSorted.clear();
    const bool sorted = fOrder == Order::Sorted;
    if (sorted) {
        struct stat info;
        if (::fstat(level.fd.Get(), &info) == 0) {
            fNames.reserve(static_cast<size_t>(std::clamp<int64_t>(info.st_size, 0, kMaxReserved)));
        }
    }
    for (;;) {
        const long got = ::syscall(SYS_getdents64, level.fd.Get(), fBlock.data(), fBlock.size());
        if (got < 0) visitor.Unreadable(fPath, errno);
        if (got <= 0) break;
        if (!visitor.MayGoOn()) return false;
        for (long at = 0; at < got;) {
            const auto* entry = reinterpret_cast<const KernelEntry*>(fBlock.data() + at);
            at += entry->length;
            if (IsDots(entry->name)) continue;
            if (!sorted) {
                Told(level, entry->name, entry->type, visitor);
                continue;
            }
            // Beyond 4 GB of names in one directory something is wrong with the disk.
            if (fNames.size() > UINT32_MAX - 4096) {
                visitor.Unreadable(fPath, EOVERFLOW);
                break;
            }
            fSorted.push_back(static_cast<uint32_t>(fNames.size()));
            fNames.push_back(static_cast<char>(entry->type));
            fNames.insert(fNames.end(), entry->name, entry->name + std::strlen(entry->name) + 1);
        }
    }
    if (!sorted) return true;
    std::sort(fSorted.begin(), fSorted.end(), [this](uint32_t a, uint32_t b) {
        return std::strcmp(fNames.data() + a + 1, fNames.data() + b + 1) < 0;
    });
    for (uint32_t at : fSorted) {
        if (!visitor.MayGoOn()) return false;
        Told(level, fNames.data() + at + 1, static_cast<unsigned char>(fNames[at]), visitor);
    }
    if (fNames.capacity() > kKeptNames) {
        std::vector<char>().swap(fNames);
        std::vector<uint32_t>().swap(fSorted);
    }
    return true;
}

void TreeWalk::Told(Level& level, const char* name, unsigned char type, TreeVisitor& visitor) {
    if (level.own && level.own->covers(name)) {
        visitor.LeftOut(fPath, *level.own);
        return;
    }
    fPath += '/';
    fPath += name;
    WalkNode node;
    node.parent = level.fd.Get();
    node.name = name;
    node.type = type;
    node.path = fPath;
    struct stat info {};
    bool directory = type == DT_DIR;
    if (type == DT_UNKNOWN) {
        directory = ::fstatat(level.fd.Get(), name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISDIR(info.st_mode);
    }
    node.included = level.uniform ? level.included : fMatcher.Includes(fPath);
    if (directory) {
        if (node.included || (!level.uniform && fMatcher.MayInclude(fPath))) {
            ToldDirectory(level, node, visitor);
        }
    } else if (node.included) {
        visitor.Entry(node);
    }
    fPath.resize(level.pathLength);
}

void TreeWalk::ToldDirectory(Level& level, const WalkNode& node, TreeVisitor& visitor) {
    struct stat info {};
    WalkNode told = node;
    if (fOrder == Order::Sorted) {
        MountOf(level.fd.Get(), node.name, &info);
        if (info.st_mode == 0) {
            visitor.Unreadable(fPath, errno);
            return;
        }
        told.info = &info;
    }
    const std::optional<int64_t> tag = visitor.SubDirectory(told);
    if (!tag) return;
    const char* bytes = reinterpret_cast<const char*>(&*tag);
    level.subs.insert(level.subs.end(), bytes, bytes + sizeof(*tag));
    level.subs.push_back(node.included ? 1 : 0);
    level.subs.insert(level.subs.end(), node.name, node.name + std::strlen(node.name) + 1);
}

void TreeWalk::CloseFarLevels() {
    // The lowest levels stay open, so that there is always one to start from again.
    if (fLevels.size() > 2 * kOpenLevels) {
        fLevels[fLevels.size() - 1 - kOpenLevels].fd.Reset();
    }
}

// Opens the present level again, from the nearest one above that is open, and some on the way.
bool TreeWalk::Reopen() {
    const size_t wanted = fLevels.size() - 1;
    size_t from = wanted;
    while (!fLevels[from].fd.IsOpen()) {
        if (from-- == 0) return false;
    }
    int parent = fLevels[from].fd.Get();
    kit::UniqueFd between;
    for (size_t i = from + 1; i <= wanted; ++i) {
        Level& level = fLevels[i];
        const size_t start = fLevels[i - 1].pathLength + 1;
        const std::string name = fPath.substr(start, level.pathLength - start);
        kit::UniqueFd fd(OpenForReading(parent, name.c_str(), O_DIRECTORY));
        struct stat info;
        if (!fd.IsOpen() || ::fstat(fd.Get(), &info) != 0 || info.st_dev != level.device ||
            info.st_ino != level.node) {
            return false;
        }
        parent = fd.Get();
        if (i + kOpenLevels > wanted) {
            level.fd = std::move(fd);
            between.Reset();
        } else {
            between = std::move(fd);
        }
    }
    return true;
}

}  // namespace server

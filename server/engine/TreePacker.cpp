#include "server/engine/TreePacker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/protocol/Texts.h"
#include "server/archive/Format.h"

namespace server {

using archive::Extent;
using archive::TarMember;
using archive::TarType;
using core::LineType;

namespace {

constexpr int kTries = 3;  // for a file that changes while it is read

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool IsSame(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::string Reason(int code) {
    return std::strerror(code);
}

// Members are named without the slash that a rule's path begins with.
std::string_view MemberPath(std::string_view path) {
    return path.substr(1);
}

// What a directory's turn needs to know: its id, that of the directory it was in the base (0: it
// was none), and whether its own header is as it was there.
struct DirectoryTag {
    int32_t id = 0;
    int32_t base = 0;
    bool same = false;

    int64_t Packed() const {
        return static_cast<int64_t>(uint64_t{same} << 63 |
                                    uint64_t{static_cast<uint32_t>(base)} << 32 |
                                    static_cast<uint32_t>(id));
    }
    static DirectoryTag Of(int64_t packed) {
        const auto bits = static_cast<uint64_t>(packed);
        return {static_cast<int32_t>(bits & INT32_MAX),
                static_cast<int32_t>(bits >> 32 & INT32_MAX), bits >> 63 != 0};
    }
};

// The target of a link, whatever its length.
bool ReadTarget(int parent, const char* name, std::string* target) {
    target->resize(1024);
    for (;;) {
        const ssize_t got = ::readlinkat(parent, name, target->data(), target->size());
        if (got < 0) return false;
        if (static_cast<size_t>(got) < target->size()) {
            target->resize(static_cast<size_t>(got));
            return true;
        }
        target->resize(target->size() * 4);
    }
}

}  // namespace

TreePacker::TreePacker(FrameStream& stream, CatalogueWriter& catalogue, JobReport& report,
                       JobControl& control, CatalogueReader* base)
    : fStream(stream), fCatalogue(catalogue), fReport(report), fControl(control) {
    if (base) {
        fBase.emplace(*base, [this](std::string_view path) {
            fCatalogue.AddGone(MemberPath(path));
            fReport.Words(LineType::Detail, "Gone: " + std::string(path));
        });
    }
}

std::vector<int64_t> TreePacker::AddVolumes(const std::vector<BVolume>& volumes) {
    const int32_t first = fCatalogue.NextId();
    std::vector<int64_t> tags;
    if (fBase) fBase->Open(kCatalogueRoot, {});
    for (const BVolume& volume : volumes) {
        struct stat info {};
        info.st_mode = S_IFDIR;
        ::stat(volume.mountPoint.c_str(), &info);
        WalkNode node;
        node.name = volume.name.c_str();
        const CatalogueEntry* before = fBase ? fBase->Find(volume.name) : nullptr;
        DirectoryTag tag;
        tag.id = AddRow(node, info, {-1, 0}, 0, false);
        tag.base = before ? before->id : 0;
        tag.same = before && BaseTree::IsSame(*before, info);
        tags.push_back(tag.Packed());
    }
    if (fBase) fBase->Close();
    fCatalogue.AddDirectory({kCatalogueRoot, first, static_cast<int32_t>(volumes.size()), -1, 0});
    return tags;
}

bool TreePacker::Finish() {
    // Two blocks of zeros end a tar; stock tar makes it whole records.
    const int64_t end = fStream.Written() + 2 * static_cast<int64_t>(archive::kTarBlock);
    const auto record = static_cast<int64_t>(archive::kTarRecord);
    const int64_t whole = (end + record - 1) / record * record;
    return fStream.WriteZeros(whole - fStream.Written());
}

bool TreePacker::MayGoOn() {
    return fOnTheWay && !fStream.HasFailed() && fControl.MayGoOn();
}

// --- directories --------------------------------------------------------------------------------

std::optional<int64_t> TreePacker::SubDirectory(const WalkNode& node) {
    DirectoryTag tag;
    if (const CatalogueEntry* before = fBase ? fBase->Find(node.name) : nullptr) {
        if (S_ISDIR(before->mode)) {
            tag.base = before->id;
            tag.same = BaseTree::IsSame(*before, *node.info);
        } else {
            fBase->Replaced(*before);
        }
    }
    tag.id = AddRow(node, *node.info, {-1, 0}, 0, false);
    if (tag.id == 0) return std::nullopt;
    return tag.Packed();
}

void TreePacker::Enter(const WalkNode& node, int64_t tag, int fd, int code) {
    if (fCatalogue.HasFailed()) fOnTheWay = false;
    const auto [id, base, same] = DirectoryTag::Of(tag);
    if (fBase) fBase->Open(base, node.path);
    if (code == ENOENT || code == ENOTDIR || node.info->st_mode == 0) {
        fCatalogue.AddDirectory({id, fCatalogue.NextId(), 0, -1, 0});
        Unreadable(node.path, code);
        return;
    }
    fDirectory = {id, fCatalogue.NextId(), 0, -1, 0};
    fDirectoryInfo = *node.info;
    fDirectoryPath = node.path;
    ++fTotals.entries;
    if (node.included) ++fTotals.taken;
    const auto before = same ? fBase->DirectoryAt(base) : std::nullopt;
    fIsPacked = !before || before->frame < 0 || fd < 0;
    if (fIsPacked) {
        PackDirectory(fd, node.parent, node.name);
    } else {
        fDirectory.frame = before->frame;
        fDirectory.offset = before->offset;
    }
    if (fd < 0) {
        fCatalogue.AddDirectory(fDirectory);
        Unreadable(node.path, code);
    }
}

void TreePacker::PackDirectory(int fd, int parent, const char* name) {
    fIsPacked = true;
    fRecords.Clear();
    const int lost =
        fd >= 0 ? fNodes.ReadOpen(fd, fRecords) : fNodes.ReadEntry(parent, name, fRecords);
    TarMember member;
    member.type = TarType::Directory;
    const FrameStream::Place place = PackHeader(member, fDirectoryInfo, fDirectoryPath, 0);
    fDirectory.frame = place.frame;
    fDirectory.offset = place.offset;
    fReport.Words(LineType::Directory, fDirectoryPath);
    if (lost != 0) AttributesLost(fDirectoryPath, lost);
}

void TreePacker::EndOfEntries(int64_t) {
    if (fBase) fBase->Close();
    fDirectory.count = fCatalogue.NextId() - fDirectory.first;
    fCatalogue.AddDirectory(fDirectory);
}

// --- entries ------------------------------------------------------------------------------------

void TreePacker::Entry(const WalkNode& node) {
    if (fBase && TakeFromBase(node)) {
        ++fTotals.entries;
        ++fTotals.files;
        ++fTotals.taken;
        fReport.AddDone(1, 0);
        fReport.Tick(node.path);
        return;
    }
    // Unpacking something into it changes the directory's time: its header sets that right.
    if (!fIsPacked) PackDirectory(node.parent, -1, nullptr);
    if (node.type == DT_REG) {
        PackRegular(node);
    } else {
        PackSpecial(node);
    }
    fReport.AddDone(1, 0);
    fReport.Tick(node.path);
}

// Whether the entry is as the base has it: then its row is all there is to write.
bool TreePacker::TakeFromBase(const WalkNode& node) {
    const CatalogueEntry* before = fBase->Find(node.name);
    if (!before) return false;
    struct stat info;
    if (::fstatat(node.parent, node.name, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if ((before->mode & S_IFMT) != (info.st_mode & S_IFMT)) {
        fBase->Replaced(*before);
        return false;
    }
    if (!BaseTree::IsSame(*before, info)) return false;
    if (info.st_nlink > 1) return TakeLinkFromBase(node, info, *before);
    AddRow(node, info, {before->frame, before->offset}, 0, false);
    fTotals.bytes += S_ISREG(info.st_mode) ? info.st_size : 0;
    return true;
}

// Of several names one has the data, here as in the base; else they are saved anew.
bool TreePacker::TakeLinkFromBase(const WalkNode& node, const struct stat& info,
                                  const CatalogueEntry& entry) {
    HardLinks::First first;
    const std::optional<bool> inBase = fLinks.IsFirstInBase(info.st_dev, info.st_ino);
    if (inBase.has_value() != (entry.link != 0)) return false;
    if (inBase) {
        if (!*inBase) return false;  // the first one has moved
        fLinks.Find(info.st_dev, info.st_ino, &first);
        AddRow(node, info, {entry.frame, entry.offset}, first.entry, false);
        return true;
    }
    const int32_t id = AddRow(node, info, {entry.frame, entry.offset}, 0, false);
    fLinks.Add(info.st_dev, info.st_ino, static_cast<uint32_t>(info.st_nlink),
               MemberPath(node.path), id, true);
    fTotals.bytes += S_ISREG(info.st_mode) ? info.st_size : 0;
    return true;
}

void TreePacker::PackRegular(const WalkNode& node) {
    kit::UniqueFd fd(OpenForReading(node.parent, node.name, 0));
    if (!fd.IsOpen()) {
        // A link, socket or device has taken its place.
        if (errno == ELOOP || errno == ENXIO) {
            PackSpecial(node);
        } else {
            Unreadable(node.path, errno);
        }
        return;
    }
    struct stat toCome;
    if (fBase && ::fstat(fd.Get(), &toCome) == 0) fReport.AddTotals(0, toCome.st_size);
    for (int left = kTries; left > 0; --left) {
        if (PackOpenFile(node, fd.Get(), left > 1) != Packed::TryAgain) return;
    }
}

TreePacker::Packed TreePacker::PackOpenFile(const WalkNode& node, int fd, bool mayTryAgain) {
    struct stat info;
    if (::fstat(fd, &info) != 0) {
        Unreadable(node.path, errno);
        return Packed::NotThere;
    }
    if (!S_ISREG(info.st_mode)) {
        PackSpecial(node);
        return Packed::NotThere;
    }
    if (info.st_nlink > 1 && PackHardLink(node, info)) return Packed::Done;

    fRecords.Clear();
    const int lost = fNodes.ReadOpen(fd, fRecords);
    const std::vector<Extent> holes = FindExtents(fd, info.st_size, int64_t{info.st_blocks} * 512);
    TarMember member;
    int64_t dataSize = info.st_size;
    Bytes map;
    if (!holes.empty()) {
        map = archive::SparseMap(holes);
        dataSize = static_cast<int64_t>(map.size());
        for (const Extent& extent : holes)
            dataSize += extent.length;
        member.sparse = true;
        member.realSize = info.st_size;
    }
    const FrameStream::Place place = PackHeader(member, info, node.path, dataSize);
    if (!fStream.Write(map)) return Packed::Ended;

    const Extent whole{0, info.st_size};
    bool incomplete = false;
    const Packed packed =
        PackContent(node, fd, info, holes.empty() ? std::span(&whole, 1) : std::span(holes),
                    mayTryAgain, place, &incomplete);
    if (packed != Packed::Done) return packed;
    if (!fStream.WriteZeros(archive::TarPadded(dataSize) - dataSize)) return Packed::Ended;

    const int32_t id = AddRow(node, info, place, 0, incomplete);
    if (info.st_nlink > 1) {
        fLinks.Add(info.st_dev, info.st_ino, static_cast<uint32_t>(info.st_nlink),
                   MemberPath(node.path), id);
    }
    CountSaved(info.st_size);
    fReport.Words(LineType::File, node.path);
    if (lost != 0) AttributesLost(node.path, lost);
    return Packed::Done;
}

TreePacker::Packed TreePacker::PackContent(const WalkNode& node, int fd, const struct stat& info,
                                           std::span<const Extent> extents, bool mayTryAgain,
                                           const FrameStream::Place& place, bool* incomplete) {
    int64_t done = 0;
    const ContentResult result = CopyContent(fd, extents, fStream, [&](int64_t bytes) {
        done += bytes;
        fReport.AddDone(0, bytes);
        fReport.Tick(node.path);
        return MayGoOn();
    });
    if (!result.wentOn) return Packed::Ended;
    // Holes count as done too.
    fReport.AddDone(0, info.st_size - done);
    struct stat after;
    const bool changed = ::fstat(fd, &after) != 0 || after.st_size != info.st_size ||
                         !IsSame(after.st_mtim, info.st_mtim);
    if (!changed && result.code == 0 && !result.tooShort) return Packed::Done;

    if (result.code == 0 && mayTryAgain && fStream.TakeBack(place)) {
        fReport.AddDone(0, -info.st_size);
        return Packed::TryAgain;
    }
    *incomplete = true;
    if (result.code != 0) {
        fReport.Error(core::text::kFileUnreadable, {node.path},
                      Reason(result.code) + ". What could not be read was saved as zeros.");
    } else if (result.tooShort) {
        fReport.ErrorWords(
            "Error: file '" + std::string(node.path) + "' became shorter while it was read",
            "What was missing was saved as zeros.");
    } else {
        fReport.ErrorWords("Error: file '" + std::string(node.path) +
                           "' changed while it was read");
    }
    return Packed::Done;
}

bool TreePacker::PackHardLink(const WalkNode& node, const struct stat& info) {
    HardLinks::First first;
    if (!fLinks.Find(info.st_dev, info.st_ino, &first)) return false;
    fRecords.Clear();
    TarMember member;
    member.type = TarType::HardLink;
    member.link = first.path;
    const FrameStream::Place place = PackHeader(member, info, node.path, 0);
    AddRow(node, info, place, first.entry, false);
    CountSaved(0);
    fReport.AddDone(0, info.st_size);
    fReport.Words(LineType::File, node.path);
    return true;
}

// Everything that is not opened: links, devices, FIFOs, sockets.
void TreePacker::PackSpecial(const WalkNode& node) {
    struct stat info;
    if (::fstatat(node.parent, node.name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        Unreadable(node.path, errno);
        return;
    }
    TarMember member;
    std::string target;
    switch (info.st_mode & S_IFMT) {
        case S_IFLNK:
            member.type = TarType::SymbolicLink;
            if (!ReadTarget(node.parent, node.name, &target)) {
                Unreadable(node.path, errno);
                return;
            }
            member.link = target;
            break;
        case S_IFCHR:
            member.type = TarType::CharacterDevice;
            break;
        case S_IFBLK:
            member.type = TarType::BlockDevice;
            break;
        case S_IFIFO:
            member.type = TarType::Fifo;
            break;
        case S_IFSOCK:
            fReport.Words(LineType::Detail, "Left out, a socket: " + std::string(node.path));
            return;
        case S_IFREG:
            if (node.type != DT_REG) {
                PackRegular(node);
                return;
            }
            [[fallthrough]];
        default:
            fReport.ErrorWords("Error: '" + std::string(node.path) +
                               "' became something else while it was read");
            return;
    }
    if (member.type == TarType::CharacterDevice || member.type == TarType::BlockDevice) {
        member.major = ::major(info.st_rdev);
        member.minor = ::minor(info.st_rdev);
    }
    if (info.st_nlink > 1 && PackHardLink(node, info)) return;
    fRecords.Clear();
    const int lost = fNodes.ReadEntry(node.parent, node.name, fRecords);
    const FrameStream::Place place = PackHeader(member, info, node.path, 0);
    const int32_t id = AddRow(node, info, place, 0, false);
    if (info.st_nlink > 1) {
        fLinks.Add(info.st_dev, info.st_ino, static_cast<uint32_t>(info.st_nlink),
                   MemberPath(node.path), id);
    }
    CountSaved(0);
    fReport.Words(LineType::File, node.path);
    if (lost != 0) AttributesLost(node.path, lost);
}

// --- pieces -------------------------------------------------------------------------------------

FrameStream::Place TreePacker::PackHeader(TarMember member, const struct stat& info,
                                          std::string_view path, int64_t dataSize) {
    member.path = MemberPath(path);
    member.mode = info.st_mode & 07777;
    member.uid = info.st_uid;
    member.gid = info.st_gid;
    member.owner = fNodes.UserName(info.st_uid);
    member.group = fNodes.GroupName(info.st_gid);
    member.seconds = info.st_mtim.tv_sec;
    member.nanoseconds = static_cast<uint32_t>(info.st_mtim.tv_nsec);
    member.size = dataSize;
    member.extra = &fRecords;
    fHeader.clear();
    AppendTarHeader(member, fHeader);
    const FrameStream::Place place =
        fStream.Begin(fHeader.size() + static_cast<uint64_t>(archive::TarPadded(dataSize)));
    fStream.Write(fHeader);
    return place;
}

int32_t TreePacker::AddRow(const WalkNode& node, const struct stat& info,
                           const FrameStream::Place& place, int32_t link, bool incomplete) {
    CatalogueEntry entry;
    entry.mode = info.st_mode;
    entry.uid = info.st_uid;
    entry.gid = info.st_gid;
    entry.size = S_ISREG(info.st_mode) || S_ISLNK(info.st_mode) ? info.st_size : 0;
    entry.modified = Nanoseconds(info.st_mtim);
    entry.changed = Nanoseconds(info.st_ctim);
    entry.frame = place.frame;
    entry.offset = place.offset;
    entry.link = link;
    entry.node = info.st_ino;
    entry.incomplete = incomplete;
    return fCatalogue.AddEntry(entry, node.name);
}

void TreePacker::CountSaved(int64_t bytes) {
    ++fTotals.entries;
    ++fTotals.files;
    ++fTotals.taken;
    fTotals.bytes += bytes;
    ++fTotals.savedFiles;
    fTotals.savedBytes += bytes;
}

void TreePacker::AttributesLost(std::string_view path, int code) {
    fReport.ErrorWords("Error: can't read all attributes of '" + std::string(path) + "'",
                       Reason(code));
}

void TreePacker::Unreadable(std::string_view path, int code) {
    if (code == ENOENT || code == ENOTDIR || code == 0) {
        fReport.ErrorWords("Error: '" + std::string(path) + "' vanished before it was read");
    } else {
        fReport.Error(core::text::kFileUnreadable, {path}, Reason(code));
    }
}

void TreePacker::OtherMount(std::string_view path) {
    fReport.Words(LineType::Detail, "Left out, another volume: " + std::string(path));
}

void TreePacker::LeftOut(std::string_view, const OwnFiles& own) {
    if (!fOwnTold.insert(&own).second) return;
    fReport.Words(LineType::Heading, own.words);
}

}  // namespace server

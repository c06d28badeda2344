#include "server/engine/EntryComparer.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/protocol/Texts.h"
#include "server/engine/JobTotals.h"
#include "server/engine/MemberHeader.h"
#include "server/engine/TreeWalk.h"

namespace server {

using archive::ReadMember;
using core::LineType;
namespace text = core::text;

namespace {

constexpr size_t kBlock = size_t{256} << 10;
constexpr int64_t kSecond = 1'000'000'000;

int64_t Nanoseconds(const statx_timestamp& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

const char* TypeWords(uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "file";
        case S_IFDIR:
            return "directory";
        case S_IFLNK:
            return "symbolic link";
        case S_IFCHR:
        case S_IFBLK:
            return "device";
        case S_IFIFO:
            return "FIFO";
        case S_IFSOCK:
            return "socket";
        default:
            return "something else";
    }
}

// "rwxr-x---", as everybody knows it from listings.
std::string RightsWords(uint32_t mode) {
    std::string words = "rwxrwxrwx";
    for (size_t i = 0; i < words.size(); ++i) {
        if ((mode & (0400U >> i)) == 0) words[i] = '-';
    }
    const auto special = [&](uint32_t bit, size_t at, char with, char without) {
        if ((mode & bit) != 0) words[at] = words[at] == 'x' ? with : without;
    };
    special(S_ISUID, 2, 's', 'S');
    special(S_ISGID, 5, 's', 'S');
    special(S_ISVTX, 8, 't', 'T');
    return words;
}

// With the fraction where only that tells two times apart.
std::string TimeWords(int64_t nanoseconds, bool withFraction) {
    int64_t rest = nanoseconds % kSecond;
    if (rest < 0) rest += kSecond;
    std::string words = LocalTimeText((nanoseconds - rest) / kSecond);
    if (withFraction) {
        std::string fraction = std::to_string(rest);
        words += "." + std::string(9 - fraction.size(), '0') + fraction;
    }
    return words;
}

KTReportLine Named(const CompareItem& item) {
    KTReportLine line;
    line.AddString(item.path);
    return line;
}

void Add(KTReportLine& line, int64_t size) {
    line.AddInt64(size);
}

void Add(KTReportLine& line, uint32_t id) {
    line.AddInt32(static_cast<int32_t>(id));
}

void Add(KTReportLine& line, const std::string& words) {
    line.AddString(words);
}

std::string DeviceWords(uint32_t major, uint32_t minor) {
    return std::to_string(major) + ":" + std::to_string(minor);
}

}  // namespace

EntryComparer::EntryComparer(const BackupContent& content, CatalogueReader& catalogue,
                             const CompareItems& items, JobReport& report, JobControl& control)
    : fCursor(content, catalogue), fItems(items), fReport(report), fControl(control) {}

// --- what is told -------------------------------------------------------------------------------

void EntryComparer::Worse(Outcome outcome) {
    fOutcome = std::max(fOutcome, outcome);
}

void EntryComparer::Differs(int32_t textId, KTReportLine line) {
    Worse(Outcome::Different);
    fReport.Line(LineType::Error, textId, std::move(line));
}

void EntryComparer::DiffersInWords(const CompareItem& item, const std::string& what) {
    Worse(Outcome::Different);
    fReport.ErrorWords(item.path + ": " + what);
}

bool EntryComparer::DataDiffers(const CompareItem& item) {
    Differs(text::kFileDataDiffers, Named(item));
    return false;
}

void EntryComparer::Unreadable(int32_t textId, const CompareItem& item, std::string_view reason) {
    // The wait for a disc may have been given up.
    if (fControl.IsAborted()) {
        Worse(Outcome::Aborted);
        return;
    }
    Worse(Outcome::Unreadable);
    fReport.Error(textId, {item.path}, reason);
}

// What is not there is a difference like others.
void EntryComparer::NoAccess(const CompareItem& item, int code) {
    if (code == ENOENT || code == ENOTDIR) {
        Worse(Outcome::Different);
        fReport.Error(text::kSourceNoAccess, {item.path},
                      S_ISDIR(item.entry.mode) ? "It is not there. Nothing below it is compared."
                                               : "It is not there.");
    } else {
        Unreadable(text::kSourceNoAccess, item, std::strerror(code));
    }
}

// --- one entry ----------------------------------------------------------------------------------

EntryComparer::Outcome EntryComparer::Compare(const CompareItem& item) {
    fOutcome = Outcome::Same;
    fTold = 0;
    fDisk = {};
    if (!EnterDirectory(item)) return fOutcome;
    if (::statx(fOpen.Get(), item.name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_BASIC_STATS | STATX_BTIME, &fDisk) != 0) {
        NoAccess(item, errno);
        return fOutcome;
    }
    if ((fDisk.stx_mode & S_IFMT) != (item.entry.mode & S_IFMT)) {
        DiffersInWords(item, std::string("type different (backup: ") + TypeWords(item.entry.mode) +
                                 ", source: " + TypeWords(fDisk.stx_mode) + ")");
        return fOutcome;
    }
    CompareFacts(item);
    CompareContent(item);
    // What was not read counts as done, too.
    if (S_ISREG(item.entry.mode) && item.entry.link == 0)
        fReport.AddDone(0, item.entry.size - fTold);
    return fOutcome;
}

std::optional<DiskNode> EntryComparer::Shared() const {
    if (fDisk.stx_nlink < 2) return std::nullopt;
    return DiskNode{::makedev(fDisk.stx_dev_major, fDisk.stx_dev_minor), fDisk.stx_ino};
}

bool EntryComparer::EnterDirectory(const CompareItem& item) {
    if (fOpen.IsOpen() && fVolume == item.volume && fDirectory == item.directory) return true;
    fOpen.Reset();
    auto directory = item.volume->OpenDirectory(item.directory);
    if (!directory) {
        // A link or a file has taken its place.
        NoAccess(item, directory.error().code == ELOOP ? ENOTDIR : directory.error().code);
        return false;
    }
    fOpen = std::move(*directory);
    fVolume = item.volume;
    fDirectory = item.directory;
    return true;
}

// What the catalogue knows.
void EntryComparer::CompareFacts(const CompareItem& item) {
    const CatalogueEntry& entry = item.entry;
    const auto differs = [&](int32_t textId, const auto& backup, const auto& source) {
        KTReportLine line = Named(item);
        Add(line, backup);
        Add(line, source);
        Differs(textId, std::move(line));
    };
    const auto size = static_cast<int64_t>(fDisk.stx_size);
    if (fItems.size && S_ISREG(entry.mode) && size != entry.size)
        differs(text::kFileSizeDiffers, entry.size, size);
    const int64_t modified = Nanoseconds(fDisk.stx_mtime);
    if (fItems.modified && modified != entry.modified) {
        const bool close = modified / kSecond == entry.modified / kSecond;
        differs(text::kModifiedDiffers, TimeWords(entry.modified, close),
                TimeWords(modified, close));
    }
    if (fItems.created) CompareCreation(item);
    // Those of a link say nothing.
    if (fItems.rights && !S_ISLNK(entry.mode) && ((entry.mode ^ fDisk.stx_mode) & 07777) != 0) {
        differs(text::kPermissionsDiffer, RightsWords(entry.mode), RightsWords(fDisk.stx_mode));
    }
    if (fItems.user && entry.uid != fDisk.stx_uid) {
        differs(text::kUserDiffers, entry.uid, fDisk.stx_uid);
    }
    if (fItems.group && entry.gid != fDisk.stx_gid) {
        differs(text::kGroupDiffers, entry.gid, fDisk.stx_gid);
    }
}

// The system keeps the time at which a file was made, but lets nobody set it: a file that was
// restored, or copied over with all else the same, was made after it was saved. Who asks for this
// by name is told of a difference; among all the rest it is a remark, else nothing that was
// restored would ever be the same.
void EntryComparer::CompareCreation(const CompareItem& item) {
    if ((fDisk.stx_mask & STATX_BTIME) == 0) return;
    const int64_t created = Nanoseconds(fDisk.stx_btime);
    // It was saved no earlier than its status was changed last, and that not before it was made.
    if (created <= item.entry.changed || Nanoseconds(fDisk.stx_ctime) == item.entry.changed) return;
    const bool close = created / kSecond == item.entry.changed / kSecond;
    KTReportLine line = Named(item);
    line.AddString("<= " + TimeWords(item.entry.changed, close));
    line.AddString(TimeWords(created, close));
    if (fItems.all) {
        fReport.Line(LineType::Detail, text::kCreatedDiffers, std::move(line));
    } else {
        Differs(text::kCreatedDiffers, std::move(line));
    }
}

// What only the stream knows.
void EntryComparer::CompareContent(const CompareItem& item) {
    const uint32_t mode = item.entry.mode;
    const auto size = static_cast<int64_t>(fDisk.stx_size);
    if (item.compared && Shared() == item.compared) return;
    const bool isFile = S_ISREG(mode);
    bool data = isFile && fItems.data;
    if (data && size != item.entry.size) data = DataDiffers(item);
    if (data && size == 0) data = false;
    const bool link = S_ISLNK(mode) && fItems.link;
    const bool device = (S_ISCHR(mode) || S_ISBLK(mode)) && fItems.data;
    if (!fItems.attributes && !data && !link && !device) return;

    auto member = ReadMemberAt(fCursor, mode, item.entry.frame, item.entry.offset);
    if (member && item.entry.link == 0 && "/" + member->path != item.path) {
        member = kit::Error::Make(kit::ErrorKind::Damaged, member->path, "another entry");
    }
    if (!member) {
        Unreadable(text::kBackupFileHeaderUnreadable, item, member.error().Text());
        return;
    }
    if (link) CompareLink(item, *member);
    if (device) CompareDevice(item, *member);
    if (fItems.attributes) CompareAttributes(item, *member);
    if (data) CompareData(item, *member);
}

void EntryComparer::CompareLink(const CompareItem& item, const ReadMember& member) {
    std::string target(member.link.size() + 1, '\0');
    ssize_t got = 0;
    while ((got = ::readlinkat(fOpen.Get(), item.name.c_str(), target.data(), target.size())) ==
           static_cast<ssize_t>(target.size())) {
        target.resize(target.size() * 2);
    }
    if (got < 0) {
        Unreadable(text::kSourceDataUnreadable, item, std::strerror(errno));
        return;
    }
    target.resize(static_cast<size_t>(got));
    if (target == member.link) return;
    KTReportLine line = Named(item);
    line.AddString(member.link);
    line.AddString(target);
    Differs(text::kSymlinkDiffers, std::move(line));
}

void EntryComparer::CompareDevice(const CompareItem& item, const ReadMember& member) {
    const std::string backup = DeviceWords(member.major, member.minor);
    const std::string source = DeviceWords(fDisk.stx_rdev_major, fDisk.stx_rdev_minor);
    if (backup != source) {
        DiffersInWords(item, "device different (backup: " + backup + ", source: " + source + ")");
    }
}

void EntryComparer::CompareAttributes(const CompareItem& item, const ReadMember& member) {
    Attributes disk;
    const int problem =
        fRecords.ListEntry(fOpen.Get(), item.name.c_str(), [&](auto name, auto value) {
            disk.emplace(name, value);
            return true;
        });
    if (problem != 0) {
        Unreadable(text::kSourceAttributeUnreadable, item, std::strerror(problem));
        return;
    }
    const auto compare = [&](std::string_view name, std::string_view value) {
        const auto found = disk.find(name);
        if (found == disk.end()) {
            DiffersInWords(item, "attribute '" + std::string(name) + "' is missing in the source");
            return;
        }
        KTReportLine line = Named(item);
        line.AddString(std::string_view(name));
        if (found->second.size() != value.size()) {
            line.AddInt32(static_cast<int32_t>(value.size()));
            line.AddInt32(static_cast<int32_t>(found->second.size()));
            Differs(text::kAttributeSizeDiffers, std::move(line));
        } else if (found->second != value) {
            Differs(text::kAttributeDataDiffers, std::move(line));
        }
        disk.erase(found);
    };
    for (const auto& [name, value] : member.attributes)
        compare(name, value);
    const auto list = [&](const char* name, const std::optional<Bytes>& value) {
        if (value) compare(name, {reinterpret_cast<const char*>(value->data()), value->size()});
    };
    list(kAccessList, member.accessList);
    list(kDefaultList, member.defaultList);
    for (const auto& [name, value] : disk)
        DiffersInWords(item, "attribute '" + name + "' is missing in the backup");
}

// --- data ---------------------------------------------------------------------------------------

void EntryComparer::CompareData(const CompareItem& item, const ReadMember& member) {
    const kit::UniqueFd fd(OpenForReading(fOpen.Get(), item.name.c_str(), 0));
    if (!fd.IsOpen()) {
        Unreadable(text::kSourceDataUnreadable, item, std::strerror(errno));
        return;
    }
    if (!member.sparse) {
        if (member.size != item.entry.size) {
            Unreadable(text::kBackupDataUnreadable, item,
                       "Its size is not what the catalogue has.");
        } else {
            CompareExtent(item, fd.Get(), 0, member.size);
        }
        return;
    }
    int64_t used = 0;
    const auto extents =
        archive::ReadSparseMap([this](auto into) { return fCursor.Read(into); }, member, &used);
    if (!extents) {
        Unreadable(text::kBackupDataUnreadable, item, extents.error().Text());
        return;
    }
    int64_t at = 0;
    for (const archive::Extent& extent : *extents) {
        if (!CompareHole(item, fd.Get(), at, extent.offset) ||
            !CompareExtent(item, fd.Get(), extent.offset, extent.length)) {
            return;
        }
        at = extent.offset + extent.length;
    }
    CompareHole(item, fd.Get(), at, item.entry.size);
}

// Into fBlock, the whole of `size`.
bool EntryComparer::ReadDisk(const CompareItem& item, int fd, int64_t offset, size_t size) {
    if (fBlock.size() < kBlock) fBlock.resize(kBlock);
    for (size_t done = 0; done < size;) {
        const ssize_t got =
            ::pread(fd, fBlock.data() + done, size - done, offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            Unreadable(text::kSourceDataUnreadable, item, std::strerror(errno));
            return false;
        }
        if (got == 0) return DataDiffers(item);  // it became shorter
        done += static_cast<size_t>(got);
    }
    return true;
}

bool EntryComparer::CompareExtent(const CompareItem& item, int fd, int64_t offset, int64_t length) {
    while (length > 0) {
        if (!fControl.MayGoOn()) {
            Worse(Outcome::Aborted);
            return false;
        }
        const auto part =
            fCursor.Take(static_cast<size_t>(std::min<int64_t>(length, int64_t{kBlock})));
        if (!part) {
            Unreadable(text::kBackupDataUnreadable, item, part.error().Text());
            return false;
        }
        if (!ReadDisk(item, fd, offset, part->size())) return false;
        if (std::memcmp(part->data(), fBlock.data(), part->size()) != 0) return DataDiffers(item);
        const auto done = static_cast<int64_t>(part->size());
        offset += done;
        length -= done;
        if (item.entry.link == 0) {
            fTold += done;
            fReport.AddDone(0, done);
        }
        fReport.Tick(item.path);
    }
    return true;
}

// Zeros in the backup; the disk may have them written out.
bool EntryComparer::CompareHole(const CompareItem& item, int fd, int64_t offset, int64_t end) {
    while (offset < end) {
        if (!fControl.MayGoOn()) {
            Worse(Outcome::Aborted);
            return false;
        }
        const off_t data = ::lseek(fd, offset, SEEK_DATA);
        if (data < 0 && errno == ENXIO) return true;
        if (data > offset) offset = data;
        if (offset >= end) return true;
        const auto size = static_cast<size_t>(std::min<int64_t>(end - offset, int64_t{kBlock}));
        if (!ReadDisk(item, fd, offset, size)) return false;
        if (std::any_of(fBlock.begin(), fBlock.begin() + static_cast<std::ptrdiff_t>(size),
                        [](uint8_t byte) { return byte != 0; })) {
            return DataDiffers(item);
        }
        offset += static_cast<int64_t>(size);
    }
    return true;
}

}  // namespace server

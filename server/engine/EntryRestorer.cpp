#include "server/engine/EntryRestorer.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/protocol/Texts.h"
#include "server/engine/MemberHeader.h"

namespace server {

using archive::ReadMember;
using archive::TarType;
using core::LineType;
namespace text = core::text;

namespace {

constexpr size_t kBlock = size_t{1} << 20;
constexpr int kMostRenames = 10'000;

bool IsFull(int code) {
    return code == ENOSPC || code == EDQUOT || code == EFBIG;
}

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

KTReportLine Named(const std::string& path, int64_t number) {
    KTReportLine line;
    line.AddString(path);
    line.AddInt32(static_cast<int32_t>(number));
    return line;
}

}  // namespace

WayIs ClearTheWay(int directory, const std::string& name, const std::string& shown,
                  Overwrite overwrite, int64_t modified, JobReport& report) {
    struct stat there;
    if (::fstatat(directory, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) return WayIs::Free;
    const bool isLink = S_ISLNK(there.st_mode);
    switch (overwrite) {
        case Overwrite::No:
            return WayIs::Kept;
        case Overwrite::OnlyOlder:
            if (Nanoseconds(there.st_mtim) >= modified) return WayIs::Kept;
            break;
        case Overwrite::Rename:
            for (int i = 1; i <= kMostRenames; ++i) {
                const std::string other = name + "." + std::to_string(i);
                if (::renameat2(directory, name.c_str(), directory, other.c_str(),
                                RENAME_NOREPLACE) == 0) {
                    report.Words(LineType::Detail,
                                 shown + ": what was there is '" + other + "' now");
                    return WayIs::Free;
                }
                if (errno != EEXIST) break;
            }
            report.Error(isLink ? text::kExistingSymlinkNotRenamed : text::kExistingFileNotRenamed,
                         {shown}, std::strerror(errno));
            return WayIs::Blocked;
        case Overwrite::Yes:
            break;
    }
    if (!S_ISDIR(there.st_mode)) return WayIs::Free;  // a rename replaces it
    // Never what is in it.
    if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0) return WayIs::Free;
    report.Error(text::kFileNotOverwritten, {shown}, "A directory of that name is in the way.");
    return WayIs::Blocked;
}

EntryRestorer::EntryRestorer(const BackupContent& content, CatalogueReader& catalogue,
                             JobReport& report, JobControl& control, RestoreLosses& losses,
                             Overwrite overwrite)
    : fCursor(content, catalogue),
      fReport(report),
      fControl(control),
      fMetadata(report, losses),
      fOverwrite(overwrite) {}

kit::Result<ReadMember> EntryRestorer::ReadHeader(const CatalogueEntry& entry, int64_t frame,
                                                  int64_t offset) {
    return ReadMemberAt(fCursor, entry.mode, frame, offset);
}

EntryRestorer::Outcome EntryRestorer::Unreadable(const RestoreItem& item, const kit::Error& error) {
    if (error.kind == kit::ErrorKind::Aborted) return Outcome::Aborted;
    const bool isLink = S_ISLNK(item.entry.mode);
    KTReportLine line;
    line.AddString(item.path);
    if (!isLink) line.AddInt32(static_cast<int32_t>(item.entry.frame));
    fReport.Line(LineType::Error, isLink ? text::kSymlinkUnreadable : text::kFileDataUnreadable,
                 std::move(line));
    fReport.Words(LineType::Detail, error.Text());
    return Outcome::Failed;
}

EntryRestorer::Outcome EntryRestorer::Refused(const RestoreItem& item, int code) {
    if (IsFull(code)) return Outcome::TargetFull;
    fReport.Line(LineType::Error,
                 S_ISLNK(item.entry.mode) ? text::kSymlinkNotCreated : text::kFileNotCreated,
                 Named(item.target->PathOf(item.directory) + "/" + item.name, code));
    fReport.Words(LineType::Detail, std::strerror(code));
    return Outcome::Failed;
}

bool EntryRestorer::EnterDirectory(const RestoreItem& item) {
    if (fOpen.IsOpen() && fTarget == item.target && fDirectory == item.directory) return true;
    fOpen.Reset();
    auto directory = item.target->OpenDirectory(item.directory);
    if (!directory) {
        Refused(item, directory.error().code);
        return false;
    }
    if (fTarget != item.target) fCanBeNameless = true;
    fOpen = std::move(*directory);
    fTarget = item.target;
    fDirectory = item.directory;
    fInherits = ::fgetxattr(fOpen.Get(), "system.posix_acl_default", nullptr, 0) > 0;
    return true;
}

EntryRestorer::Outcome EntryRestorer::Restore(const RestoreItem& item) {
    if (!EnterDirectory(item)) return Outcome::Failed;
    // Looked at before anything is read: what stays as it is costs nothing.
    switch (
        ClearTheWay(fOpen.Get(), item.name, item.path, fOverwrite, item.entry.modified, fReport)) {
        case WayIs::Free:
            break;
        case WayIs::Kept:
            return Outcome::Kept;
        case WayIs::Blocked:
            return Outcome::Failed;
    }
    auto member = ReadHeader(item.entry, item.entry.frame, item.entry.offset);
    if (!member) return Unreadable(item, member.error());
    if (item.entry.link == 0 && "/" + member->path != item.path) {
        fReport.Line(LineType::Error, text::kFileDataMismatch, Named(item.path, item.entry.frame));
        return Outcome::Failed;
    }
    if (member->type == TarType::File) return MakeFile(item, *member);
    return MakeSpecial(item, *member);
}

std::string EntryRestorer::TemporaryName() {
    uint64_t number = ++fTemporaries;
    // Nobody can wait for it under a name that he knows.
    uint64_t random = 0;
    [[maybe_unused]] const ssize_t got = ::getrandom(&random, sizeof(random), 0);
    char name[64];
    std::snprintf(name, sizeof(name), ".restore-%016llx-%llu",
                  static_cast<unsigned long long>(random), static_cast<unsigned long long>(number));
    return name;
}

EntryRestorer::Outcome EntryRestorer::MakeFile(const RestoreItem& item, const ReadMember& member) {
    kit::UniqueFd fd;
    std::string temporary;
    if (fCanBeNameless) {
        fd = kit::UniqueFd(::openat(fOpen.Get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
        if (!fd.IsOpen()) {
            if (IsFull(errno)) return Outcome::TargetFull;
            fCanBeNameless = false;
        }
    }
    if (!fd.IsOpen()) {
        temporary = TemporaryName();
        fd = kit::UniqueFd(::openat(fOpen.Get(), temporary.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd.IsOpen()) return Refused(item, errno);
    }
    Outcome outcome = Fill(item, member, fd.Get());
    if (outcome == Outcome::Done) {
        if (fInherits && !member.accessList) {
            ::fremovexattr(fd.Get(), "system.posix_acl_access");
        }
        fMetadata.Apply(fd.Get(), member, item.path);
        outcome = Publish(item, fd.Get(), temporary);
    }
    if (outcome != Outcome::Done && !temporary.empty()) {
        ::unlinkat(fOpen.Get(), temporary.c_str(), 0);
    }
    return outcome;
}

EntryRestorer::Outcome EntryRestorer::Fill(const RestoreItem& item, const ReadMember& member,
                                           int fd) {
    if (!member.sparse) return CopyTo(item, fd, 0, member.size);
    int64_t used = 0;
    const auto extents =
        archive::ReadSparseMap([this](auto into) { return fCursor.Read(into); }, member, &used);
    if (!extents) return Unreadable(item, extents.error());
    if (::ftruncate(fd, member.realSize) != 0) return Refused(item, errno);
    int64_t told = 0;
    for (const archive::Extent& extent : *extents) {
        const Outcome outcome = CopyTo(item, fd, extent.offset, extent.length);
        if (outcome != Outcome::Done) return outcome;
        told += extent.length;
    }
    fReport.AddDone(0, member.realSize - told);
    return Outcome::Done;
}

EntryRestorer::Outcome EntryRestorer::CopyTo(const RestoreItem& item, int fd, int64_t offset,
                                             int64_t length) {
    while (length > 0) {
        if (!fControl.MayGoOn()) return Outcome::Aborted;
        const auto part =
            fCursor.Take(static_cast<size_t>(std::min<int64_t>(length, int64_t{kBlock})));
        if (!part) return Unreadable(item, part.error());
        std::span<const uint8_t> left = *part;
        while (!left.empty()) {
            const ssize_t written = ::pwrite(fd, left.data(), left.size(), offset);
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) return Refused(item, errno);
            left = left.subspan(static_cast<size_t>(written));
            offset += written;
        }
        length -= static_cast<int64_t>(part->size());
        fReport.AddDone(0, static_cast<int64_t>(part->size()));
        fReport.Tick(item.path);
    }
    return Outcome::Done;
}

EntryRestorer::Outcome EntryRestorer::Publish(const RestoreItem& item, int fd,
                                              const std::string& temporary) {
    const char* const name = item.name.c_str();
    if (temporary.empty()) {
        const std::string through = "/proc/self/fd/" + std::to_string(fd);
        if (::linkat(AT_FDCWD, through.c_str(), fOpen.Get(), name, AT_SYMLINK_FOLLOW) == 0) {
            return Outcome::Done;
        }
        if (errno != EEXIST) return Refused(item, errno);
        // Only a rename replaces what is there.
        const std::string other = TemporaryName();
        if (::linkat(AT_FDCWD, through.c_str(), fOpen.Get(), other.c_str(), AT_SYMLINK_FOLLOW) !=
            0) {
            return Refused(item, errno);
        }
        const Outcome outcome = Publish(item, fd, other);
        if (outcome != Outcome::Done) ::unlinkat(fOpen.Get(), other.c_str(), 0);
        return outcome;
    }
    // What came meanwhile is only replaced where that is wanted.
    const unsigned flags =
        fOverwrite == Overwrite::Yes || fOverwrite == Overwrite::OnlyOlder ? 0 : RENAME_NOREPLACE;
    if (::renameat2(fOpen.Get(), temporary.c_str(), fOpen.Get(), name, flags) == 0) {
        return Outcome::Done;
    }
    // A file system that cannot promise not to replace: looked at just before.
    if (flags != 0 && errno == EINVAL &&
        ::renameat(fOpen.Get(), temporary.c_str(), fOpen.Get(), name) == 0) {
        return Outcome::Done;
    }
    const int code = errno;
    if (IsFull(code)) return Outcome::TargetFull;
    fReport.Error(S_ISLNK(item.entry.mode) ? text::kRenameFailedSymlink : text::kRenameFailedFile,
                  {item.target->PathOf(item.directory) + "/" + item.name}, std::strerror(code));
    return Outcome::Failed;
}

EntryRestorer::Outcome EntryRestorer::MakeSpecial(const RestoreItem& item,
                                                  const ReadMember& member) {
    const std::string temporary = TemporaryName();
    int made = -1;
    switch (member.type) {
        case TarType::SymbolicLink:
            made = ::symlinkat(member.link.c_str(), fOpen.Get(), temporary.c_str());
            break;
        case TarType::Fifo:
            made = ::mkfifoat(fOpen.Get(), temporary.c_str(), 0600);
            break;
        case TarType::CharacterDevice:
        case TarType::BlockDevice:
            made = ::mknodat(fOpen.Get(), temporary.c_str(),
                             (member.type == TarType::BlockDevice ? S_IFBLK : S_IFCHR) | 0600U,
                             ::makedev(member.major, member.minor));
            break;
        default:
            fReport.Line(LineType::Error, text::kFileDataMismatch,
                         Named(item.path, item.entry.frame));
            return Outcome::Failed;
    }
    if (made != 0) return Refused(item, errno);
    fMetadata.ApplyTo(fOpen.Get(), temporary.c_str(), member, item.path);
    const Outcome outcome = Publish(item, -1, temporary);
    if (outcome != Outcome::Done) ::unlinkat(fOpen.Get(), temporary.c_str(), 0);
    return outcome;
}

EntryRestorer::Outcome EntryRestorer::Link(const RestoreItem& item, const RestoreItem& first) {
    if (!EnterDirectory(item)) return Outcome::Failed;
    switch (
        ClearTheWay(fOpen.Get(), item.name, item.path, fOverwrite, item.entry.modified, fReport)) {
        case WayIs::Free:
            break;
        case WayIs::Kept:
            return Outcome::Kept;
        case WayIs::Blocked:
            return Outcome::Kept;  // told already; its content would be in the way as well
    }
    const auto other = first.target->OpenDirectory(first.directory);
    if (!other) return Outcome::Failed;
    const std::string temporary = TemporaryName();
    if (::linkat(other->Get(), first.name.c_str(), fOpen.Get(), temporary.c_str(), 0) != 0) {
        return Outcome::Failed;
    }
    const Outcome outcome = Publish(item, -1, temporary);
    // A rename between two names of one file does nothing at all.
    ::unlinkat(fOpen.Get(), temporary.c_str(), 0);
    return outcome;
}

}  // namespace server

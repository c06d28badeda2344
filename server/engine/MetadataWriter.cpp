#include "server/engine/MetadataWriter.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include "server/engine/NodeRecords.h"

namespace server {

using archive::ReadMember;
using archive::TarType;

struct MetadataWriter::Calls {
    std::function<int(uid_t, gid_t)> own;
    std::function<int(mode_t)> allow;
    std::function<int(const char*, std::string_view)> set;
    std::function<int(const timespec*)> date;
};

namespace {

template <class Id, class Lookup, class Record>
Id IdOf(std::map<std::string, std::optional<Id>>& known, const std::string& name, Id number,
        const Lookup& lookup, Id Record::*member) {
    if (name.empty()) return number;
    const auto found = known.find(name);
    if (found != known.end()) return found->second.value_or(number);
    std::vector<char> buffer(16384);
    Record record;
    Record* answer = nullptr;
    lookup(name.c_str(), &record, buffer.data(), buffer.size(), &answer);
    // A number is each entry's own; what is remembered of such a name is that it means nobody.
    const auto id = answer ? std::optional<Id>(answer->*member) : std::nullopt;
    return known.emplace(name, id).first->second.value_or(number);
}

std::string_view TextOf(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

MetadataWriter::MetadataWriter(JobReport& report, RestoreLosses& losses)
    : fReport(report), fLosses(losses), fMe(::geteuid()) {}

uid_t MetadataWriter::UserOf(const ReadMember& member) {
    return IdOf(fUsers, member.owner, uid_t{member.uid}, ::getpwnam_r, &passwd::pw_uid);
}

gid_t MetadataWriter::GroupOf(const ReadMember& member) {
    return IdOf(fGroups, member.group, gid_t{member.gid}, ::getgrnam_r, &group::gr_gid);
}

void MetadataWriter::Lost(std::atomic<int64_t>& count, const std::string& path,
                          const std::string& what) {
    const int code = errno;
    ++count;
    fReport.Words(core::LineType::Detail,
                  path + ": " + what + " could not be restored (" + std::strerror(code) + ")");
}

void MetadataWriter::Apply(int fd, const ReadMember& member, const std::string& path) {
    Apply({[fd](uid_t user, gid_t group) { return ::fchown(fd, user, group); },
           [fd](mode_t mode) { return ::fchmod(fd, mode); },
           [fd](const char* name, std::string_view value) {
               return ::fsetxattr(fd, name, value.data(), value.size(), 0);
           },
           [fd](const timespec* times) { return ::futimens(fd, times); }},
          member, path);
}

void MetadataWriter::ApplyTo(int directory, const char* name, const ReadMember& member,
                             const std::string& path) {
    const bool isLink = member.type == TarType::SymbolicLink;
    // The calls for attributes take paths only; this one is short, whatever the entry's own is.
    const std::string through = ThroughProc(directory, name);
    Apply({[=](uid_t user, gid_t group) {
               return ::fchownat(directory, name, user, group, AT_SYMLINK_NOFOLLOW);
           },
           [=](mode_t mode) { return isLink ? 0 : ::fchmodat(directory, name, mode, 0); },
           [&](const char* attribute, std::string_view value) {
               return ::lsetxattr(through.c_str(), attribute, value.data(), value.size(), 0);
           },
           [=](const timespec* times) {
               return ::utimensat(directory, name, times, AT_SYMLINK_NOFOLLOW);
           }},
          member, path);
}

void MetadataWriter::Apply(const Calls& calls, const ReadMember& member, const std::string& path) {
    const uid_t user = UserOf(member);
    bool owned = true;
    if (calls.own(user, GroupOf(member)) != 0) {
        // A plain user may still hand it to a group that he is in.
        owned = user == fMe;
        Lost(fLosses.owners, path, "the owner");
        if (calls.own(static_cast<uid_t>(-1), GroupOf(member)) == 0) errno = 0;
    }
    // Before the rights: who may not write to it may not give it attributes either. After the
    // owner: a change of that takes capabilities away.
    for (const auto& [name, value] : member.attributes) {
        if (calls.set(name.c_str(), value) != 0)
            Lost(fLosses.attributes, path, "the attribute '" + name + "'");
    }
    uint32_t mode = member.mode;
    if ((mode & (S_ISUID | S_ISGID)) != 0 && !owned && member.type != TarType::Directory) {
        mode &= ~static_cast<uint32_t>(S_ISUID | S_ISGID);
        errno = EPERM;
        Lost(fLosses.rights, path, "the right to run as its owner");
    }
    if (calls.allow(mode) != 0) Lost(fLosses.rights, path, "the rights");
    if (member.accessList && calls.set(kAccessList, TextOf(*member.accessList)) != 0)
        Lost(fLosses.rights, path, "the access list");
    if (member.defaultList && calls.set(kDefaultList, TextOf(*member.defaultList)) != 0)
        Lost(fLosses.rights, path, "the default access list");
    timespec times[2] = {{0, UTIME_OMIT}, {}};
    times[1].tv_sec = static_cast<time_t>(member.seconds);
    times[1].tv_nsec = member.nanoseconds;
    if (calls.date(times) != 0) Lost(fLosses.times, path, "the time");
}

}  // namespace server

#include "server/engine/NodeRecords.h"

#include <grp.h>
#include <pwd.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace server {

namespace {

constexpr size_t kFirstNames = 4096, kFirstValue = 4096;
constexpr size_t kMostNames = size_t{1} << 20, kMostValue = size_t{1} << 20;

// Calls `read(buffer, size)`, with more room as long as it does not suffice. -1 and errno on
// failure.
template <class Read>
ssize_t WithRoom(std::vector<char>& buffer, size_t first, size_t most, const Read& read) {
    if (buffer.size() < first) buffer.resize(first);
    for (;;) {
        const ssize_t got = read(buffer.data(), buffer.size());
        if (got >= 0 || errno != ERANGE || buffer.size() >= most) return got;
        buffer.resize(buffer.size() * 4);
    }
}

bool IsUnsupported(int code) {
    return code == ENOTSUP || code == ENOSYS;
}

struct RecordsSink {
    archive::PaxRecords& records;

    bool operator()(std::string_view name, std::string_view value) const {
        const std::span bytes(reinterpret_cast<const uint8_t*>(value.data()), value.size());
        if (name == kAccessList) return records.AddAccessList("SCHILY.acl.access", bytes);
        if (name == kDefaultList) return records.AddAccessList("SCHILY.acl.default", bytes);
        records.AddAttribute(name, value);
        return true;
    }
};

template <class Lookup, class Record>
std::string NameOf(uint32_t id, const Lookup& lookup, char* Record::*member) {
    std::vector<char> buffer(4096);
    Record record;
    Record* found = nullptr;
    while (lookup(id, &record, buffer.data(), buffer.size(), &found) == ERANGE &&
           buffer.size() < kMostValue) {
        buffer.resize(buffer.size() * 2);
    }
    return found ? found->*member : "";
}

}  // namespace

std::string ThroughProc(int parent, const char* name) {
    return "/proc/self/fd/" + std::to_string(parent) + "/" + name;
}

template <class List, class Get>
int NodeRecords::Read(const List& list, const Get& get, const Sink& sink) {
    const ssize_t size = WithRoom(fNames, kFirstNames, kMostNames, list);
    if (size < 0) return IsUnsupported(errno) ? 0 : errno;
    int problem = 0;
    for (const char* name = fNames.data(); name < fNames.data() + size;
         name += std::strlen(name) + 1) {
        const ssize_t got = WithRoom(fValue, kFirstValue, kMostValue, [&](char* into, size_t room) {
            return get(name, into, room);
        });
        if (got < 0) {
            // Gone since it was listed is as good as never there.
            if (errno != ENODATA && !IsUnsupported(errno)) problem = errno;
            continue;
        }
        if (!sink(name, {fValue.data(), static_cast<size_t>(got)})) problem = EINVAL;
    }
    return problem;
}

int NodeRecords::ListEntry(int parent, const char* name, const Sink& sink) {
    const std::string path = ThroughProc(parent, name);
    return Read([&](char* into, size_t room) { return ::llistxattr(path.c_str(), into, room); },
                [&](const char* attribute, char* into, size_t room) {
                    return ::lgetxattr(path.c_str(), attribute, into, room);
                },
                sink);
}

int NodeRecords::ReadOpen(int fd, archive::PaxRecords& records) {
    return Read([fd](char* into, size_t room) { return ::flistxattr(fd, into, room); },
                [fd](const char* name, char* into, size_t room) {
                    return ::fgetxattr(fd, name, into, room);
                },
                RecordsSink{records});
}

int NodeRecords::ReadEntry(int parent, const char* name, archive::PaxRecords& records) {
    return ListEntry(parent, name, RecordsSink{records});
}

const std::string& NodeRecords::UserName(uint32_t uid) {
    auto found = fUsers.find(uid);
    if (found == fUsers.end()) {
        found = fUsers.emplace(uid, NameOf(uid, ::getpwuid_r, &passwd::pw_name)).first;
    }
    return found->second;
}

const std::string& NodeRecords::GroupName(uint32_t gid) {
    auto found = fGroups.find(gid);
    if (found == fGroups.end()) {
        found = fGroups.emplace(gid, NameOf(gid, ::getgrgid_r, &group::gr_name)).first;
    }
    return found->second;
}

}  // namespace server

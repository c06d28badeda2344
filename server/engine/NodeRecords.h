// Reads what a tar header has no field for: extended attributes, access lists, names of owners.
//
// One thread at a time.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "server/archive/TarMember.h"

namespace server {

// The attributes that hold access lists.
inline constexpr char kAccessList[] = "system.posix_acl_access";
inline constexpr char kDefaultList[] = "system.posix_acl_default";

// An entry's other name, for the calls that take only paths. Short, however long its own is.
std::string ThroughProc(int parent, const char* name);

class NodeRecords {
public:
    // Every attribute of an entry, access lists among them in the kernel's form; false: this one is
    // worth a problem. 0 or an errno: some could not be read.
    using Sink = std::function<bool(std::string_view name, std::string_view value)>;
    int ListEntry(int parent, const char* name, const Sink& sink);

    // Attributes and access lists of an open file or directory, appended to `records`. 0 or an
    // errno: some could not be read.
    int ReadOpen(int fd, archive::PaxRecords& records);
    // The same of an entry that cannot be opened (links, devices, what is unreadable).
    int ReadEntry(int parent, const char* name, archive::PaxRecords& records);

    // "" where the id has no name. Asked of the system once.
    const std::string& UserName(uint32_t uid);
    const std::string& GroupName(uint32_t gid);

private:
    template <class List, class Get>
    int Read(const List& list, const Get& get, const Sink& sink);

    std::vector<char> fNames;
    std::vector<char> fValue;
    std::map<uint32_t, std::string> fUsers, fGroups;
};

}  // namespace server

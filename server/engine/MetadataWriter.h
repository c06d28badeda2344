// Puts back what an entry has besides its content: owner, rights, extended attributes, access
// lists, times. What the target does not take is told and counted; it never stops anything.
//
// One thread each; the losses are shared.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <map>
#include <optional>
#include <string>

#include "server/archive/TarReader.h"
#include "server/engine/JobReport.h"

namespace server {

struct RestoreLosses {
    std::atomic<int64_t> owners = 0, rights = 0, attributes = 0, times = 0;
};

class MetadataWriter {
public:
    MetadataWriter(JobReport& report, RestoreLosses& losses);

    // An open file or directory; times come last, after everything that changes them.
    void Apply(int fd, const archive::ReadMember& member, const std::string& path);
    // What cannot be opened: links, devices, FIFOs.
    void ApplyTo(int directory, const char* name, const archive::ReadMember& member,
                 const std::string& path);

private:
    struct Calls;  // the same steps for an open entry and for a name
    void Apply(const Calls& calls, const archive::ReadMember& member, const std::string& path);
    void Lost(std::atomic<int64_t>& count, const std::string& path, const std::string& what);
    uid_t UserOf(const archive::ReadMember& member);
    gid_t GroupOf(const archive::ReadMember& member);

    JobReport& fReport;
    RestoreLosses& fLosses;
    const uid_t fMe;
    std::map<std::string, std::optional<uid_t>> fUsers;
    std::map<std::string, std::optional<gid_t>> fGroups;
};

}  // namespace server

// Reads back the header of one member as TarMember.h writes it: the ustar block and the extended
// header before it. The bytes may come from a foreign medium: whatever they are, a call gives a
// member or an error.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kit/support/Result.h"
#include "server/archive/TarMember.h"

namespace server::archive {

struct ReadMember {
    TarType type = TarType::File;
    std::string path;  // "System/home/x", bytes, no slash at the end
    std::string link;
    uint32_t mode = 0;  // permission bits
    uint32_t uid = 0, gid = 0;
    std::string owner, group;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    int64_t size = 0;  // bytes that follow, without padding
    uint32_t major = 0, minor = 0;
    bool sparse = false;  // the map leads the data
    int64_t realSize = 0;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::optional<Bytes> accessList, defaultList;  // in the kernel's form
};

// Fills the whole span with the next bytes of the stream, or says why not.
using ReadBytes = std::function<kit::Status(std::span<uint8_t>)>;

// Damaged for what is no member, and for the end mark.
kit::Result<ReadMember> ReadTarHeader(const ReadBytes& read);
// The map of a sparse member: extents in order, within `realSize`. `used` gets the bytes read.
kit::Result<std::vector<Extent>> ReadSparseMap(const ReadBytes& read, const ReadMember& member,
                                               int64_t* used);

}  // namespace server::archive

// The header blocks of one member of a pax tar: a ustar header, and before it an extended header
// for what ustar cannot say. Only what stock GNU tar and libarchive read back the same is written.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kit/message/Types.h"

namespace server::archive {

enum class TarType : char {
    File = '0',
    HardLink = '1',
    SymbolicLink = '2',
    CharacterDevice = '3',
    BlockDevice = '4',
    Directory = '5',
    Fifo = '6',
};

// Ready-made records of an extended header: extended attributes and access lists.
class PaxRecords {
public:
    void Clear() { fBytes.clear(); }
    bool IsEmpty() const { return fBytes.empty(); }
    const Bytes& Data() const { return fBytes; }

    void Add(std::string_view key, std::string_view value);
    // "SCHILY.xattr.NAME", with the characters that a key may not hold escaped as stock tar does.
    void AddAttribute(std::string_view name, std::string_view value);
    // A POSIX access list as the kernel hands it out, in the text form of "SCHILY.acl.*". Ids stay
    // numbers: names might mean others where it is restored. False when it is none.
    bool AddAccessList(std::string_view key, std::span<const uint8_t> kernelForm);

private:
    Bytes fBytes;
};

struct TarMember {
    TarType type = TarType::File;
    std::string_view path;  // "System/home/x", bytes, no slash at either end
    std::string_view link;  // target of a symbolic link, path of a hard link's first name
    uint32_t mode = 0;      // permission bits
    uint32_t uid = 0, gid = 0;
    std::string_view owner, group;  // "" when the ids have no names
    int64_t seconds = 0;            // of the last modification
    uint32_t nanoseconds = 0;
    int64_t size = 0;                   // bytes that follow, the map of a sparse file included
    uint32_t major = 0, minor = 0;      // devices
    const PaxRecords* extra = nullptr;  // further records
    bool sparse = false;                // GNU sparse format 1.0; the map leads the data
    int64_t realSize = 0;               // of a sparse file
};

// Appends the header blocks, a multiple of 512 bytes.
void AppendTarHeader(const TarMember& member, Bytes& out);

// The map that leads the data of a sparse file: (offset, length) of what is not a hole, in order.
struct Extent {
    int64_t offset = 0, length = 0;
    bool operator==(const Extent&) const = default;
};
Bytes SparseMap(std::span<const Extent> extents);

// `size` rounded up to whole blocks.
constexpr int64_t TarPadded(int64_t size) {
    return (size + 511) & ~int64_t{511};
}

}  // namespace server::archive

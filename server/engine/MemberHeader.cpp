#include "server/engine/MemberHeader.h"

#include <sys/stat.h>

namespace server {

using archive::TarType;

namespace {

bool Agree(TarType type, uint32_t mode) {
    switch (type) {
        case TarType::File:
            return S_ISREG(mode);
        case TarType::HardLink:  // of whatever has a further name
            return !S_ISDIR(mode);
        case TarType::SymbolicLink:
            return S_ISLNK(mode);
        case TarType::CharacterDevice:
            return S_ISCHR(mode);
        case TarType::BlockDevice:
            return S_ISBLK(mode);
        case TarType::Directory:
            return S_ISDIR(mode);
        case TarType::Fifo:
            return S_ISFIFO(mode);
    }
    return false;
}

}  // namespace

kit::Result<archive::ReadMember> ReadMemberAt(FrameCursor& cursor, uint32_t mode, int64_t frame,
                                              int64_t offset) {
    if (auto status = cursor.Seek(frame, offset); !status) return status.error();
    auto member = archive::ReadTarHeader([&](auto into) { return cursor.Read(into); });
    if (!member) return member;
    if (!Agree(member->type, mode)) {
        return kit::Error::Make(kit::ErrorKind::Damaged, member->path, "something else lies there");
    }
    return member;
}

}  // namespace server

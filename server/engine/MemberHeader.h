// The header of a member where the catalogue says that it lies.
#pragma once

#include "server/archive/TarReader.h"
#include "server/engine/FrameCursor.h"

namespace server {

// Leaves the cursor where the member's data begins. Damaged where there is none, or one of another
// type than `mode` has.
kit::Result<archive::ReadMember> ReadMemberAt(FrameCursor& cursor, uint32_t mode, int64_t frame,
                                              int64_t offset);

}  // namespace server

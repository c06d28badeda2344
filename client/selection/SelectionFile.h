// Selection files as the lists of volumes, sources and backups read and write them. `request` is
// the answer of a file panel. 0: good; else the failing step (core::HeaderSave, core::HeaderLoad).
#pragma once

#include <cstdint>
#include <string_view>

#include "core/files/HeaderFile.h"
#include "kit/message/BMessage.h"

namespace SelectionFile {

struct Kind {
    std::string_view magic;  // eight characters
    const char* mimeType;
};
// Of what is to be backed up.
inline constexpr Kind kBackup = {core::kSelectionMagic, core::kBackupSelectionType};

// 4 when nothing is selected, with `request` emptied.
int32_t Save(BMessage& request, const BMessage& selection, bool anythingSelected, const Kind& kind);
// `selection` changes only when it is good.
int32_t Load(const BMessage& request, BMessage* selection, const Kind& kind);

}  // namespace SelectionFile

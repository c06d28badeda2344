// Texts of our own beyond the shared table: notices, hints, spoken names, the command line. The
// enum and the table in MoreTexts.cpp are in the same order; language files carry them under
// "kt:more" in this order, so new ones are only ever appended.
#pragma once

#include <array>
#include <cstdint>

#include "core/locale/TextTable.h"

namespace core {

enum MoreText : int32_t {
    kMoreToolComesLater = kFirstMoreText,  // page of a tool that is not built yet
    kMoreLookingForVolumes,                // source list, before the first look is done
    kMoreNoVolumes,                        // and when there are none
    kMoreBeingRead,                        // said of a directory whose rows are on their way
    kMoreEnd
};

inline constexpr int32_t kMoreTextCount = kMoreEnd - kFirstMoreText;
extern const std::array<const char*, kMoreTextCount> kMoreTextTable;

}  // namespace core

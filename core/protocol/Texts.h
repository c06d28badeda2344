// Text ids that code refers to by name. The table itself is core/locale/TextTable.cpp (0 to 327); our own
// additions (from 1000) are core/locale/MoreTexts.cpp. Ids are part of the protocol: never renumbered.
#pragma once

#include <cstdint>

namespace core::text {

inline constexpr int32_t kOk = 0;
inline constexpr int32_t kCancel = 1;
inline constexpr int32_t kLine = 279;  // "%s": words that have no id of their own, English

}  // namespace core::text

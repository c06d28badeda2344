// The built-in English text table (docs/protocol.md: report lines name texts by these ids).
#pragma once

#include <array>
#include <cstdint>

namespace core {

inline constexpr int32_t kTextCount = 328;
extern const std::array<const char*, kTextCount> kTextTable;

// Texts of our own, beyond the shared table: ids from kFirstMoreText on, in the order of the enum
// in core/locale/MoreTexts.h. Language files carry them under "kt:more".
inline constexpr int32_t kFirstMoreText = 1000;

}  // namespace core

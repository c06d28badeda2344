// The formatter behind KTReportLine::Render: a printf format over typed values. Pure; any format
// and any values are harmless.
//
// A conversion takes the next value whatever its type: %s of a number shows the number, a number's
// conversion of a string shows the string, a missing number is 0, a missing string empty.
// Conversions that printf does not have stand in the text as they are, and none writes through a
// pointer. "*" takes no value. Numbers look the same in every locale.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "kit/message/Types.h"

namespace core {

struct RenderValue {
    type_code type = 0;
    std::string_view
        bytes;  // as in the flattened form: integers and reals raw, strings with their NUL
};

// At most `limit` bytes, cut between two characters of UTF-8.
std::string RenderText(std::string_view format, std::span<const RenderValue> values, size_t limit);

// `text` cut to at most `limit` bytes without splitting a character.
std::string_view CutText(std::string_view text, size_t limit);

}  // namespace core

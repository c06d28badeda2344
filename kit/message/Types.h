// The value types that a message field can hold, and their codes on disk and on the wire.
// docs/protocol.md has the byte tables.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using type_code = uint32_t;
using Bytes = std::vector<uint8_t>;

// "KTJA"_code is 0x4B544A41: the first character is the most significant byte.
consteval uint32_t operator""_code(const char* text, size_t length) {
    if (length != 4) throw "a code has four characters";
    uint32_t code = 0;
    for (size_t i = 0; i < 4; ++i)
        code = (code << 8) | static_cast<uint8_t>(text[i]);
    return code;
}

// The four characters of a code, unprintable ones as '?': for people, never for comparing.
std::string CodeText(uint32_t code);

inline constexpr type_code B_BOOL_TYPE = "BOOL"_code;
inline constexpr type_code B_INT8_TYPE = "BYTE"_code;
inline constexpr type_code B_INT16_TYPE = "SHRT"_code;
inline constexpr type_code B_INT32_TYPE = "LONG"_code;
inline constexpr type_code B_INT64_TYPE = "LLNG"_code;
inline constexpr type_code B_FLOAT_TYPE = "FLOT"_code;
inline constexpr type_code B_DOUBLE_TYPE = "DBLE"_code;
inline constexpr type_code B_TIME_TYPE = "TIME"_code;
inline constexpr type_code B_RECT_TYPE = "RECT"_code;
inline constexpr type_code B_RGB_COLOR_TYPE = "RGBC"_code;
inline constexpr type_code B_MESSENGER_TYPE = "MSNG"_code;
inline constexpr type_code B_NODE_REF_TYPE = "NREF"_code;
inline constexpr type_code B_STRING_TYPE = "CSTR"_code;
inline constexpr type_code B_REF_TYPE = "RREF"_code;
inline constexpr type_code B_MESSAGE_TYPE = "MSGG"_code;
inline constexpr type_code B_POINTER_TYPE = "PNTR"_code;

// Seconds since the epoch as the 'TIME' type holds them (good until 2106).
struct BTime {
    uint32_t seconds = 0;
    // Times before 1970 become 0, times after 2106 the last second that fits.
    static BTime FromSeconds(int64_t seconds);
    bool operator==(const BTime&) const = default;
};

struct BRect {
    float left = 0, top = 0, right = 0, bottom = 0;
    float Width() const { return right - left; }
    float Height() const { return bottom - top; }
    bool operator==(const BRect&) const = default;
};

struct rgb_color {
    uint8_t red = 0, green = 0, blue = 0, alpha = 255;
    bool operator==(const rgb_color&) const = default;
};

struct node_ref {
    uint64_t device = 0, node = 0;
    bool operator==(const node_ref&) const = default;
};

// A file by its absolute path: bytes, not text.
struct entry_ref {
    std::string path;
    bool operator==(const entry_ref&) const = default;
};

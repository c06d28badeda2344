#include "core/report/Renderer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace core {

namespace {

constexpr size_t kMaxWidth = 4096;     // columns; far beyond any line
constexpr size_t kMaxPrecision = 512;  // digits
constexpr size_t kRealRoom = 1024;  // a double written out has at most 310 digits before the point

// One "%…" of a format.
struct Conversion {
    bool left = false, plus = false, blank = false, alternative = false, zero = false;
    size_t width = 0;
    bool hasPrecision = false;
    size_t precision = 0;
    int shorts = 0;  // how many "h"
    char kind = '\0';
    size_t length = 0;  // characters in the format, "%" included
};

size_t TakeNumber(std::string_view format, size_t& at, size_t most) {
    size_t number = 0;
    for (; at < format.size() && format[at] >= '0' && format[at] <= '9'; ++at) {
        number = std::min(number * 10 + static_cast<size_t>(format[at] - '0'), most);
    }
    return number;
}

// `format` begins with the "%".
Conversion Parse(std::string_view format) {
    Conversion c;
    size_t at = 1;
    for (; at < format.size(); ++at) {
        const char flag = format[at];
        if (flag == '-') {
            c.left = true;
        } else if (flag == '+') {
            c.plus = true;
        } else if (flag == ' ') {
            c.blank = true;
        } else if (flag == '#') {
            c.alternative = true;
        } else if (flag == '0') {
            c.zero = true;
        } else {
            break;
        }
    }
    if (at < format.size() && format[at] == '*') {
        ++at;
    } else {
        c.width = TakeNumber(format, at, kMaxWidth);
    }
    if (at < format.size() && format[at] == '.') {
        ++at;
        c.hasPrecision = true;
        if (at < format.size() && format[at] == '*') {
            ++at;
            c.hasPrecision = false;
        } else {
            c.precision = TakeNumber(format, at, kMaxPrecision);
        }
    }
    while (at < format.size() && std::strchr("hlLqjzt", format[at])) {
        if (format[at] == 'h') ++c.shorts;
        ++at;
    }
    if (at < format.size()) c.kind = format[at++];
    c.length = at;
    return c;
}

template <class T>
T Raw(std::string_view bytes) {
    T value{};
    if (bytes.size() == sizeof(T)) std::memcpy(&value, bytes.data(), sizeof(T));
    return value;
}

bool IsText(const RenderValue& value) {
    return value.type == B_STRING_TYPE;
}

std::string_view TextOf(const RenderValue& value) {
    return value.bytes.substr(0, value.bytes.find('\0'));
}

// A single in an argument list is its own 32 bits, the low word of the double that a conversion
// reads.
double RealOf(const RenderValue& value);

int64_t IntegerOf(const RenderValue& value) {
    switch (value.type) {
        case B_INT8_TYPE:
            return Raw<int8_t>(value.bytes);
        case B_INT16_TYPE:
            return Raw<int16_t>(value.bytes);
        case B_INT32_TYPE:
        case B_FLOAT_TYPE:
            return Raw<int32_t>(value.bytes);
        case B_INT64_TYPE:
            return Raw<int64_t>(value.bytes);
        case B_DOUBLE_TYPE: {
            constexpr double kEdge = 9223372036854775808.0;  // 2^63
            const double real = RealOf(value);
            if (std::isnan(real)) return 0;
            if (real >= kEdge) return std::numeric_limits<int64_t>::max();
            if (real < -kEdge) return std::numeric_limits<int64_t>::min();
            return static_cast<int64_t>(real);
        }
        default:
            return 0;
    }
}

double RealOf(const RenderValue& value) {
    if (value.type == B_DOUBLE_TYPE) return Raw<double>(value.bytes);
    if (value.type != B_FLOAT_TYPE) return static_cast<double>(IntegerOf(value));
    const uint64_t bits = Raw<uint32_t>(value.bytes);
    double real = 0;
    std::memcpy(&real, &bits, sizeof(real));
    return real;
}

void Pad(std::string& out, const Conversion& c, std::string_view sign, std::string_view digits,
         bool zeroes) {
    const size_t length = sign.size() + digits.size();
    const size_t fill = c.width > length ? c.width - length : 0;
    if (!c.left && !zeroes) out.append(fill, ' ');
    out += sign;
    if (!c.left && zeroes) out.append(fill, '0');
    out += digits;
    if (c.left) out.append(fill, ' ');
}

std::string_view SignOf(const Conversion& c, bool negative) {
    return negative ? "-" : c.plus ? "+" : c.blank ? " " : "";
}

void WriteInteger(std::string& out, const Conversion& c, const RenderValue& value) {
    int64_t number = IntegerOf(value);
    if (c.shorts == 1) number = static_cast<int16_t>(number);
    // "%hhd" has a sign.
    if (c.shorts >= 2) number = static_cast<int8_t>(number);  // NOLINT(bugprone-signed-char-misuse)

    std::string_view sign;
    uint64_t magnitude = 0;
    int base = 10;
    if (c.kind == 'd' || c.kind == 'i') {
        sign = SignOf(c, number < 0);
        magnitude = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
    } else {
        // Unsigned: what the argument's own words hold, so a negative "%x" has eight digits.
        magnitude = static_cast<uint64_t>(number);
        if (value.type != B_INT64_TYPE) magnitude &= 0xFFFFFFFFU;
        if (c.shorts == 1) magnitude &= 0xFFFFU;
        if (c.shorts >= 2) magnitude &= 0xFFU;
        if (c.kind == 'o') base = 8;
        if (c.kind == 'x' || c.kind == 'X') base = 16;
    }

    char buffer[32];
    std::string digits(buffer, std::to_chars(buffer, buffer + sizeof(buffer), magnitude, base).ptr);
    if (c.hasPrecision && c.precision == 0 && magnitude == 0) digits.clear();
    if (c.hasPrecision && digits.size() < c.precision) {
        digits.insert(0, c.precision - digits.size(), '0');
    }
    if (c.alternative && base == 8 && !digits.starts_with('0')) digits.insert(0, 1, '0');
    if (c.alternative && base == 16 && magnitude != 0) sign = "0x";
    std::string prefix(sign);
    if (c.kind == 'X') {
        for (std::string* part : {&digits, &prefix}) {
            std::transform(part->begin(), part->end(), part->begin(), [](char d) {
                return d >= 'a' && d <= 'z' ? static_cast<char>(d - 'a' + 'A') : d;
            });
        }
    }
    Pad(out, c, prefix, digits, c.zero && !c.hasPrecision);
}

void WriteReal(std::string& out, const Conversion& c, const RenderValue& value) {
    const double real = RealOf(value);
    const std::string_view sign = SignOf(c, std::signbit(real));
    const bool upper = c.kind == 'E' || c.kind == 'F' || c.kind == 'G';
    if (!std::isfinite(real)) {
        const std::string_view word =
            std::isnan(real) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
        Pad(out, c, sign, word, false);
        return;
    }
    const char kind = upper ? static_cast<char>(c.kind - 'A' + 'a') : c.kind;
    const auto form = kind == 'e'   ? std::chars_format::scientific
                      : kind == 'f' ? std::chars_format::fixed
                                    : std::chars_format::general;
    const int precision = c.hasPrecision ? static_cast<int>(c.precision) : 6;
    char buffer[kRealRoom];
    const auto end =
        std::to_chars(buffer, buffer + sizeof(buffer), std::fabs(real), form, precision).ptr;
    std::string digits(buffer, end);
    if (upper) std::replace(digits.begin(), digits.end(), 'e', 'E');
    Pad(out, c, sign, digits, c.zero);
}

void WriteText(std::string& out, const Conversion& c, std::string_view text) {
    if (c.hasPrecision) text = text.substr(0, c.precision);
    Pad(out, c, "", text, false);
}

void Write(std::string& out, Conversion c, const RenderValue& value) {
    if (IsText(value)) {
        if (c.kind != 's') c.hasPrecision = false;  // a number's precision is not a text's length
        WriteText(out, c, TextOf(value));
        return;
    }
    if (c.kind == 's') {
        if (value.type == 0) {
            WriteText(out, c, "");
            return;
        }
        c = {.left = c.left, .width = c.width};
        c.kind = value.type == B_DOUBLE_TYPE || value.type == B_FLOAT_TYPE ? 'g' : 'd';
    }
    if (c.kind == 'c') {
        const auto character = static_cast<char>(IntegerOf(value));
        WriteText(out, {.left = c.left, .width = c.width}, {&character, character ? 1U : 0U});
    } else if (std::strchr("diouxX", c.kind)) {
        WriteInteger(out, c, value);
    } else {
        WriteReal(out, c, value);
    }
}

}  // namespace

std::string_view CutText(std::string_view text, size_t limit) {
    if (text.size() <= limit) return text;
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    // A character has at most three continuing bytes; more than that is no text, and cut anywhere.
    size_t end = limit;
    while (end > 0 && limit - end < 3 && continues(text[end]))
        --end;
    return text.substr(0, continues(text[end]) ? limit : end);
}

std::string RenderText(std::string_view format, std::span<const RenderValue> values, size_t limit) {
    static constexpr RenderValue kMissing;
    std::string out;
    size_t next = 0;
    while (!format.empty() && out.size() <= limit) {
        const size_t percent = std::min(format.find('%'), format.size());
        out += format.substr(0, percent);
        format.remove_prefix(percent);
        if (format.empty()) break;
        const Conversion c = Parse(format);
        if (c.kind == '%') {
            out += '%';
        } else if (c.kind != '\0' && std::strchr("diouxXeEfFgGcs", c.kind)) {
            Write(out, c, next < values.size() ? values[next] : kMissing);
            ++next;
        } else {
            out += format.substr(0, c.length);
        }
        format.remove_prefix(c.length);
    }
    return std::string(CutText(out, limit));
}

}  // namespace core

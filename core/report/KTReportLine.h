// KTReportLine: the typed arguments of one line of a report. The wording is elsewhere: a line
// travels as a text id beside this record, and the receiver renders it in the user's language.
//
// The flattened form ('ktrl') is defined in docs/protocol.md. A plain value; reading is bounded by
// the buffer's size.
#pragma once

#include <cstdarg>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/message/BMessage.h"

class KTReportLine {
public:
    static constexpr type_code kTypeCode = "ktrl"_code;
    static constexpr int kMaxWords = 50;  // 32-bit argument words that a line can hold

    KTReportLine() = default;
    // Takes the arguments that `format` asks for (see ParseLine), each of the type it stands for:
    // int for %c %d %x, int32_t for %ld, int64_t for %Ld, double, const char*. `id` is not kept: it
    // travels beside.
    KTReportLine(int32_t id, const char* format, ...);
    KTReportLine(const char* format, va_list arguments);

    // 0, or -1 when the line has no room left.
    int32_t AddInt8(int8_t value);
    int32_t AddInt16(int16_t value);
    int32_t AddInt32(int32_t value);
    int32_t AddInt64(int64_t value);
    int32_t AddFloat(float value);
    int32_t AddDouble(double value);
    int32_t AddString(const char* value);
    int32_t AddString(std::string_view value);

    int32_t Count() const;
    type_code TypeAt(int32_t index) const;  // 0 past the end; a negative index means the first
    // Copies `size` bytes of the value; -1 when there is none or it is longer than `size`. What
    // lies beyond the value is zero.
    int32_t Get(void* buffer, uint32_t size, int32_t index) const;

    bool IsFixedSize() const { return false; }
    type_code TypeCode() const { return kTypeCode; }
    ssize_t FlattenedSize() const;
    int32_t Flatten(void* buffer, ssize_t size) const;
    bool AllowsTypeCode(type_code code) const { return code == kTypeCode; }
    int32_t Unflatten(type_code code, const void* buffer, ssize_t size);

    // The line as a field value of a message, and back.
    bool AddTo(BMessage& message, std::string_view name) const;
    static std::optional<KTReportLine> FindIn(const BMessage& message, std::string_view name,
                                              int32_t index = 0);

    // The text of a format with these arguments: our own bounded formatter over the typed values,
    // so a foreign format or a missing argument is harmless. At most `limit` bytes.
    std::string Render(const char* format, size_t limit = 1023) const;

    // The next conversion of a printf format: its argument's type code through `type` (0: takes
    // none), the position behind it as result; null when there is no further one.
    static const char* ParseLine(const char* format, uint32_t* type);

private:
    struct Value {
        type_code type;
        std::string bytes;  // as they lie in the flattened form, without the three zero bytes
    };
    void Init(const char* format, va_list arguments);
    int32_t AddInternal(type_code type, const void* data, size_t size);

    std::vector<Value> fValues;
    int fWords = 0;
};

#include "core/report/KTReportLine.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "core/report/Renderer.h"

namespace {

// An entry of the flattened form: length, type, value, three zero bytes.
constexpr size_t kEntryHead = 8;
constexpr size_t kEntryTail = 3;
constexpr char kEndMark[4] = {'k', 't', 'e', 'm'};

// Bytes of a value of a fixed type; 0 for strings and unknown types.
size_t FixedSizeOf(type_code type) {
    switch (type) {
        case B_INT8_TYPE:
            return 1;
        case B_INT16_TYPE:
            return 2;
        case B_INT32_TYPE:
        case B_FLOAT_TYPE:
            return 4;
        case B_INT64_TYPE:
        case B_DOUBLE_TYPE:
            return 8;
        default:
            return 0;
    }
}

// 32-bit words that a value takes in an argument list.
int WordsOf(type_code type) {
    switch (type) {
        case B_INT8_TYPE:
        case B_INT16_TYPE:
        case B_INT32_TYPE:
        case B_FLOAT_TYPE:
        case B_STRING_TYPE:
            return 1;
        case B_INT64_TYPE:
        case B_DOUBLE_TYPE:
            return 2;
        default:
            return 0;
    }
}

// A va_list is a pointer here and a structure elsewhere.
template <class List>
bool IsNull(const List& list) {
    if constexpr (std::is_pointer_v<List>) {
        return list == nullptr;
    } else {
        return false;
    }
}

}  // namespace

KTReportLine::KTReportLine(int32_t /*id*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Init(format, arguments);
    va_end(arguments);
}

KTReportLine::KTReportLine(const char* format, va_list arguments) {
    if (!IsNull(arguments)) Init(format, arguments);
}

void KTReportLine::Init(const char* format, va_list arguments) {
    uint32_t type = 0;
    for (const char* next = format; next && (next = ParseLine(next, &type));) {
        int32_t status = 0;
        switch (type) {
            case B_INT8_TYPE:
                status = AddInt8(static_cast<int8_t>(va_arg(arguments, int)));
                break;
            case B_INT16_TYPE:
                status = AddInt16(static_cast<int16_t>(va_arg(arguments, int)));
                break;
            case B_INT32_TYPE:
                status = AddInt32(va_arg(arguments, int32_t));
                break;
            case B_INT64_TYPE:
                status = AddInt64(va_arg(arguments, int64_t));
                break;
            case B_FLOAT_TYPE:
            case B_DOUBLE_TYPE:
                status = AddDouble(va_arg(arguments, double));
                break;
            case B_STRING_TYPE:
                status = AddString(va_arg(arguments, const char*));
                break;
            default:
                break;
        }
        if (status != 0) return;  // no room; what follows would stand for the wrong placeholder
    }
}

int32_t KTReportLine::AddInt8(int8_t value) {
    return AddInternal(B_INT8_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddInt16(int16_t value) {
    return AddInternal(B_INT16_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddInt32(int32_t value) {
    return AddInternal(B_INT32_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddInt64(int64_t value) {
    return AddInternal(B_INT64_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddFloat(float value) {
    return AddInternal(B_FLOAT_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddDouble(double value) {
    return AddInternal(B_DOUBLE_TYPE, &value, sizeof(value));
}
int32_t KTReportLine::AddString(const char* value) {
    return AddString(std::string_view(value ? value : ""));
}
int32_t KTReportLine::AddString(std::string_view value) {
    const std::string terminated(value.substr(0, value.find('\0')));
    return AddInternal(B_STRING_TYPE, terminated.c_str(), terminated.size() + 1);
}

int32_t KTReportLine::AddInternal(type_code type, const void* data, size_t size) {
    const int words = WordsOf(type);
    if (fWords + words > kMaxWords) return -1;
    fValues.push_back({type, std::string(static_cast<const char*>(data), size)});
    fWords += words;
    return 0;
}

int32_t KTReportLine::Count() const {
    return static_cast<int32_t>(fValues.size());
}

type_code KTReportLine::TypeAt(int32_t index) const {
    if (index >= Count()) return 0;
    return fValues.empty() ? 0 : fValues[static_cast<size_t>(std::max(index, 0))].type;
}

int32_t KTReportLine::Get(void* buffer, uint32_t size, int32_t index) const {
    if (fValues.empty() || index >= Count()) return -1;
    const Value& value = fValues[static_cast<size_t>(std::max(index, 0))];
    const size_t length =
        value.type == B_STRING_TYPE ? std::strlen(value.bytes.c_str()) + 1 : value.bytes.size();
    if (size < length) return -1;
    std::memset(buffer, 0, size);
    std::memcpy(buffer, value.bytes.data(), length);
    return 0;
}

// --- flattened form -----------------------------------------------------------------------------

ssize_t KTReportLine::FlattenedSize() const {
    size_t size = sizeof(kEndMark);
    for (const Value& value : fValues)
        size += kEntryHead + value.bytes.size() + kEntryTail;
    return static_cast<ssize_t>(size);
}

int32_t KTReportLine::Flatten(void* buffer, ssize_t size) const {
    constexpr auto kMarkSize = static_cast<ssize_t>(sizeof(kEndMark));
    if (size < kMarkSize) return -1;
    std::string entries;
    for (const Value& value : fValues) {
        const auto length = static_cast<uint32_t>(kEntryHead + value.bytes.size() + kEntryTail);
        entries.append(reinterpret_cast<const char*>(&length), sizeof(length));
        entries.append(reinterpret_cast<const char*>(&value.type), sizeof(value.type));
        entries.append(value.bytes);
        entries.append(kEntryTail, '\0');
    }
    const auto room = static_cast<size_t>(size - kMarkSize);
    const bool fits = entries.size() <= room;
    // In a larger buffer the zeroes behind the last entry end the walk before the mark does.
    entries.resize(room, '\0');
    entries.append(kEndMark, sizeof(kEndMark));
    std::memcpy(buffer, entries.data(), entries.size());
    return fits ? 0 : -1;
}

int32_t KTReportLine::Unflatten(type_code code, const void* buffer, ssize_t size) {
    fValues.clear();
    fWords = 0;
    if (code != kTypeCode) return -1;
    const auto* at = static_cast<const char*>(buffer);
    auto left = static_cast<size_t>(std::max<ssize_t>(size, 0));
    // The end mark, a length of 0, or anything that cannot be an entry ends the line.
    while (left >= kEntryHead + kEntryTail && std::memcmp(at, kEndMark, sizeof(kEndMark)) != 0) {
        uint32_t length = 0;
        uint32_t type = 0;
        std::memcpy(&length, at, sizeof(length));
        std::memcpy(&type, at + sizeof(length), sizeof(type));
        if (length < kEntryHead + kEntryTail || length > left) break;
        const char* value = at + kEntryHead;
        const size_t valueSize = length - kEntryHead - kEntryTail;
        const size_t fixed = FixedSizeOf(type);
        if (fixed > 0 && valueSize != fixed) break;
        if (type == B_STRING_TYPE && (valueSize == 0 || value[valueSize - 1] != '\0')) break;
        if (AddInternal(type, value, valueSize) != 0) break;
        at += length;
        left -= length;
    }
    return 0;
}

bool KTReportLine::AddTo(BMessage& message, std::string_view name) const {
    Bytes flat(static_cast<size_t>(FlattenedSize()));
    return Flatten(flat.data(), static_cast<ssize_t>(flat.size())) == 0 &&
           message.AddData(name, kTypeCode, flat.data(), flat.size());
}

std::optional<KTReportLine> KTReportLine::FindIn(const BMessage& message, std::string_view name,
                                                 int32_t index) {
    const auto data = message.FindData(name, kTypeCode, index);
    if (!data) return std::nullopt;
    KTReportLine line;
    line.Unflatten(kTypeCode, data->data(), static_cast<ssize_t>(data->size()));
    return line;
}

// --- text ---------------------------------------------------------------------------------------

const char* KTReportLine::ParseLine(const char* format, uint32_t* type) {
    *type = 0;
    const char* at = std::strchr(format, '%');
    if (!at) return nullptr;
    ++at;
    const auto isIn = [](char c, const char* set) { return c != '\0' && std::strchr(set, c); };
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };

    if (isIn(*at, "-+ #0")) ++at;  // one flag, no more: what follows it is read as a width
    for (;;) {
        if (*at == '*') {
            ++at;
        } else if (*at == '.') {
            do {
                ++at;
            } while (isDigit(*at));
        } else if (*at >= '1' && *at <= '9') {
            while (isDigit(*at) || *at == '.')
                ++at;
        } else {
            break;
        }
    }
    const char modifier = isIn(*at, "Lhl") ? *at++ : '\0';
    if (isIn(*at, "eEfgG")) {
        *type = modifier == 'L' ? B_DOUBLE_TYPE : B_FLOAT_TYPE;
    } else if (isIn(*at, "dioux") || *at == 'X') {
        *type = modifier == 'l' ? B_INT32_TYPE : modifier == 'L' ? B_INT64_TYPE : B_INT16_TYPE;
    } else if (*at == 'c') {
        *type = B_INT8_TYPE;
    } else if (*at == 's') {
        *type = B_STRING_TYPE;
    }
    return *at == '\0' ? at : at + 1;
}

std::string KTReportLine::Render(const char* format, size_t limit) const {
    std::vector<core::RenderValue> values;
    values.reserve(fValues.size());
    for (const Value& value : fValues)
        values.push_back({value.type, value.bytes});
    return core::RenderText(format ? format : "", values, limit);
}

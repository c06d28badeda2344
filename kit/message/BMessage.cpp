#include "kit/message/BMessage.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

static_assert(std::endian::native == std::endian::little,
              "values are copied as they lie in memory; another byte order needs conversions");

namespace {

constexpr uint8_t kMagic[4] = {'V', 'M', 'S', '1'};
constexpr size_t kHeaderSize = 20;
constexpr size_t kMaxData = std::numeric_limits<uint32_t>::max();

// The size that every value of a known fixed type has; 0 for strings, references, messages and
// unknown types.
uint32_t FixedSizeOf(type_code type) {
    switch (type) {
        case B_BOOL_TYPE:
        case B_INT8_TYPE:
            return 1;
        case B_INT16_TYPE:
            return 2;
        case B_INT32_TYPE:
        case B_FLOAT_TYPE:
        case B_TIME_TYPE:
        case B_RGB_COLOR_TYPE:
            return 4;
        case B_INT64_TYPE:
        case B_DOUBLE_TYPE:
        case B_POINTER_TYPE:
            return 8;
        case B_MESSENGER_TYPE:
            return 12;
        case B_RECT_TYPE:
        case B_NODE_REF_TYPE:
            return 16;
        default:
            return 0;
    }
}

bool IsVaryingKnown(type_code type) {
    return type == B_STRING_TYPE || type == B_REF_TYPE || type == B_MESSAGE_TYPE;
}

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        size_t more = 0;
        uint32_t point = 0;
        uint32_t least = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if ((lead & 0xE0) == 0xC0) {
            more = 1, point = lead & 0x1F, least = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            more = 2, point = lead & 0x0F, least = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            more = 3, point = lead & 0x07, least = 0x10000;
        } else {
            return false;
        }
        if (text.size() - i <= more) return false;
        for (size_t k = 1; k <= more; ++k) {
            const auto next = static_cast<uint8_t>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            point = (point << 6) | (next & 0x3F);
        }
        if (point < least || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return false;
        i += more + 1;
    }
    return true;
}

bool IsGoodName(std::string_view name) {
    return !name.empty() && name.size() <= 255 && name.find('\0') == std::string_view::npos &&
           IsUtf8(name);
}

bool HasNul(const uint8_t* data, size_t size) {
    return size > 0 && std::memchr(data, 0, size) != nullptr;
}

template <class T>
void Put(uint8_t*& at, T value) {
    std::memcpy(at, &value, sizeof(T));
    at += sizeof(T);
}

// Reads on from a buffer; every step says whether the bytes were there.
class Cursor {
public:
    explicit Cursor(std::span<const uint8_t> bytes) : fBytes(bytes) {}
    template <class T>
    bool Take(T* value) {
        if (fBytes.size() < sizeof(T)) return false;
        std::memcpy(value, fBytes.data(), sizeof(T));
        fBytes = fBytes.subspan(sizeof(T));
        return true;
    }
    bool Take(uint64_t size, std::span<const uint8_t>* part) {
        if (fBytes.size() < size) return false;
        *part = fBytes.first(static_cast<size_t>(size));
        fBytes = fBytes.subspan(static_cast<size_t>(size));
        return true;
    }
    size_t Left() const { return fBytes.size(); }

private:
    std::span<const uint8_t> fBytes;
};

// Whether values, back to back, are what their type allows. Nested messages are not looked into.
bool AreSound(type_code type, std::span<const uint8_t> data) {
    switch (type) {
        case B_BOOL_TYPE:
            return std::all_of(data.begin(), data.end(), [](uint8_t value) { return value <= 1; });
        case B_STRING_TYPE:
        case B_REF_TYPE:
            return !HasNul(data.data(), data.size());
        case B_MESSENGER_TYPE:
            for (; data.size() >= sizeof(BMessenger); data = data.subspan(sizeof(BMessenger))) {
                uint32_t zero = 0;
                std::memcpy(&zero, data.data() + 8, 4);
                if (zero != 0) return false;
            }
            return true;
        default:
            return true;
    }
}

// Walks a flattened message, known to be sound, without taking it apart.
bool FlatHoldsPointer(std::span<const uint8_t> bytes) {
    Cursor cursor(bytes);
    std::span<const uint8_t> part;
    uint32_t fields = 0;
    if (!cursor.Take(kHeaderSize - 4, &part) || !cursor.Take(&fields)) return false;
    for (; fields > 0; --fields) {
        type_code type = 0;
        uint8_t nameLength = 0;
        uint32_t count = 0;
        uint32_t each = 0;
        if (!cursor.Take(&type) || !cursor.Take(&nameLength) || !cursor.Take(nameLength, &part) ||
            !cursor.Take(&count) || !cursor.Take(&each)) {
            return false;
        }
        if (type == B_POINTER_TYPE) return true;
        Cursor sizes({});
        if (each == 0) {
            if (!cursor.Take(uint64_t{count} * 4, &part)) return false;
            sizes = Cursor(part);
        }
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t size = each;
            if (each == 0 && !sizes.Take(&size)) return false;
            if (!cursor.Take(size, &part)) return false;
            if (type == B_MESSAGE_TYPE && FlatHoldsPointer(part)) return true;
        }
    }
    return false;
}

}  // namespace

std::string CodeText(uint32_t code) {
    std::string text(4, '?');
    for (int i = 0; i < 4; ++i) {
        const auto c = static_cast<char>(code >> (24 - 8 * i));
        if (c >= 0x20 && c < 0x7F) text[static_cast<size_t>(i)] = c;
    }
    return text;
}

BTime BTime::FromSeconds(int64_t seconds) {
    return {static_cast<uint32_t>(
        std::clamp<int64_t>(seconds, 0, std::numeric_limits<uint32_t>::max()))};
}

// --- one field ----------------------------------------------------------------------------------

std::span<const uint8_t> BMessage::Field::At(uint32_t index) const {
    if (fixedSize > 0) return {data.data() + size_t{index} * fixedSize, fixedSize};
    const uint32_t begin = index == 0 ? 0 : ends[index - 1];
    return {data.data() + begin, ends[index] - begin};
}

void BMessage::Field::Append(std::span<const uint8_t> value) {
    // The value may lie in this very field, which may move when it grows.
    const bool own = value.data() >= data.data() && value.data() < data.data() + data.size();
    const size_t offset = own ? static_cast<size_t>(value.data() - data.data()) : 0;
    const size_t begin = data.size();
    data.resize(begin + value.size());
    if (!value.empty()) {
        std::memmove(data.data() + begin, own ? data.data() + offset : value.data(), value.size());
    }
    if (fixedSize == 0) ends.push_back(static_cast<uint32_t>(data.size()));
    ++count;
}

void BMessage::Field::Replace(uint32_t index, std::span<const uint8_t> value) {
    const size_t begin = static_cast<size_t>(At(index).data() - data.data());
    const size_t former = At(index).size();
    if (value.size() == former) {
        if (former > 0) std::memmove(data.data() + begin, value.data(), former);
        return;
    }
    const Bytes kept(value.begin(), value.end());  // it may lie in this very field
    const auto place = data.begin() + static_cast<ptrdiff_t>(begin);
    data.insert(data.erase(place, place + static_cast<ptrdiff_t>(former)), kept.begin(),
                kept.end());
    for (size_t i = index; i < ends.size(); ++i) {
        ends[i] = static_cast<uint32_t>(ends[i] + kept.size() - former);
    }
}

void BMessage::Field::Erase(uint32_t index) {
    const size_t begin = static_cast<size_t>(At(index).data() - data.data());
    const size_t size = At(index).size();
    data.erase(data.begin() + static_cast<ptrdiff_t>(begin),
               data.begin() + static_cast<ptrdiff_t>(begin + size));
    if (fixedSize == 0) {
        ends.erase(ends.begin() + index);
        for (size_t i = index; i < ends.size(); ++i)
            ends[i] -= static_cast<uint32_t>(size);
    }
    --count;
}

void BMessage::Field::LetValuesVary() {
    const uint32_t each = std::exchange(fixedSize, 0);
    ends.resize(count);
    for (uint32_t i = 0; i < count; ++i)
        ends[i] = each * (i + 1);
}

// --- values -------------------------------------------------------------------------------------

BMessage& BMessage::operator=(const BMessage& other) {
    if (this != &other) {
        what = other.what;
        fFields = other.fFields;
    }
    return *this;
}

BMessage& BMessage::operator=(BMessage&& other) noexcept {
    if (this != &other) {
        SetDelivery(std::move(other.fDelivery));
        what = other.what;
        fFields = std::move(other.fFields);
    }
    return *this;
}

BMessage::~BMessage() {
    SetDelivery(nullptr);
}

const BMessage::Field* BMessage::FindField(std::string_view name) const {
    for (const Field& field : fFields) {
        if (field.name == name) return &field;
    }
    return nullptr;
}

BMessage::Field* BMessage::FindField(std::string_view name) {
    return const_cast<Field*>(std::as_const(*this).FindField(name));
}

BMessage::Field* BMessage::FieldForAdding(std::string_view name, type_code type,
                                          uint32_t fixedSize) {
    if (Field* field = FindField(name)) {
        if (field->type != type) return nullptr;
        // Only values of unknown types may come in both ways.
        if (field->fixedSize != fixedSize && field->fixedSize != 0) field->LetValuesVary();
        return field;
    }
    if (!IsGoodName(name)) return nullptr;
    Field& field = fFields.emplace_back();
    field.name = name;
    field.type = type;
    field.fixedSize = fixedSize;
    return &field;
}

// Adds, or with an index that is there replaces. The value is known to be sound.
bool BMessage::StoreData(std::string_view name, type_code type, const void* data, size_t size,
                         uint32_t fixedSize, int32_t index) {
    const uint32_t own = FixedSizeOf(type);
    if (own > 0 || IsVaryingKnown(type)) fixedSize = own;
    if (fixedSize > 0 && size != fixedSize) return false;
    const std::span<const uint8_t> value(static_cast<const uint8_t*>(data), size);
    Field* field = FindField(name);
    if (size > kMaxData - (field ? field->data.size() : 0)) return false;
    if (field && index >= 0 && static_cast<uint32_t>(index) < field->count) {
        if (field->type != type) return false;
        if (field->fixedSize > 0 && size != field->fixedSize) field->LetValuesVary();
        field->Replace(static_cast<uint32_t>(index), value);
        return true;
    }
    field = FieldForAdding(name, type, fixedSize);
    if (!field) return false;
    field->Append(value);
    return true;
}

bool BMessage::AddData(std::string_view name, type_code type, const void* data, size_t size,
                       uint32_t fixedSize) {
    return SetData(name, type, data, size, fixedSize, -1);
}

bool BMessage::SetData(std::string_view name, type_code type, const void* data, size_t size,
                       uint32_t fixedSize, int32_t index) {
    return IsSoundValue(type, {static_cast<const uint8_t*>(data), size}) &&
           StoreData(name, type, data, size, fixedSize, index);
}

bool BMessage::StoreMessage(std::string_view name, const BMessage& value, int32_t index) {
    const Bytes flat = value.Flatten();
    // Only what is itself nested can be nested too deep.
    if (value.HoldsMessage() && !Parse(flat, 2, nullptr)) return false;
    return StoreData(name, B_MESSAGE_TYPE, flat.data(), flat.size(), 0, index);
}

bool BMessage::AddArrayData(std::string_view name, type_code type, std::span<const uint8_t> values,
                            uint32_t fixedSize) {
    if (values.empty()) return true;
    const Field* former = FindField(name);
    if (values.size() > kMaxData - (former ? former->data.size() : 0)) return false;
    Field* field = FieldForAdding(name, type, fixedSize);
    if (!field) return false;
    field->data.insert(field->data.end(), values.begin(), values.end());
    field->count += static_cast<uint32_t>(values.size() / fixedSize);
    return true;
}

std::optional<std::span<const uint8_t>> BMessage::FindData(std::string_view name, type_code type,
                                                           int32_t index) const {
    const Field* field = FindField(name);
    if (!field || field->type != type || index < 0 ||
        static_cast<uint32_t>(index) >= field->count) {
        return std::nullopt;
    }
    return field->At(static_cast<uint32_t>(index));
}

std::optional<std::string_view> BMessage::FindString(std::string_view name, int32_t index) const {
    auto data = FindData(name, B_STRING_TYPE, index);
    if (!data) data = FindData(name, B_REF_TYPE, index);
    if (!data) return std::nullopt;
    return std::string_view(reinterpret_cast<const char*>(data->data()), data->size());
}

bool BMessage::Remove(std::string_view name) {
    // By place: `name` may be a view of the very name that goes.
    const Field* field = FindField(name);
    if (!field) return false;
    fFields.erase(fFields.begin() + (field - fFields.data()));
    return true;
}

bool BMessage::RemoveAt(std::string_view name, int32_t index) {
    Field* field = FindField(name);
    if (!field || index < 0 || static_cast<uint32_t>(index) >= field->count) return false;
    if (field->count == 1) return Remove(name);
    field->Erase(static_cast<uint32_t>(index));
    return true;
}

int32_t BMessage::Count(std::string_view name) const {
    const Field* field = FindField(name);
    return field ? static_cast<int32_t>(field->count) : 0;
}

int32_t BMessage::Count(std::string_view name, type_code type) const {
    const Field* field = FindField(name);
    return field && field->type == type ? static_cast<int32_t>(field->count) : 0;
}

type_code BMessage::TypeOf(std::string_view name) const {
    const Field* field = FindField(name);
    return field ? field->type : 0;
}

std::string_view BMessage::FieldName(int32_t index) const {
    if (index < 0 || index >= CountFields()) return {};
    return fFields[static_cast<size_t>(index)].name;
}

bool BMessage::operator==(const BMessage& other) const {
    return what == other.what && fFields == other.fFields;
}

// --- flattened form -----------------------------------------------------------------------------

size_t BMessage::FlattenedSize() const {
    size_t size = kHeaderSize;
    for (const Field& field : fFields) {
        size += 4 + 1 + field.name.size() + 4 + 4 + field.ends.size() * 4 + field.data.size();
    }
    return size;
}

Bytes BMessage::Flatten() const {
    Bytes out;
    FlattenTo(out);
    return out;
}

void BMessage::FlattenTo(Bytes& out) const {
    const size_t size = FlattenedSize();
    const size_t start = out.size();
    out.resize(start + size);
    uint8_t* at = out.data() + start;
    std::memcpy(at, kMagic, sizeof kMagic);
    at += sizeof kMagic;
    Put<uint32_t>(at, what);
    Put<uint64_t>(at, size);
    Put<uint32_t>(at, static_cast<uint32_t>(fFields.size()));
    for (const Field& field : fFields) {
        Put<uint32_t>(at, field.type);
        Put<uint8_t>(at, static_cast<uint8_t>(field.name.size()));
        std::memcpy(at, field.name.data(), field.name.size());
        at += field.name.size();
        Put<uint32_t>(at, field.count);
        Put<uint32_t>(at, field.fixedSize);
        uint32_t begin = 0;
        for (const uint32_t end : field.ends) {
            Put<uint32_t>(at, end - begin);
            begin = end;
        }
        if (!field.data.empty()) std::memcpy(at, field.data.data(), field.data.size());
        at += field.data.size();
    }
}

std::optional<BMessage> BMessage::Unflatten(std::span<const uint8_t> bytes) {
    std::optional<BMessage> message(std::in_place);
    if (!Parse(bytes, 1, &*message)) return std::nullopt;
    return message;
}

// Checks a flattened message and, where `into` is given, builds it. Nested messages are only
// checked: they stay flattened until somebody asks for them.
bool BMessage::Parse(std::span<const uint8_t> bytes, int depth, BMessage* into) {
    if (depth > kMaxDepth || bytes.size() > kMaxData) return false;
    Cursor cursor(bytes);
    uint8_t magic[4];
    uint32_t code = 0;
    uint64_t size = 0;
    uint32_t fieldCount = 0;
    if (!cursor.Take(&magic) || std::memcmp(magic, kMagic, sizeof kMagic) != 0) return false;
    if (!cursor.Take(&code) || !cursor.Take(&size) || size != bytes.size()) return false;
    if (!cursor.Take(&fieldCount)) return false;
    constexpr size_t kLeastField = 4 + 1 + 1 + 4 + 4;
    if (fieldCount > cursor.Left() / kLeastField) return false;

    std::vector<Field> fields;
    fields.reserve(std::min<uint32_t>(fieldCount, 64));
    std::vector<std::string_view> names;
    for (uint32_t i = 0; i < fieldCount; ++i) {
        Field field;
        uint8_t nameLength = 0;
        std::span<const uint8_t> part;
        if (!cursor.Take(&field.type) || !cursor.Take(&nameLength) ||
            !cursor.Take(nameLength, &part)) {
            return false;
        }
        const std::string_view name(reinterpret_cast<const char*>(part.data()), part.size());
        if (!IsGoodName(name)) return false;
        names.push_back(name);
        field.name = name;
        if (!cursor.Take(&field.count) || !cursor.Take(&field.fixedSize) || field.count == 0) {
            return false;
        }
        const uint32_t own = FixedSizeOf(field.type);
        if (own > 0 && field.fixedSize != own) return false;
        uint64_t total = uint64_t{field.count} * field.fixedSize;
        if (field.fixedSize == 0) {
            if (!cursor.Take(uint64_t{field.count} * 4, &part)) return false;
            field.ends.resize(field.count);
            std::memcpy(field.ends.data(), part.data(), part.size());
            for (uint32_t& end : field.ends) {
                total += end;
                if (total > cursor.Left()) return false;
                end = static_cast<uint32_t>(total);
            }
        }
        if (!cursor.Take(total, &part)) return false;
        if (field.fixedSize > 0 && IsVaryingKnown(field.type)) {
            // The compact way to write values that happen to have one size; kept as varying ones.
            field.LetValuesVary();
        }
        if (!ValuesAreSound(field, part, depth)) return false;
        if (into) {
            field.data.assign(part.begin(), part.end());
            fields.push_back(std::move(field));
        }
    }
    if (cursor.Left() != 0) return false;
    std::sort(names.begin(), names.end());
    if (std::adjacent_find(names.begin(), names.end()) != names.end()) return false;
    if (into) {
        into->what = code;
        into->fFields = std::move(fields);
    }
    return true;
}

bool BMessage::ValuesAreSound(const Field& field, std::span<const uint8_t> data, int depth) {
    if (field.type != B_MESSAGE_TYPE) return AreSound(field.type, data);
    uint32_t begin = 0;
    for (const uint32_t end : field.ends) {
        if (!Parse(data.subspan(begin, end - begin), depth + 1, nullptr)) return false;
        begin = end;
    }
    return true;
}

bool BMessage::IsSoundValue(type_code type, std::span<const uint8_t> value) {
    return type == B_MESSAGE_TYPE ? Parse(value, 2, nullptr) : AreSound(type, value);
}

bool BMessage::HoldsMessage() const {
    return std::any_of(fFields.begin(), fFields.end(),
                       [](const Field& field) { return field.type == B_MESSAGE_TYPE; });
}

bool BMessage::HoldsPointer() const {
    return std::any_of(fFields.begin(), fFields.end(), [](const Field& field) {
        if (field.type == B_POINTER_TYPE) return true;
        if (field.type != B_MESSAGE_TYPE) return false;
        for (uint32_t i = 0; i < field.count; ++i) {
            if (FlatHoldsPointer(field.At(i))) return true;
        }
        return false;
    });
}

// --- delivery -----------------------------------------------------------------------------------

void BMessage::SetDelivery(std::unique_ptr<BDelivery> delivery) {
    if (IsSourceWaiting()) SendReply(BMessage());
    fDelivery = std::move(delivery);
}

bool BMessage::SendReply(BMessage&& reply) {
    if (!IsSourceWaiting()) return false;
    fDelivery->waiting = false;
    fDelivery->Answer(std::move(reply));
    return true;
}

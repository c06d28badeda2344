// BMessage: a code (`what`) and named fields of typed values. Settings, jobs, selections, language
// files and everything said between processes are messages.
//
// A field holds values of one type, addressed by index, stored back to back: a list of 100,000
// entries is a few arrays. A message is a plain value: no locking, one thread at a time. Copying
// copies the data; moving also takes along the right to answer (see SendReply).
//
// The flattened form is defined in docs/protocol.md. Reading it is total: any bytes either give a
// message or nothing.
#pragma once

#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>

#include "kit/message/BMessenger.h"
#include "kit/message/Types.h"

class BMessage;

// How a delivered message came, and the way back for an answer. Made by the transport.
class BDelivery {
public:
    virtual ~BDelivery() = default;
    // Sends the answer. Called at most once, on any thread.
    virtual void Answer(BMessage&& answer) = 0;
    int32_t senderTeam = 0;
    bool remote = false;   // came from another process
    bool waiting = false;  // an answer is expected and has not been given
};

namespace kit {

template <class T>
struct FieldType;  // code, and whether values have a fixed size

// Fixed size values, as they lie in the flattened form (little-endian host assumed, checked in
// BMessage.cpp).
#define VELMORA_FIXED_TYPE(T, CODE)                     \
    template <>                                         \
    struct FieldType<T> {                               \
        static constexpr type_code code = CODE;         \
        static constexpr bool fixed = true;             \
        static_assert(std::is_trivially_copyable_v<T>); \
    }
VELMORA_FIXED_TYPE(bool, B_BOOL_TYPE);
VELMORA_FIXED_TYPE(int8_t, B_INT8_TYPE);
VELMORA_FIXED_TYPE(int16_t, B_INT16_TYPE);
VELMORA_FIXED_TYPE(int32_t, B_INT32_TYPE);
VELMORA_FIXED_TYPE(int64_t, B_INT64_TYPE);
VELMORA_FIXED_TYPE(float, B_FLOAT_TYPE);
VELMORA_FIXED_TYPE(double, B_DOUBLE_TYPE);
VELMORA_FIXED_TYPE(BTime, B_TIME_TYPE);
VELMORA_FIXED_TYPE(BRect, B_RECT_TYPE);
VELMORA_FIXED_TYPE(rgb_color, B_RGB_COLOR_TYPE);
VELMORA_FIXED_TYPE(BMessenger, B_MESSENGER_TYPE);
VELMORA_FIXED_TYPE(node_ref, B_NODE_REF_TYPE);
VELMORA_FIXED_TYPE(void*, B_POINTER_TYPE);
#undef VELMORA_FIXED_TYPE
template <>
struct FieldType<std::string> {
    static constexpr type_code code = B_STRING_TYPE;
    static constexpr bool fixed = false;
};
template <>
struct FieldType<entry_ref> {
    static constexpr type_code code = B_REF_TYPE;
    static constexpr bool fixed = false;
};
template <>
struct FieldType<BMessage> {
    static constexpr type_code code = B_MESSAGE_TYPE;
    static constexpr bool fixed = false;
};

}  // namespace kit

class BMessage {
public:
    static constexpr int kMaxDepth = 32;  // levels of nesting, the outermost is 1

    uint32_t what = 0;

    BMessage() = default;
    explicit BMessage(uint32_t code) : what(code) {}
    BMessage(const BMessage& other) : what(other.what), fFields(other.fFields) {}
    BMessage& operator=(const BMessage& other);
    BMessage(BMessage&&) noexcept = default;
    // A request that is dropped unanswered, by either of these, is answered with an empty message
    // of code 0. Copying onto a request keeps the right to answer it.
    BMessage& operator=(BMessage&& other) noexcept;
    ~BMessage();

    // --- values ---------------------------------------------------------------------------------
    // Names are 1 to 255 bytes of UTF-8 without NUL. Adding fails, and changes nothing, for a bad
    // name, a field that holds another type, and whatever a reader would refuse: a string with a
    // NUL, raw data that is no value of its type, a message that would be nested too deep.
    template <class T>
    bool Add(std::string_view name, const T& value);
    bool Add(std::string_view name, std::string_view text) {
        return AddData(name, B_STRING_TYPE, text.data(), text.size(), 0);
    }
    bool Add(std::string_view name, const char* text) { return Add(name, std::string_view(text)); }

    // The value at `index`, or nothing when the field is absent, of another type, or shorter.
    template <class T>
    std::optional<T> Find(std::string_view name, int32_t index = 0) const;
    // The same with a default in place of nothing.
    template <class T>
    T Get(std::string_view name, T fallback, int32_t index = 0) const {
        auto found = Find<T>(name, index);
        return found ? std::move(*found) : std::move(fallback);
    }
    // A string or path without copying it; valid until the message changes.
    std::optional<std::string_view> FindString(std::string_view name, int32_t index = 0) const;

    // Replaced when present, added otherwise. Fails as Add does.
    template <class T>
    bool Set(std::string_view name, const T& value, int32_t index = 0);
    bool Set(std::string_view name, std::string_view text, int32_t index = 0) {
        return SetData(name, B_STRING_TYPE, text.data(), text.size(), 0, index);
    }
    bool Set(std::string_view name, const char* text, int32_t index = 0) {
        return Set(name, std::string_view(text), index);
    }

    bool Remove(std::string_view name);                   // the whole field
    bool RemoveAt(std::string_view name, int32_t index);  // one value; the last takes the field
    void Clear() { fFields.clear(); }                     // all fields; the code stays

    int32_t Count(std::string_view name) const;                  // 0 when absent
    int32_t Count(std::string_view name, type_code type) const;  // 0 when absent or of another type
    type_code TypeOf(std::string_view name) const;               // 0 when absent
    bool Has(std::string_view name) const { return Count(name) > 0; }
    int32_t CountFields() const { return static_cast<int32_t>(fFields.size()); }
    std::string_view FieldName(int32_t index) const;  // "" past the end
    bool IsEmpty() const { return fFields.empty(); }

    // Raw values under any type code. `fixedSize` above 0: every value of the field has that size.
    bool AddData(std::string_view name, type_code type, const void* data, size_t size,
                 uint32_t fixedSize = 0);
    std::optional<std::span<const uint8_t>> FindData(std::string_view name, type_code type,
                                                     int32_t index = 0) const;
    bool SetData(std::string_view name, type_code type, const void* data, size_t size,
                 uint32_t fixedSize, int32_t index);

    // All values of a field of a fixed type at once, for large parallel arrays.
    template <class T>
    bool AddArray(std::string_view name, std::span<const T> values);

    // Same code, same fields in the same order with the same values.
    bool operator==(const BMessage& other) const;

    // --- flattened form -------------------------------------------------------------------------
    size_t FlattenedSize() const;
    Bytes Flatten() const;
    void FlattenTo(Bytes& out) const;  // appended
    // Nothing when the bytes are not exactly one flattened message.
    static std::optional<BMessage> Unflatten(std::span<const uint8_t> bytes);
    // True when a value of type 'PNTR' is somewhere inside: such a message must not leave the
    // process.
    bool HoldsPointer() const;

    // --- delivery -------------------------------------------------------------------------------
    bool IsSourceWaiting() const { return fDelivery && fDelivery->waiting; }
    bool IsSourceRemote() const { return fDelivery && fDelivery->remote; }
    // The asker's or sender's team; 0 for a message that nobody waits for and that never left here.
    int32_t SourceTeam() const { return fDelivery ? fDelivery->senderTeam : 0; }
    // Answers a request, from any thread, also later from a kept (moved) message. False when nobody
    // waits. The second answer is refused.
    bool SendReply(BMessage&& reply);
    bool SendReply(const BMessage& reply) { return SendReply(BMessage(reply)); }
    bool SendReply(uint32_t code) { return SendReply(BMessage(code)); }
    void SetDelivery(std::unique_ptr<BDelivery> delivery);

private:
    struct Field {
        std::string name;
        type_code type = 0;
        uint32_t count = 0;
        uint32_t fixedSize = 0;      // 0: values vary
        Bytes data;                  // values back to back
        std::vector<uint32_t> ends;  // where varying values end in data

        std::span<const uint8_t> At(uint32_t index) const;
        void Append(std::span<const uint8_t> value);
        void Replace(uint32_t index, std::span<const uint8_t> value);
        void Erase(uint32_t index);
        void LetValuesVary();
        bool operator==(const Field&) const = default;
    };

    const Field* FindField(std::string_view name) const;
    Field* FindField(std::string_view name);
    Field* FieldForAdding(std::string_view name, type_code type, uint32_t fixedSize);
    bool StoreData(std::string_view name, type_code type, const void* data, size_t size,
                   uint32_t fixedSize, int32_t index);
    static bool IsSoundValue(type_code type, std::span<const uint8_t> value);
    bool HoldsMessage() const;
    static bool Parse(std::span<const uint8_t> bytes, int depth, BMessage* into);
    static bool ValuesAreSound(const Field& field, std::span<const uint8_t> data, int depth);
    bool StoreMessage(std::string_view name, const BMessage& value, int32_t index);
    bool AddArrayData(std::string_view name, type_code type, std::span<const uint8_t> values,
                      uint32_t fixedSize);

    std::vector<Field> fFields;
    std::unique_ptr<BDelivery> fDelivery;
};

// ------------------------------------------------------------------------------------------------

template <class T>
bool BMessage::Add(std::string_view name, const T& value) {
    using F = kit::FieldType<T>;
    if constexpr (std::is_same_v<T, BMessage>) {
        return StoreMessage(name, value, -1);
    } else if constexpr (F::fixed) {
        return AddData(name, F::code, &value, sizeof(T), sizeof(T));
    } else if constexpr (std::is_same_v<T, entry_ref>) {
        return AddData(name, F::code, value.path.data(), value.path.size(), 0);
    } else {
        return AddData(name, F::code, value.data(), value.size(), 0);
    }
}

template <class T>
bool BMessage::Set(std::string_view name, const T& value, int32_t index) {
    using F = kit::FieldType<T>;
    if constexpr (std::is_same_v<T, BMessage>) {
        return StoreMessage(name, value, index);
    } else if constexpr (F::fixed) {
        return SetData(name, F::code, &value, sizeof(T), sizeof(T), index);
    } else if constexpr (std::is_same_v<T, entry_ref>) {
        return SetData(name, F::code, value.path.data(), value.path.size(), 0, index);
    } else {
        return SetData(name, F::code, value.data(), value.size(), 0, index);
    }
}

template <class T>
std::optional<T> BMessage::Find(std::string_view name, int32_t index) const {
    using F = kit::FieldType<T>;
    auto data = FindData(name, F::code, index);
    if (!data) return std::nullopt;
    if constexpr (std::is_same_v<T, BMessage>) {
        return Unflatten(*data);
    } else if constexpr (F::fixed) {
        T value;
        std::memcpy(&value, data->data(), sizeof(T));
        return value;
    } else {
        return T{std::string(reinterpret_cast<const char*>(data->data()), data->size())};
    }
}

template <class T>
bool BMessage::AddArray(std::string_view name, std::span<const T> values) {
    using F = kit::FieldType<T>;
    static_assert(F::fixed, "arrays are of fixed types");
    const auto* first = reinterpret_cast<const uint8_t*>(values.data());
    return AddArrayData(name, F::code, {first, values.size_bytes()}, sizeof(T));
}

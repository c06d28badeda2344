// Any bytes are refused, or read as a message that is written and read again as the same.
#include <cstdlib>

#include "kit/message/BMessage.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

void TakeApart(const BMessage& message, int depth) {
    for (int32_t i = 0; i < message.CountFields(); ++i) {
        const std::string name(message.FieldName(i));
        Require(message.Count(name) > 0);
        const type_code type = message.TypeOf(name);
        Require(message.FindData(name, type, message.Count(name) - 1).has_value());
        Require(!message.FindData(name, type, message.Count(name)));
        if (type == B_MESSAGE_TYPE && depth < 4) {
            const auto nested = message.Find<BMessage>(name);
            Require(nested.has_value());
            TakeApart(*nested, depth + 1);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto message = BMessage::Unflatten({data, size});
    if (!message) return 0;
    const Bytes again = message->Flatten();
    Require(again.size() == message->FlattenedSize());
    const auto second = BMessage::Unflatten(again);
    Require(second && *second == *message);
    Require(second->HoldsPointer() == message->HoldsPointer());
    TakeApart(*message, 0);

    // Taking it apart value by value ends with an empty message, whatever order the values lie in.
    BMessage shrinking = *message;
    while (!shrinking.IsEmpty()) {
        const std::string name(shrinking.FieldName(0));
        if (shrinking.Count(name) > 64) {
            Require(shrinking.Remove(name));
        } else {
            Require(shrinking.RemoveAt(name, shrinking.Count(name) / 2));
        }
    }
    return 0;
}

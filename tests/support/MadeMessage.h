// Messages of known content, written down as they read, to be sent and to be compared with:
// Made("KTJS"_code, {{"job_id", 7}, {"title", "Home"}}).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <source_location>
#include <string>
#include <type_traits>
#include <vector>

#include "kit/message/BMessage.h"

class MadeField {
public:
    template <class T>
    MadeField(const char* name, T value)
        : fAdd(
              [name, value](BMessage* message) { EXPECT_TRUE(message->Add(name, value)) << name; }),
          fExpect([name, value](const BMessage& message) {
              using Kept = std::conditional_t<std::is_same_v<T, const char*>, std::string, T>;
              EXPECT_EQ(message.Find<Kept>(name), Kept(value)) << name;
          }) {}
    void AddTo(BMessage* message) const { fAdd(message); }
    void ExpectIn(const BMessage& message) const { fExpect(message); }

private:
    std::function<void(BMessage*)> fAdd;
    std::function<void(const BMessage&)> fExpect;
};

inline BMessage Made(uint32_t code, std::initializer_list<MadeField> fields) {
    BMessage message(code);
    for (const MadeField& field : fields)
        field.AddTo(&message);
    return message;
}
inline BMessage Made(std::initializer_list<MadeField> fields) {
    return Made(0, fields);
}

// These are the first values of the fields, in whatever company.
inline void ExpectHas(const BMessage& message, std::initializer_list<MadeField> fields,
                      std::source_location where = std::source_location::current()) {
    const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "");
    for (const MadeField& field : fields)
        field.ExpectIn(message);
}
inline void ExpectIs(const BMessage& message, uint32_t code,
                     std::initializer_list<MadeField> fields,
                     std::source_location where = std::source_location::current()) {
    const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "");
    EXPECT_EQ(CodeText(message.what), CodeText(code));
    ExpectHas(message, fields, where);
}

// All values of a field.
inline std::vector<std::string> Strings(const BMessage& message, const char* field) {
    std::vector<std::string> all;
    for (int32_t i = 0; i < message.Count(field); ++i)
        all.push_back(message.Get(field, std::string("(no string)"), i));
    return all;
}

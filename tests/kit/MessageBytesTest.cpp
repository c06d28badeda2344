// The flattened form, against bytes written by hand: no constants of the code are used here, in
// case they are wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "kit/message/BMessage.h"

namespace {

// Builds byte strings piece by piece.
class Raw {
public:
    Raw& Text(std::string_view text) {
        fBytes.insert(fBytes.end(), text.begin(), text.end());
        return *this;
    }
    template <class T>
    Raw& Number(T value) {
        for (size_t i = 0; i < sizeof(T); ++i) {
            fBytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i)));
        }
        return *this;
    }
    Raw& U8(uint8_t value) { return Number(value); }
    Raw& U32(uint32_t value) { return Number(value); }
    Raw& Add(const Bytes& bytes) {
        fBytes.insert(fBytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    operator Bytes() const { return fBytes; }  // NOLINT: reads better in the tests

private:
    Bytes fBytes;
};

// A field's head: type as it lies in the file, name, count, size.
Raw Field(std::string_view reversedType, std::string_view name, uint32_t count, uint32_t size) {
    return Raw()
        .Text(reversedType)
        .U8(static_cast<uint8_t>(name.size()))
        .Text(name)
        .U32(count)
        .U32(size);
}

// A message with a right size around whatever fields are given.
Bytes Whole(uint32_t count, const Bytes& fields, std::string_view code = "AJTK") {
    return Raw()
        .Text("VMS1")
        .Text(code)
        .Number<uint64_t>(20 + fields.size())
        .U32(count)
        .Add(fields);
}

bool IsRead(const Bytes& bytes) {
    return BMessage::Unflatten(bytes).has_value();
}

// Nested to `levels` levels, the outermost is 1.
Bytes Nest(int levels) {
    Bytes bytes = Whole(0, {});
    for (int i = 1; i < levels; ++i) {
        bytes =
            Whole(1, Field("GGSM", "m", 1, 0).U32(static_cast<uint32_t>(bytes.size())).Add(bytes));
    }
    return bytes;
}

TEST(MessageBytes, EveryTypeLiesAsDescribed) {
    BMessage message("KTJA"_code);
    message.Add("b", true);
    message.Add("i8", int8_t{-2});
    message.Add("i16", int16_t{-2});
    message.Add("i32", int32_t{0x01020304});
    message.Add("i64", int64_t{-2});
    message.Add("f", 1.5f);
    message.Add("d", -2.0);
    message.Add("t", BTime{0x5F000000});
    message.Add("r", BRect{1, 2, 3, 4});
    message.Add("c", rgb_color{1, 2, 3, 4});
    message.Add("m", BMessenger(7, -1));
    message.Add("n", node_ref{1, 2});
    message.Add("s", "ab");
    message.Add("s", "");
    message.Add("p", entry_ref{"/x\xFF"});
    message.Add("g", BMessage(0x61626364));
    message.AddData("k", "ktrl"_code, "\0\1", 2);

    const Bytes fields = Raw()
                             .Add(Field("LOOB", "b", 1, 1).U8(1))
                             .Add(Field("ETYB", "i8", 1, 1).U8(0xFE))
                             .Add(Field("TRHS", "i16", 1, 2).U8(0xFE).U8(0xFF))
                             .Add(Field("GNOL", "i32", 1, 4).U8(4).U8(3).U8(2).U8(1))
                             .Add(Field("GNLL", "i64", 1, 8).U32(0xFFFFFFFE).U32(0xFFFFFFFF))
                             .Add(Field("TOLF", "f", 1, 4).U32(0x3FC00000))
                             .Add(Field("ELBD", "d", 1, 8).U32(0).U32(0xC0000000))
                             .Add(Field("EMIT", "t", 1, 4).U32(0x5F000000))
                             .Add(Field("TCER", "r", 1, 16)
                                      .U32(0x3F800000)
                                      .U32(0x40000000)
                                      .U32(0x40400000)
                                      .U32(0x40800000))
                             .Add(Field("CBGR", "c", 1, 4).U8(1).U8(2).U8(3).U8(4))
                             .Add(Field("GNSM", "m", 1, 12).U32(7).U32(0xFFFFFFFF).U32(0))
                             .Add(Field("FERN", "n", 1, 16).U32(1).U32(0).U32(2).U32(0))
                             .Add(Field("RTSC", "s", 2, 0).U32(2).U32(0).Text("ab"))
                             .Add(Field("FERR", "p", 1, 0).U32(3).Text("/x\xFF"))
                             .Add(Field("GGSM", "g", 1, 0).U32(20).Add(Whole(0, {}, "dcba")))
                             .Add(Field("lrtk", "k", 1, 0).U32(2).U8(0).U8(1));
    const Bytes expected = Whole(16, fields);

    EXPECT_EQ(message.Flatten(), expected);
    EXPECT_EQ(message.FlattenedSize(), expected.size());
    const auto read = BMessage::Unflatten(expected);
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, message);
    EXPECT_EQ(read->what, 0x4B544A41u);
    EXPECT_EQ(read->Find<BTime>("t"), BTime{0x5F000000});
    EXPECT_EQ(read->Find<BMessenger>("m"), BMessenger(7, -1));
    EXPECT_EQ(read->Find<entry_ref>("p"), entry_ref{"/x\xFF"});
    EXPECT_EQ(read->Find<BMessage>("g")->what, 0x61626364u);
    EXPECT_EQ(read->Find<std::string>("s", 1), "");
    EXPECT_FALSE(read->Find<std::string>("s", 2));
}

TEST(MessageBytes, AnEmptyMessageIsItsHeader) {
    EXPECT_EQ(BMessage("KTJA"_code).Flatten(),
              (Bytes{'V', 'M', 'S', '1', 'A', 'J', 'T', 'K', 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(MessageBytes, UnknownTypesAreKeptInBothForms) {
    for (const Bytes& bytes : {Whole(1, Field("zyxw", "u", 2, 3).Text("abcdef")),
                               Whole(1, Field("zyxw", "u", 2, 0).U32(0).U32(3).Text("abc"))}) {
        const auto message = BMessage::Unflatten(bytes);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->Flatten(), bytes);
        EXPECT_EQ(message->TypeOf("u"), "wxyz"_code);
    }
}

TEST(MessageBytes, AddingAnotherSizeToAnUnknownTypeKeepsAllValues) {
    auto message = BMessage::Unflatten(Whole(1, Field("zyxw", "u", 2, 3).Text("abcdef")));
    ASSERT_TRUE(message && message->AddData("u", "wxyz"_code, "gh", 2));
    EXPECT_EQ(message->Flatten(),
              Whole(1, Field("zyxw", "u", 3, 0).U32(3).U32(3).U32(2).Text("abcdefgh")));
}

TEST(MessageBytes, StringsOfOneSizeMayComeCompact) {
    const auto message = BMessage::Unflatten(Whole(1, Field("RTSC", "s", 2, 3).Text("abcdef")));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->FindString("s", 1), "def");
    EXPECT_EQ(message->Flatten(), Whole(1, Field("RTSC", "s", 2, 0).U32(3).U32(3).Text("abcdef")));
}

TEST(MessageBytes, EachFaultIsRefused) {
    const Bytes good = Whole(1, Field("GNOL", "i", 1, 4).U32(5));
    ASSERT_TRUE(IsRead(good));
    const auto changed = [&good](size_t at, uint8_t value) {
        Bytes bytes = good;
        bytes.at(at) = value;
        return bytes;
    };
    EXPECT_FALSE(IsRead({})) << "nothing";
    EXPECT_FALSE(IsRead(changed(3, '2'))) << "another magic";
    EXPECT_FALSE(IsRead(changed(8, static_cast<uint8_t>(good.size() + 1)))) << "size too large";
    EXPECT_FALSE(IsRead(changed(8, static_cast<uint8_t>(good.size() - 1)))) << "size too small";
    EXPECT_FALSE(IsRead(changed(15, 1))) << "size beyond 32 bits";
    EXPECT_FALSE(IsRead(changed(16, 0))) << "bytes left over";
    EXPECT_FALSE(IsRead(changed(16, 2))) << "a field is missing";
    EXPECT_FALSE(IsRead(changed(19, 0xFF))) << "more fields than bytes";

    const auto refused = [](const Raw& fields, const char* why, uint32_t count = 1) {
        EXPECT_FALSE(IsRead(Whole(count, fields))) << why;
    };
    refused(Field("GNOL", "i", 1, 4).U32(5).U8(0), "a byte left over");
    refused(Field("GNOL", "", 1, 4).U32(5), "no name");
    refused(Field("GNOL", {"i\0", 2}, 1, 4).U32(5), "NUL in a name");
    for (const char* name : {"\xFF", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80",
                             "\xF4\x90\x80\x80", "\xC3", "a\x80", "\xE2\x82"}) {
        refused(Field("GNOL", name, 1, 4).U32(5), name);
    }
    refused(Field("GNOL", "i", 0, 4), "no value");
    refused(Field("RTSC", "i", 0, 0), "no value, varying");
    refused(Field("GNOL", "i", 2, 4).U32(5), "values run past the end");
    refused(Field("GNOL", "i", 0xFFFFFFFF, 4).U32(5), "a count that cannot fit");
    refused(Field("RTSC", "i", 0xFFFFFFFF, 0).U32(0), "sizes that cannot fit");
    refused(Field("zyxw", "i", 0x40000001, 4).U32(5), "a product that wraps 32 bits");
    refused(Field("RTSC", "i", 2, 0).U32(0xFFFFFFFF).U32(4).Text("abc"), "a sum that wraps");
    refused(Field("RTSC", "i", 1, 0).U32(4).Text("abc"), "a string past the end");
    refused(Field("GNOL", "i", 1, 8).U32(5).U32(0), "an int32 of eight bytes");
    refused(Field("GNOL", "i", 1, 0).U32(4).U32(5), "an int32 with its size apart");
    refused(Field("LOOB", "i", 1, 1).U8(2), "a bool of 2");
    refused(Field("LOOB", "i", 3, 1).U8(0).U8(1).U8(2), "a later bool of 2");
    refused(Field("RTSC", "i", 1, 0).U32(3).U8('a').U8(0).U8('b'), "NUL in a string");
    refused(Field("FERR", "i", 1, 0).U32(1).U8(0), "NUL in a path");
    refused(Field("GNSM", "i", 1, 12).U32(1).U32(1).U32(1), "third word of a messenger");
    refused(Field("GGSM", "i", 1, 0).U32(19).Add(Bytes(19)), "a message too short for one");
    refused(Field("GGSM", "i", 1, 0).U32(20).Add(Whole(1, {})), "a broken message inside");
    refused(Raw()
                .Add(Field("GNOL", "i", 1, 4).U32(5))
                .Add(Field("GNOL", "j", 1, 4).U32(5))
                .Add(Field("TRHS", "i", 1, 2).U8(5).U8(0)),
            "a name twice", 3);

    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(IsRead(Bytes(good.begin(), good.begin() + static_cast<long>(length))));
    }
}

TEST(MessageBytes, LongestNamesAreRead) {
    const std::string name(255, 'n');
    EXPECT_TRUE(IsRead(Whole(1, Field("GNOL", name, 1, 4).U32(5))));
    BMessage message;
    EXPECT_TRUE(message.Add(name, int32_t{1}));
    EXPECT_FALSE(message.Add(name + "n", int32_t{1}));
    EXPECT_TRUE(message.Add("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x92\xBE", int32_t{1}));
    EXPECT_TRUE(IsRead(message.Flatten()));
}

TEST(MessageBytes, NestingEndsAtThirtyTwoLevels) {
    EXPECT_TRUE(IsRead(Nest(32)));
    EXPECT_FALSE(IsRead(Nest(33)));

    const auto deepest = BMessage::Unflatten(Nest(32));
    ASSERT_TRUE(deepest);
    BMessage outer;
    EXPECT_FALSE(outer.Add("m", *deepest)) << "nobody could read it";
    EXPECT_FALSE(outer.Set("m", *deepest));
    EXPECT_TRUE(outer.IsEmpty());
    EXPECT_TRUE(outer.Add("m", *BMessage::Unflatten(Nest(31))));
    EXPECT_TRUE(IsRead(outer.Flatten()));
}

TEST(MessageBytes, AClaimedCountTakesNoMemory) {
    // Would be 16 GiB, were it believed.
    EXPECT_FALSE(IsRead(Whole(1, Field("RTSC", "s", 0xFFFFFFF0, 0))));
    EXPECT_FALSE(IsRead(Whole(0x0FFFFFFF, {})));
}

// Any change of a byte is refused, or read as a message that is written as it was read.
TEST(MessageBytes, ReadingIsTotal) {
    BMessage inner("innr"_code);
    inner.Add("text", "inside");
    BMessage message("outr"_code);
    message.Add("flag", true);
    message.Add("text", "one");
    message.Add("text", "another");
    message.Add("msg", inner);
    message.Add("to", BMessenger(1, 2));
    const Bytes good = message.Flatten();
    std::mt19937 random(1);
    int read = 0;
    for (int round = 0; round < 50000; ++round) {
        Bytes bytes = good;
        for (unsigned changes = 1 + random() % 3; changes > 0; --changes) {
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        }
        if (const auto back = BMessage::Unflatten(bytes)) {
            ++read;
            const Bytes again = back->Flatten();
            const auto third = BMessage::Unflatten(again);
            ASSERT_TRUE(third);
            ASSERT_EQ(*third, *back);
        }
    }
    EXPECT_GT(read, 0);
}

TEST(MessageBytes, CodesOfFourCharacters) {
    EXPECT_EQ("KTJA"_code, 0x4B544A41u);
    EXPECT_EQ(CodeText(0x4B544A41), "KTJA");
    EXPECT_EQ(CodeText(0x4B00FF41), "K??A");
}

}  // namespace

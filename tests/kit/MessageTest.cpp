// A message as a value: adding, finding, replacing, removing, answering.
#include "kit/message/BMessage.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> Strings(const BMessage& message, std::string_view name) {
    std::vector<std::string> all;
    for (int32_t i = 0; i < message.Count(name); ++i) {
        all.emplace_back(message.FindString(name, i).value_or("?"));
    }
    return all;
}

// Notes what an asker would be told.
class NotedDelivery : public BDelivery {
public:
    explicit NotedDelivery(std::vector<uint32_t>* answers) : fAnswers(answers) { waiting = true; }
    void Answer(BMessage&& answer) override { fAnswers->push_back(answer.what); }

private:
    std::vector<uint32_t>* fAnswers;
};

TEST(Message, AFieldHoldsOneType) {
    BMessage message;
    EXPECT_TRUE(message.Add("n", int32_t{1}));
    EXPECT_FALSE(message.Add("n", int64_t{1}));
    EXPECT_FALSE(message.Add("n", "text"));
    EXPECT_FALSE(message.Set("n", "text"));
    EXPECT_EQ(message.Count("n"), 1);
    EXPECT_EQ(message.Count("n", B_INT64_TYPE), 0);
    EXPECT_FALSE(message.Find<int64_t>("n"));
    EXPECT_EQ(message.Get<int32_t>("n", 9), 1);
    EXPECT_EQ(message.Get<int32_t>("n", 9, 1), 9);
    EXPECT_EQ(message.Get<int32_t>("n", 9, -1), 9);
}

TEST(Message, WhatNoReaderWouldTakeIsNotAdded) {
    BMessage message;
    using std::string_view_literals::operator""sv;
    EXPECT_FALSE(message.Add("", int32_t{1}));
    EXPECT_FALSE(message.Add("a\0b"sv, int32_t{1}));
    EXPECT_FALSE(message.Add("\xFF", int32_t{1}));
    EXPECT_FALSE(message.Add("s", "a\0b"sv));
    EXPECT_FALSE(message.Add("p", entry_ref{std::string("/a\0b", 4)}));
    EXPECT_FALSE(message.AddData("b", B_BOOL_TYPE, "\2", 1));
    EXPECT_FALSE(message.AddData("i", B_INT32_TYPE, "abc", 3));
    EXPECT_FALSE(message.AddData("g", B_MESSAGE_TYPE, "abc", 3));
    const uint32_t messenger[3] = {1, 2, 3};
    EXPECT_FALSE(message.AddData("m", B_MESSENGER_TYPE, messenger, 12));
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(message.Flatten().size(), 20u);
    message.Add("s", "good");
    EXPECT_FALSE(message.Set("s", "a\0b"sv));
    EXPECT_EQ(message.FindString("s"), "good");
}

TEST(Message, VaryingValuesAreReplacedAndRemovedInTheMiddle) {
    BMessage message;
    for (const char* text : {"a", "bb", "", "dddd"})
        message.Add("s", text);
    EXPECT_TRUE(message.Set("s", "longer", 1));
    EXPECT_EQ(Strings(message, "s"), (std::vector<std::string>{"a", "longer", "", "dddd"}));
    EXPECT_TRUE(message.Set("s", "", 0));
    EXPECT_TRUE(message.Set("s", "c", 2));
    EXPECT_EQ(Strings(message, "s"), (std::vector<std::string>{"", "longer", "c", "dddd"}));
    EXPECT_TRUE(message.Set("s", "LONGER", 1)) << "same size";
    EXPECT_TRUE(message.RemoveAt("s", 1));
    EXPECT_EQ(Strings(message, "s"), (std::vector<std::string>{"", "c", "dddd"}));
    EXPECT_TRUE(message.RemoveAt("s", 2));
    EXPECT_FALSE(message.RemoveAt("s", 2));
    EXPECT_FALSE(message.RemoveAt("s", -1));
    EXPECT_EQ(BMessage::Unflatten(message.Flatten()), message);
    EXPECT_TRUE(message.RemoveAt("s", 0));
    EXPECT_TRUE(message.RemoveAt("s", 0));
    EXPECT_FALSE(message.Has("s")) << "the last value takes the field";
    EXPECT_TRUE(message.Set("s", "past the end", 7));
    EXPECT_EQ(Strings(message, "s"), (std::vector<std::string>{"past the end"}));
}

TEST(Message, FixedValuesAreReplacedAndRemovedInTheMiddle) {
    BMessage message;
    for (int16_t i = 0; i < 4; ++i)
        message.Add("n", i);
    message.Set("n", int16_t{20}, 2);
    message.RemoveAt("n", 1);
    EXPECT_EQ(message.Count("n"), 3);
    EXPECT_EQ(message.Find<int16_t>("n", 0), 0);
    EXPECT_EQ(message.Find<int16_t>("n", 1), 20);
    EXPECT_EQ(message.Find<int16_t>("n", 2), 3);
}

TEST(Message, ValuesAndNamesOfTheMessageItselfMayBeGiven) {
    BMessage message;
    message.Add("s", "some text that is long enough to lie on the heap");
    for (int i = 0; i < 100; ++i)
        message.Add("s", *message.FindString("s", i));
    EXPECT_EQ(message.FindString("s", 100), "some text that is long enough to lie on the heap");
    message.Set("s", message.FindString("s", 99)->substr(0, 9), 98);
    EXPECT_EQ(message.FindString("s", 98), "some text");

    BMessage many;
    for (const char* name : {"aa", "bb", "cc", "dd"})
        many.Add(name, int32_t{1});
    EXPECT_TRUE(many.Remove(many.FieldName(1)));
    EXPECT_EQ(many.CountFields(), 3);
    EXPECT_EQ(many.FieldName(1), "cc");
    EXPECT_EQ(many.FieldName(2), "dd");
    EXPECT_EQ(many.FieldName(3), "");
    EXPECT_EQ(many.FieldName(-1), "");
}

TEST(Message, ArraysAreTheSameAsValuesOneByOne) {
    const std::vector<int64_t> values{5, -6, 7};
    BMessage at_once;
    BMessage one_by_one;
    at_once.AddArray<int64_t>("n", values);
    for (const int64_t value : values)
        one_by_one.Add("n", value);
    EXPECT_EQ(at_once, one_by_one);
    EXPECT_EQ(at_once.Flatten(), one_by_one.Flatten());
    EXPECT_TRUE(at_once.AddArray<int64_t>("none", {}));
    EXPECT_FALSE(at_once.Has("none"));
    EXPECT_FALSE(at_once.AddArray<int32_t>("n", std::vector<int32_t>{1}));
}

TEST(Message, NestedMessagesAreValues) {
    BMessage inner("innr"_code);
    inner.Add("n", int32_t{1});
    BMessage outer;
    outer.Add("m", inner);
    inner.Set("n", int32_t{2});
    outer.Add("m", inner);
    EXPECT_EQ(outer.Find<BMessage>("m", 0)->Get<int32_t>("n", 0), 1);
    outer.Set("m", inner, 0);
    EXPECT_EQ(outer.Find<BMessage>("m", 0)->Get<int32_t>("n", 0), 2);
}

TEST(Message, APointerIsFoundHoweverDeepItLies) {
    BMessage message;
    message.Add("text", "PNTR");
    EXPECT_FALSE(message.HoldsPointer());
    BMessage inner;
    inner.Add("a", "text");
    inner.Add("b", "text");
    inner.Add("pointer", static_cast<void*>(&message));
    EXPECT_TRUE(inner.HoldsPointer());
    EXPECT_EQ(inner.Find<void*>("pointer"), &message);
    for (int level = 0; level < 20; ++level) {
        BMessage around;
        around.Add("n", int64_t{1});
        around.Add("m", BMessage());
        around.Add("m", inner);
        inner = around;
        EXPECT_TRUE(inner.HoldsPointer());
    }
    message.Add("m", BMessage(inner));
    EXPECT_TRUE(message.HoldsPointer());
    message.RemoveAt("m", 0);
    EXPECT_FALSE(message.HoldsPointer());
}

TEST(Message, TimesOutsideTheirRangeAreClamped) {
    EXPECT_EQ(BTime::FromSeconds(-1).seconds, 0u);
    EXPECT_EQ(BTime::FromSeconds(0xFFFFFFFF).seconds, 0xFFFFFFFFu);
    EXPECT_EQ(BTime::FromSeconds(int64_t{1} << 40).seconds, 0xFFFFFFFFu);
}

TEST(Message, ARequestIsAnsweredOnceHoweverItEnds) {
    std::vector<uint32_t> answers;
    const auto request = [&answers] {
        answers.clear();
        BMessage message;
        message.SetDelivery(std::make_unique<NotedDelivery>(&answers));
        return message;
    };
    {
        BMessage message = request();
        EXPECT_TRUE(message.IsSourceWaiting());
        EXPECT_TRUE(message.SendReply("fine"_code));
        EXPECT_FALSE(message.SendReply("more"_code));
    }
    EXPECT_EQ(answers, std::vector{"fine"_code});
    { const BMessage message = request(); }
    EXPECT_EQ(answers, std::vector{0u}) << "destroyed";
    {
        BMessage message = request();
        message = BMessage("else"_code);
        EXPECT_EQ(answers, std::vector{0u}) << "overwritten";
    }
    {
        BMessage message = request();
        const BMessage copy = message;
        EXPECT_FALSE(copy.IsSourceWaiting()) << "a copy is not the request";
        message = copy;
        EXPECT_TRUE(message.IsSourceWaiting());
        std::vector<BMessage> kept;
        kept.push_back(std::move(message));
        EXPECT_TRUE(answers.empty());
        EXPECT_TRUE(kept[0].SendReply("late"_code));
    }
    EXPECT_EQ(answers, std::vector{"late"_code});
}

}  // namespace

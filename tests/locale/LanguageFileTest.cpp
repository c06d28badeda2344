#include "locale/LanguageFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace locale_build;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kTable[] = {"Ok", "", "Media #%ld of '%s' full!", "Start job at: "};
constexpr const char* kMore[] = {"Later."};
constexpr Texts kTexts = {kTable, kMore};

constexpr std::string_view kHeader = "msgid \"\"\nmsgstr \"X-Language-Name: Volapük\\n\"\n";

Language Made(const std::string& entries) {
    PoProblem problem;
    const auto file = PoFile::Parse(std::string(kHeader) + entries, &problem);
    EXPECT_TRUE(file) << problem.words;
    return MakeLanguage(file.value_or(PoFile{}), kTexts);
}

TEST(LanguageFile, HoldsEveryTextByItsId) {
    const Language made = Made(
        "msgctxt \"more-0\"\nmsgid \"Later.\"\nmsgstr \"Poso.\"\n"
        "msgctxt \"3\"\nmsgid \"Start job at: \"\nmsgstr \"primikön: \"\n"
        "msgctxt \"2\"\nmsgid \"Media #%ld of '%s' full!\"\nmsgstr \"fulon %5ld %s\"\n"
        "msgctxt \"0\"\nmsgid \"Ok\"\nmsgstr \"si\"\n");
    EXPECT_THAT(made.errors, IsEmpty());
    EXPECT_THAT(made.missing, IsEmpty());
    const auto read = BMessage::Unflatten(made.message.Flatten());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->FindString("kt:app_id"), "velmora backup locale");
    EXPECT_EQ(read->FindString("kt:language"), "Volapük");
    ASSERT_EQ(read->Count("kt:text", B_STRING_TYPE), 4);
    EXPECT_EQ(read->FindString("kt:text", 0), "si");
    EXPECT_EQ(read->FindString("kt:text", 1), "");
    EXPECT_EQ(read->FindString("kt:text", 2), "fulon %5ld %s");
    EXPECT_EQ(read->FindString("kt:text", 3), "primikön: ");
    ASSERT_EQ(read->Count("kt:more", B_STRING_TYPE), 1);
    EXPECT_EQ(read->FindString("kt:more", 0), "Poso.");
}

TEST(LanguageFile, WhatIsNotTranslatedStaysEnglishAtItsPlace) {
    const Language made = Made(
        "#, fuzzy\nmsgctxt \"0\"\nmsgid \"Ok\"\nmsgstr \"si\"\n"
        "msgctxt \"3\"\nmsgid \"Start job: \"\nmsgstr \"primikön: \"\n"
        "msgctxt \"more-0\"\nmsgid \"Later.\"\nmsgstr \"\"\n");
    EXPECT_THAT(made.errors, IsEmpty());
    EXPECT_THAT(made.missing, ElementsAre(HasSubstr("Ok"), HasSubstr("Media"), HasSubstr("3 "),
                                          HasSubstr("more-0")));
    EXPECT_EQ(made.message.FindString("kt:text", 0), "Ok");
    EXPECT_EQ(made.message.FindString("kt:text", 3), "Start job at: ");
    EXPECT_EQ(made.message.FindString("kt:more", 0), "Later.");
}

TEST(LanguageFile, RefusesTextsThatAreNotThereAndNamesNobodyCanRead) {
    EXPECT_THAT(Made("msgctxt \"4\"\nmsgid \"x\"\nmsgstr \"y\"\n").errors,
                ElementsAre(HasSubstr("line 4: there is no text '4'")));
    for (const char* context : {"-1", "more-1", "more-", "1x", "99999999999999999999", " 1"}) {
        const auto entry = "msgctxt \"" + std::string(context) + "\"\nmsgid \"x\"\nmsgstr \"y\"\n";
        EXPECT_EQ(Made(entry).errors.size(), 1u) << context;
    }
    for (const std::string& name :
         {std::string(), std::string("a/b"), std::string(kLongestLanguage + 1, 'x')}) {
        PoProblem problem;
        const auto file =
            PoFile::Parse("msgid \"\"\nmsgstr \"X-Language-Name: " + name + "\\n\"\n", &problem);
        ASSERT_TRUE(file);
        EXPECT_THAT(MakeLanguage(*file, kTexts).errors, ElementsAre(HasSubstr("X-Language-Name")));
    }
}

TEST(LanguageFile, ATranslationMustTakeTheSameArguments) {
    const struct {
        const char* english;
        const char* translation;
        const char* words;  // "" for a match
    } cases[] = {
        {"%s: %ld of %Ld", "%s %ld %Ld", ""},
        {"%02ld:%2.1f%%", "%ld %f %%", ""},
        {"100%% %x.%02x", "%x %x", ""},
        {"%s %ld", "%ld %s", "order"},
        {"%ld", "%d", "kind"},
        {"%ld", "%Ld", "kind"},
        {"%s", "", "kind"},
        {"none", "%s", "kind"},
        {"%s", "%s %n", "no placeholder"},
        {"%s", "%s 5 %", "no placeholder"},
        {"%s", "%s %l", "no placeholder"},
        {"%s", "%s 5 %%", ""},
        {"on\n'%s'?", "%s", "line breaks"},
        {"Size:\t\t%ld", "Size: %ld", "tabs"},
        {"Size", "Size\t", "tabs"},
        {"at: ", "um:", "blanks"},
        {"at:", " um:", "blanks"},
    };
    for (const auto& one : cases) {
        const std::string words = Mismatch(one.english, one.translation);
        EXPECT_EQ(words.empty(), !*one.words) << one.english << " / " << one.translation;
        EXPECT_THAT(words, HasSubstr(one.words)) << one.english << " / " << one.translation;
    }
    EXPECT_THAT(
        Made("msgctxt \"2\"\nmsgid \"Media #%ld of '%s' full!\"\nmsgstr \"%s %ld\"\n").errors,
        ElementsAre(HasSubstr("line 4: text '2': the placeholders")));
}

TEST(LanguageFile, TheTemplateIsATranslationThatLacksEverything) {
    constexpr const char* kHard[] = {"a \"b\" \\ c\t\n"};
    const Texts hard = {kHard, kMore};
    PoProblem problem;
    const auto file = PoFile::Parse(MakeTemplate(hard), &problem);
    ASSERT_TRUE(file) << problem.line << ": " << problem.words;
    ASSERT_EQ(file->Entries().size(), 2u);
    EXPECT_EQ(file->Entries()[0].id, kHard[0]);
    EXPECT_EQ(file->Entries()[1].context, "more-0");
    EXPECT_EQ(MakeLanguage(*file, hard).missing.size(), 2u);
}

}  // namespace

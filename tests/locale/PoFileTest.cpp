#include "locale/PoFile.h"

#include <gtest/gtest.h>

using locale_build::PoFile;
using locale_build::PoProblem;

namespace {

PoFile Parsed(std::string_view text) {
    PoProblem problem;
    auto file = PoFile::Parse(text, &problem);
    EXPECT_TRUE(file) << problem.line << ": " << problem.words;
    return file.value_or(PoFile{});
}

TEST(PoFile, ReadsHeaderContextsAndStringsOverSeveralLines) {
    const PoFile file = Parsed(
        "\xEF\xBB\xBF# a translator's comment\n"
        "msgid \"\"\n"
        "msgstr \"\"\n"
        "\"Language: de\\n\"\n"
        "\"X-Language-Name:  Deutsch \\n\"\n"
        "\n"
        "#, c-format\n"
        "msgctxt \"9\"\n"
        "msgid \"\"\n"
        "\"Files saved:\"\n"
        "  \"\\t%ld\"\n"
        "msgstr \"a \\\"b\\\" \\\\ \"\n"
        "\"c\\n\"\n"
        "msgid \"no context\"\n"
        "msgstr\"no blank\"\r\n");
    EXPECT_EQ(file.Header("Language"), "de");
    EXPECT_EQ(file.Header("X-Language-Name"), "Deutsch");
    EXPECT_EQ(file.Header("X-Language"), "");
    ASSERT_EQ(file.Entries().size(), 2u);
    EXPECT_EQ(file.Entries()[0].context, "9");
    EXPECT_EQ(file.Entries()[0].line, 9);
    EXPECT_EQ(file.Entries()[0].id, "Files saved:\t%ld");
    EXPECT_EQ(file.Entries()[0].translation, "a \"b\" \\ c\n");
    EXPECT_EQ(file.Entries()[1].context, "");
    EXPECT_EQ(file.Entries()[1].translation, "no blank");
}

TEST(PoFile, AFuzzyFlagHoldsForTheNextEntryOnly) {
    const PoFile file = Parsed(
        "#, fuzzy, c-format\n#| msgid \"former\"\nmsgid \"a\"\nmsgstr \"b\"\n\n"
        "msgid \"c\"\nmsgstr \"d\"\n");
    ASSERT_EQ(file.Entries().size(), 2u);
    EXPECT_TRUE(file.Entries()[0].fuzzy);
    EXPECT_FALSE(file.Entries()[1].fuzzy);
}

TEST(PoFile, ObsoleteEntriesAreNotThere) {
    const PoFile file = Parsed(
        "msgid \"a\"\nmsgstr \"b\"\n#~ msgctxt \"7\"\n#~ msgid \"gone\"\n#~ msgstr \"fort\"\n");
    ASSERT_EQ(file.Entries().size(), 1u);
    EXPECT_EQ(file.Entries()[0].translation, "b");
}

TEST(PoFile, ProblemsAreToldWithTheirLine) {
    const struct {
        const char* text;
        int line;
        const char* words;
    } cases[] = {
        {"msgid \"a\"\nmsgstr \"b\nmsgid \"c\"\n", 2, "closing quote"},
        {"msgid \"a\" \"b\"\n", 1, "follows the closing quote"},
        {"msgid \"a\\q\"\n", 1, "\\q"},
        {"msgid \"a\\", 1, "closing quote"},
        {"\nmsgid a\n", 2, "double quotes"},
        {"msgid\n", 1, "double quotes"},
        {"\"loose\"\n", 1, "belongs to nothing"},
        {"msgstr \"a\"\n", 1, "without a msgid"},
        {"msgctxt \"1\"\nmsgstr \"a\"\n", 2, "without a msgid"},
        {"msgid \"a\"\n\nmsgid \"b\"\n", 3, "no msgstr"},
        {"msgid \"a\"\nmsgstr \"b\"\nmsgctxt \"1\"\n", 4, "no msgstr"},
        {"msgid \"a\"\nmsgid_plural \"b\"\n", 2, "plural"},
        {"msgid \"a\"\nmsgstr[0] \"b\"\n", 2, "plural"},
        {"domain \"a\"\n", 1, "'domain'"},
        {"msgid \"a\"\nmsgstr \"b\"\nmsgid \"a\"\nmsgstr \"c\"\n", 3, "second translation"},
        {"msgid \"\"\nmsgstr \"\"\nmsgid \"\"\nmsgstr \"\"\nmsgid \"x\"\n", 5, "second header"},
        {"# \xC3\nmsgid \"a\"\n", 1, "UTF-8"},
        {"msgid \"\xED\xA0\x80\"\n", 1, "UTF-8"},
        {"msgid \"\xC0\x80\"\n", 1, "UTF-8"},
    };
    for (const auto& one : cases) {
        PoProblem problem;
        EXPECT_FALSE(PoFile::Parse(one.text, &problem)) << one.text;
        EXPECT_EQ(problem.line, one.line) << one.text << ": " << problem.words;
        EXPECT_NE(problem.words.find(one.words), std::string::npos) << problem.words;
    }
    PoProblem problem;
    EXPECT_FALSE(PoFile::Parse(std::string_view("msgid \"\0\"\n", 10), &problem));
    EXPECT_EQ(problem.words, "a NUL byte");
}

}  // namespace

// The translation that is shipped, against the texts as they are now.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"
#include "locale/LanguageFile.h"

using namespace locale_build;
using testing::IsEmpty;

namespace {

const Texts kTexts = {core::kTextTable, core::kMoreTextTable};

std::string Source(const std::string& name) {
    std::ifstream file(std::string(LOCALE_SOURCES) + "/" + name, std::ios::binary);
    EXPECT_TRUE(file.good()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

Language German() {
    PoProblem problem;
    const auto file = PoFile::Parse(Source("de.po"), &problem);
    EXPECT_TRUE(file) << problem.line << ": " << problem.words;
    return MakeLanguage(file.value_or(PoFile{}), kTexts);
}

// Where a value stands that follows `label` and its tabs: characters, not bytes.
size_t ValueColumn(std::string_view text, size_t tabWidth) {
    size_t column = 0;
    for (const char c : text.substr(0, text.find_last_of('\t') + 1)) {
        if (c == '\t') {
            column = (column / tabWidth + 1) * tabWidth;
        } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            ++column;
        }
    }
    return column;
}

TEST(German, TranslatesEveryText) {
    const Language german = German();
    EXPECT_EQ(german.name, "Deutsch");
    EXPECT_THAT(german.errors, IsEmpty());
    EXPECT_THAT(german.missing, IsEmpty()) << "add them to locale/de.po";
    EXPECT_EQ(german.message.Count("kt:text"), core::kTextCount);
    EXPECT_EQ(german.message.Count("kt:more"), core::kMoreTextCount);
}

TEST(German, ValuesInReportsLineUp) {
    const Language german = German();
    for (const size_t tabWidth : {4u, 8u}) {
        size_t column = 0;
        for (int32_t id = 0; id < core::kTextCount; ++id) {
            const auto text = german.message.FindString("kt:text", id);
            ASSERT_TRUE(text);
            if (text->find('\t') == std::string_view::npos) continue;
            if (column == 0) column = ValueColumn(*text, tabWidth);
            EXPECT_EQ(ValueColumn(*text, tabWidth), column) << *text << ", tabs of " << tabWidth;
        }
        EXPECT_GT(column, 0u);
    }
}

TEST(German, TheTemplateIsUpToDate) {
    EXPECT_TRUE(Source("velmora-backup.pot") == MakeTemplate(kTexts))
        << "build the target language-template, then translate what is new";
}

}  // namespace

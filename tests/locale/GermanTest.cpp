// The translation that is shipped, against the texts as they are now.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"
#include "core/report/KTReportLine.h"
#include "kit/storage/NodeAttributes.h"
#include "locale/LanguageFile.h"
#include "tests/TemporaryFolder.h"

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

// What the formatter of report lines asks of a text, by type.
std::vector<type_code> Arguments(const char* format) {
    std::vector<type_code> types;
    uint32_t type = 0;
    while ((format = KTReportLine::ParseLine(format, &type)) != nullptr) {
        if (type != 0) types.push_back(type);
    }
    return types;
}

TEST(German, TheProgramLoadsIt) {
    const TemporaryFolder folder;
    const auto written = WriteLanguageFile(German(), folder.Path());
    ASSERT_TRUE(written) << written.error().Text();
    if (kit::SupportsAttributes(folder.Path())) {
        EXPECT_EQ(kit::ReadAttribute(folder / "Deutsch", "kt:language"), "Deutsch");
    }
    EXPECT_THAT(KTLocale::LanguagesIn(folder.Path()), testing::ElementsAre("Deutsch"));

    KTLocale* locale = KTLocale::GetInstance();
    locale->SetAppID("velmora backup locale");
    ASSERT_EQ(locale->SetLanguage(folder.Path(), "Deutsch"), 0);
    EXPECT_STREQ(locale->Text(1), "Abbrechen");
    EXPECT_STREQ(locale->Text(4), "");
    EXPECT_STRNE(locale->Text(core::kFirstMoreText), core::kMoreTextTable[0]);
    for (int32_t id = 0; id < core::kTextCount; ++id) {
        EXPECT_EQ(Arguments(locale->Text(id)), Arguments(core::kTextTable[static_cast<size_t>(id)]))
            << id;
    }
    delete locale;
}

TEST(German, TheTemplateIsUpToDate) {
    EXPECT_TRUE(Source("velmora-backup.pot") == MakeTemplate(kTexts))
        << "build the target language-template, then translate what is new";
}

}  // namespace

#include "core/locale/KTLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/locale/TextTable.h"
#include "kit/message/BMessage.h"
#include "kit/storage/FileIo.h"
#include "kit/storage/NodeAttributes.h"
#include "tests/TemporaryFolder.h"

namespace {

constexpr char kAppId[] = "velmora backup locale";

BMessage LanguageMessage(const std::string& name, std::vector<std::string> texts = {"Gut"}) {
    BMessage message;
    message.Add("kt:app_id", kAppId);
    message.Add("kt:language", name);
    for (const auto& text : texts)
        message.Add("kt:text", text);
    return message;
}

void WriteFile(const std::string& path, const BMessage& message) {
    ASSERT_TRUE(kit::ReplaceFile(path, message.Flatten()).ok());
}

class Locale : public testing::Test {
protected:
    Locale() {
        delete KTLocale::GetInstance();
        fLocale = KTLocale::GetInstance();
        fLocale->SetAppID(kAppId);
        fLocale->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
    }
    void NameByAttribute(const std::string& file, const char* name) {
        if (!kit::WriteAttribute(fFolder / file, "kt:language", name).ok()) {
            GTEST_SKIP() << "the temporary folder has no attributes";
        }
    }
    TemporaryFolder fFolder;
    KTLocale* fLocale = nullptr;
};

}  // namespace

TEST_F(Locale, BuiltInTexts) {
    EXPECT_STREQ(fLocale->Language(), "English");
    EXPECT_STREQ(fLocale->Text(0), "Ok");
    EXPECT_STREQ(fLocale->Text(327), "Please type in password (click on column 'Password'):");
    for (const int32_t id : {-1, 328, 999, 1000, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(fLocale->Text(id), nullptr) << id;
    }
    const char* const more[] = {"Own words"};
    fLocale->SetMoreText(more, 1);
    EXPECT_STREQ(fLocale->Text(1000), "Own words");

    fLocale->SetDefaultText(nullptr, 5, "X");
    fLocale->SetDefaultText(more, 0, "X");
    fLocale->SetDefaultText(more, 1, nullptr);
    fLocale->SetAppID(nullptr);
    EXPECT_STREQ(fLocale->Text(1), "Cancel");
    EXPECT_STREQ(fLocale->AppID(), kAppId);
    fLocale->SetDefaultText(more, 1, "Other");
    EXPECT_STREQ(fLocale->Language(), "English") << "only an empty name is filled";
}

TEST_F(Locale, CopiesAtMostTheBuffer) {
    char buffer[8] = "???????";
    EXPECT_TRUE(fLocale->GetText(1, buffer, 6));
    EXPECT_EQ(std::string(buffer, 7), "Cancel?") << "a full buffer is not terminated";
    EXPECT_TRUE(fLocale->GetText(1, buffer, 7));
    EXPECT_STREQ(buffer, "Cancel");
    EXPECT_FALSE(fLocale->GetText(5000, buffer, 8));
}

TEST_F(Locale, InstallsALanguageAndFallsBack) {
    BMessage german = LanguageMessage("Deutsch", {"Gut", "Abbrechen"});
    german.Add("kt:more", "Eigenes");
    WriteFile(fFolder / "de", german);
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "Deutsch"), 0);
    EXPECT_STREQ(fLocale->Language(), "Deutsch");
    EXPECT_STREQ(fLocale->Text(1), "Abbrechen");
    EXPECT_STREQ(fLocale->Text(2), "Media #%ld of '%s' full! Please insert new media.");
    EXPECT_STREQ(fLocale->Text(1000), "Eigenes");

    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "deutsch"), -1) << "names are exact";
    EXPECT_STREQ(fLocale->Language(), "English");
    EXPECT_STREQ(fLocale->Text(1), "Cancel");
    EXPECT_EQ(fLocale->SetLanguage(fFolder / "missing", "Deutsch"), 5);
}

TEST_F(Locale, TheAttributeNamesTheFile) {
    WriteFile(fFolder / "a", LanguageMessage("Deutsch"));
    ASSERT_NO_FATAL_FAILURE(NameByAttribute("a", "Platt"));
    if (IsSkipped()) return;
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "Deutsch"), -1);
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "Platt"), 0);
    EXPECT_STREQ(fLocale->Language(), "Deutsch") << "the current name is the field's";
    EXPECT_THAT(KTLocale::LanguagesIn(fFolder.Path()), testing::ElementsAre("Platt"));

    const std::string longName(70, 'x');
    NameByAttribute("a", longName.c_str());
    EXPECT_THAT(KTLocale::LanguagesIn(fFolder.Path()),
                testing::ElementsAre(longName.substr(0, 64)));
}

TEST_F(Locale, ResultsOfBadCandidates) {
    const auto result = [this](const BMessage& message) {
        WriteFile(fFolder / "candidate", message);
        return fLocale->SetLanguage(fFolder.Path(), "X");
    };
    BMessage foreign = LanguageMessage("X");
    foreign.Set("kt:app_id", "another program");
    EXPECT_EQ(result(foreign), 3);
    BMessage without = LanguageMessage("X");
    without.Remove("kt:app_id");
    EXPECT_EQ(result(without), 2);

    // Only a file that is named by its attribute can lack the field or be no message at all.
    BMessage nameless = LanguageMessage("X");
    nameless.Remove("kt:language");
    EXPECT_EQ(result(nameless), -1);
    NameByAttribute("candidate", "X");
    if (IsSkipped()) return;
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "X"), 4);
    fFolder.Write("candidate", "no message");
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "X"), 1);
    fFolder.Write("candidate", std::string(5 << 20, 'x'));
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "X"), 1) << "larger than any language";

    // The search goes on behind a bad one.
    WriteFile(fFolder / "good", LanguageMessage("X", {"Fine"}));
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "X"), 0);
    EXPECT_STREQ(fLocale->Text(0), "Fine");
}

TEST_F(Locale, LinksAndOtherEntries) {
    TemporaryFolder elsewhere;
    WriteFile(elsewhere / "de", LanguageMessage("Deutsch"));
    std::filesystem::create_symlink(elsewhere / "de", fFolder / "link");
    std::filesystem::create_directory(fFolder / "folder");
    fFolder.Write("README", "not a language");
    EXPECT_EQ(fLocale->SetLanguage(fFolder.Path(), "Deutsch"), 0);
    EXPECT_THAT(KTLocale::LanguagesIn(fFolder.Path()), testing::ElementsAre("Deutsch"));

    TemporaryFolder broken;
    std::filesystem::create_symlink("nowhere", broken / "dangling");
    EXPECT_EQ(fLocale->SetLanguage(broken.Path(), "Deutsch"), 5);
    EXPECT_STREQ(fLocale->Language(), "English");
}

TEST_F(Locale, SeveralFolders) {
    TemporaryFolder second;
    WriteFile(fFolder / "de", LanguageMessage("Deutsch", {"first"}));
    WriteFile(second / "de", LanguageMessage("Deutsch", {"second"}));
    WriteFile(second / "fr", LanguageMessage("Fran\xc3\xa7"
                                             "ais",
                                             {"bien"}));
    const std::vector<std::string> folders{fFolder / "missing", fFolder.Path(), second.Path()};
    EXPECT_EQ(fLocale->SetLanguage(folders, "Deutsch"), 0);
    EXPECT_STREQ(fLocale->Text(0), "first");
    EXPECT_EQ(fLocale->SetLanguage(folders,
                                   "Fran\xc3\xa7"
                                   "ais"),
              0);
    EXPECT_STREQ(fLocale->Text(0), "bien");
    EXPECT_EQ(fLocale->SetLanguage(folders, "Latin"), -1);
    EXPECT_EQ(fLocale->SetLanguage(std::vector{fFolder / "missing"}, "Latin"), 5);
}

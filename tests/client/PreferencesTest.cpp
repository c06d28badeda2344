#include "client/settings/Preferences.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "client/app/BackupApplication.h"
#include "tests/TemporaryFolder.h"
#include "tests/support/MadeMessage.h"

namespace {

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string FileOf(const BMessage& settings, std::string header = "KTBACKUP") {
    header.resize(100, '\0');
    const Bytes body = settings.Flatten();
    return header + std::string(body.begin(), body.end());
}

bool HasDefaults(const Preferences& store) {
    return store.GetString("KT_LANGUAGE", "") == "English" &&
           store.GetInt8("KT_AUTOPREFS", 0) == 1 &&
           store.GetRect("KT_MAINWINPOS", {1, 2, 3, 4}) == BRect();
}

TEST(Preferences, AMissingFileGivesTheDefaultsAndIsNotMade) {
    const TemporaryFolder folder;
    const std::string path = folder / "Backup.prefs";
    Preferences store(path.c_str(), "KTBACKUP");
    EXPECT_EQ(store.InitCheck(), 0);
    EXPECT_TRUE(HasDefaults(store));
    EXPECT_FALSE(std::filesystem::exists(path));
    store.Set("mine", int32_t{5});
    EXPECT_EQ(store.Load(), 11);
    EXPECT_EQ(store.GetInt32("mine", 0), 5) << "a failed opening changes nothing";
}

TEST(Preferences, AnIdentifierHasEightCharacters) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("Backup.prefs", FileOf(BMessage()));
    for (const char* bad : {"KTBACKU", "KTBACKUPS", ""}) {
        Preferences store(path.c_str(), bad);
        EXPECT_EQ(store.InitCheck(), 1);
        EXPECT_EQ(store.GetString("KT_LANGUAGE", "none"), "none");
    }
    Preferences store(path.c_str(), "KTBACKUP");
    EXPECT_EQ(store.SetKennung("short"), 1);
    EXPECT_EQ(store.Load(), 0) << "the former identifier is kept";
    char buffer[9];
    EXPECT_EQ(store.GetKennung(buffer), 1);
}

TEST(Preferences, DamagedFilesGiveAnEmptyStoreAndAreLeftAlone) {
    const TemporaryFolder folder;
    BMessage settings = Made({{"KT_LANGUAGE", "Deutsch"}});
    const std::string whole = FileOf(settings);
    for (const std::string& damaged :
         {std::string(), whole.substr(0, 99), whole.substr(0, 100), whole.substr(0, 120),
          FileOf(settings, "KTBACKUQ"), FileOf(settings, std::string("KTB\0CKUP", 8)),
          whole + "x"}) {
        const std::string path = folder.Write("Backup.prefs", damaged);
        Preferences store(path.c_str(), "KTBACKUP");
        EXPECT_EQ(store.InitCheck(), 2);
        EXPECT_EQ(store.GetString("KT_LANGUAGE", "none"), "none");
        EXPECT_EQ(store.GetInt8("KT_AUTOPREFS", 7), 7) << "empty, not reset";
        EXPECT_EQ(Content(path), damaged);
    }
    const std::string path = folder.Write("Backup.prefs", FileOf(settings, "KTBACKUPxyz"));
    Preferences store(path.c_str(), "KTBACKUP");
    EXPECT_EQ(store.InitCheck(), 0) << "only eight characters are compared";
    EXPECT_EQ(store.GetString("KT_LANGUAGE", "none"), "Deutsch");
}

TEST(Preferences, AnEarlyLanguageNumberIsRemoved) {
    const TemporaryFolder folder;
    const std::string path = folder.Write(
        "Backup.prefs", FileOf(Made({{"KT_LANGUAGE", int8_t{2}}, {"other", int8_t{3}}})));
    Preferences store(path.c_str(), "KTBACKUP");
    store.Set("KT_LANGUAGE", "Deutsch");
    EXPECT_EQ(store.GetString("KT_LANGUAGE", "English"), "Deutsch");
    EXPECT_EQ(store.GetInt8("other", 0), 3);
}

TEST(Preferences, AValueKeepsItsType) {
    const TemporaryFolder folder;
    Preferences store((folder / "p").c_str(), "KTBACKUP");
    store.Set("key", int32_t{1});
    store.Set("key", "text");
    store.Set("key", int64_t{2});
    EXPECT_EQ(store.GetInt32("key", 0), 1);
    EXPECT_EQ(store.GetString("key", "fallback"), "fallback");
    EXPECT_EQ(store.GetInt64("key", -1), -1);
    store.Set("key", int32_t{9});
    EXPECT_EQ(store.GetInt32("key", 0), 9);
    store.Set("colour", rgb_color{1, 2, 3, 4});
    EXPECT_EQ(store.GetColor("colour", {}), (rgb_color{1, 2, 3, 4}));
    EXPECT_EQ(store.GetRect("none"), BRect());
}

TEST(Preferences, GroupsAreHandedOutAsCopies) {
    const TemporaryFolder folder;
    Preferences store((folder / "p").c_str(), "KTBACKUP");
    BMessage fallback;
    EXPECT_EQ(store.GetMessage("group", &fallback), &fallback);
    EXPECT_TRUE(store.GetMessageData("group").IsEmpty());
    store.Set("group", Made({{"a", 1}}));
    const std::unique_ptr<BMessage> copy(store.GetMessage("group", nullptr));
    ASSERT_TRUE(copy);
    copy->Set("a", int32_t{2});
    EXPECT_EQ(store.GetMessageData("group").Get<int32_t>("a", 0), 1);
}

TEST(Preferences, SavesWholeFilesForTheUserOnly) {
    const TemporaryFolder folder;
    const std::string path = folder / "Backup.prefs";
    Preferences store(path.c_str(), "KTBACKUP");
    store.Set("float", 1.5f);
    store.Set("group", Made({{"password", "hidden"}}));
    ASSERT_EQ(store.Save(), 0);
    const std::string content = Content(path);
    EXPECT_EQ(content.substr(0, 100), "KTBACKUP" + std::string(92, '\0'));
    EXPECT_EQ(content.substr(100, 4), "VMS1");
    EXPECT_EQ(content.find("hidden"), std::string::npos);
    struct stat status {};
    ::stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    Preferences again(path.c_str(), "KTBACKUP");
    EXPECT_EQ(again.GetFloat("float", 0), 1.5f);

    EXPECT_EQ(store.SetName((folder / "no/such/folder").c_str()), 0);
    EXPECT_EQ(store.Save(), 11);
    Preferences nameless("", "KTBACKUP");
    EXPECT_EQ(nameless.Save(), 10);
    EXPECT_EQ(nameless.Load(), 10);
}

TEST(Preferences, TheStartAddsOnlyWhatIsMissing) {
    const TemporaryFolder folder;
    Preferences store((folder / "p").c_str(), "KTBACKUP");
    BackupApplication::SetDefaults(&store);
    EXPECT_EQ(store.GetMessageData("status").Get<int32_t>("autoopen", 0), 1);
    const BMessage defaults = store.GetMessageData("restore").Get("restore", BMessage());
    ExpectHas(defaults, {{"createemptydirs", 1}, {"divert", 1}});

    BMessage status = Made({{"autoopen", 0}, {"removedelay", 3}});
    store.Set("status", status);
    BMessage restore;
    restore.Add("restore", BMessage());
    restore.Add("mine", int32_t{4});
    store.Set("restore", restore);
    BackupApplication::SetDefaults(&store);
    EXPECT_EQ(store.GetMessageData("status"), status);
    EXPECT_EQ(store.GetMessageData("restore"), restore);
}

}  // namespace

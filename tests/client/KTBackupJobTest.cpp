// The rules of the backup job, without any window.
#include "client/backup/KTBackupJob.h"

#include <gtest/gtest.h>

#include "client/addons/AddOnCatalogue.h"
#include "core/files/HeaderFile.h"
#include "core/selection/KTSelection.h"
#include "kit/storage/NodeAttributes.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

Texts RulesOf(const BMessage& job) {
    return Strings(job.Get("selection", BMessage()), "SELECTION");
}

BMessage Settings(const char* addOn, const char* path) {
    return Made({{"addon", addOn}, {"path", path}});
}

TEST(KTBackupJob, SentJobEndsInTheVarRuleHoweverOftenItIsSent) {
    KTBackupJob job;
    job.SetSelection(Selection({"INCLUDE /System/*"}));
    for (int round = 0; round < 2; ++round) {
        const BMessage sent = job.ForSending(nullptr, nullptr, "System");
        EXPECT_EQ(sent.what, "KTJA"_code);
        EXPECT_EQ(RulesOf(sent), (Texts{"INCLUDE /System/*", "EXCLUDE /System/var/*"}));
    }
    EXPECT_EQ(RulesOf(job.Data()), Texts{"INCLUDE /System/*"})
        << "the user's own list stays as it was made";
    // Also behind one that takes it in.
    job.SetSelection(Selection({"EXCLUDE /System/var/*", "INCLUDE /System/var/*"}));
    EXPECT_EQ(RulesOf(job.ForSending(nullptr, nullptr, "System")),
              (Texts{"INCLUDE /System/var/*", "EXCLUDE /System/var/*"}));
}

TEST(KTBackupJob, ModesKeepWhatTheyUse) {
    KTBackupJob job;
    job.SetSelection(Selection({"INCLUDE /A/*"}));
    job.SetBase(7);
    job.SetType(core::JobType::Incremental);
    BMessage sent = job.ForSending(nullptr, nullptr, "System");
    EXPECT_FALSE(sent.Has("selection"));
    EXPECT_EQ(sent.Find<int32_t>("base_id"), 7);

    job.SetType(core::JobType::Full);
    sent = job.ForSending(nullptr, nullptr, "System");
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_TRUE(sent.Has("selection"));
}

TEST(KTBackupJob, ReceiversFindTheChosenAddOnFirst) {
    KTBackupJob job;
    BMessage sent = job.ForSending(nullptr, nullptr, "System");
    EXPECT_EQ(Strings(sent, "addon"), Texts{"KTImage"});
    EXPECT_EQ(Strings(sent, "bak_addonpacker"), Texts{""});

    job.SetDestination("KTRemote");
    job.SetPacker("KTZstd");
    for (int round = 0; round < 2; ++round) {
        sent = job.ForSending(nullptr, nullptr, "System");
        EXPECT_EQ(Strings(sent, "addon"), (Texts{"KTRemote", "KTImage"}));
        EXPECT_EQ(Strings(sent, "bak_addonpacker"), (Texts{"KTZstd", ""}));
    }
    // A job that was sent and comes back has one of each again.
    KTBackupJob again;
    again.Replace(sent);
    EXPECT_EQ(Strings(again.Data(), "addon"), Texts{"KTRemote"});
    EXPECT_EQ(again.Packer(), "KTZstd");
}

TEST(KTBackupJob, UnknownTypesAreFull) {
    for (const int32_t type : {0, 4, 6, 99, -1}) {
        BMessage data = Made({{"job_type", type}});
        KTBackupJob job;
        job.Replace(data);
        EXPECT_EQ(job.Type(), core::JobType::Full) << type;
        EXPECT_EQ(job.Data().Find<int32_t>("job_type"), 1) << type;
    }
    BMessage text = Made({{"job_type", "2"}});
    KTBackupJob job;
    job.Replace(text);
    EXPECT_EQ(job.ForSending(nullptr, nullptr, "S").Find<int32_t>("job_type"), 1);
}

TEST(KTBackupJob, EachDestinationGetsItsOwnSettingsBack) {
    KTBackupJob job;
    job.SetDestination("KTImage");
    job.StoreVolume(Settings("KTImage", "/one"));
    job.SetDestination("KTRemote");
    EXPECT_TRUE(job.TakeVolume().IsEmpty()) << "another add-on's settings are not handed over";
    job.StoreVolume(Made({{"remote", "box:"}}));
    EXPECT_EQ(job.Data().Get("volume", BMessage()).FindString("addon"), "KTRemote");

    job.SetDestination("KTImage");
    EXPECT_EQ(job.TakeVolume().FindString("path"), "/one");
    EXPECT_EQ(job.Data().Get("volume", BMessage()).FindString("path"), "/one");
    // Settings of the former destination do not become the new one's.
    job.StoreVolume(Settings("KTRemote", "/wrong"));
    EXPECT_EQ(job.TakeVolume().FindString("path"), "/one");
}

TEST(KTBackupJob, AddOnNamedLikeAFieldCannotOverwriteIt) {
    BMessage data = Made({{"addon", "start_info"}});
    data.Add("start_info", Made({{"title", "Mine"}}));
    KTBackupJob job;
    job.Replace(data);
    job.StoreVolume(Settings("start_info", "/x"));
    EXPECT_EQ(job.Data().Get("start_info", BMessage()).FindString("title"), "Mine");
}

TEST(KTBackupJob, StartDialogNeverSeesAPasswordAgain) {
    KTBackupJob job;
    job.SetStartInfo(Made({{"title", "Home"}, {"passonoff", 1}, {"password", "secret"}}));
    EXPECT_EQ(
        job.ForSending(nullptr, nullptr, "S").Get("start_info", BMessage()).FindString("password"),
        "secret");
    EXPECT_FALSE(job.StartInfoFor("").Has("password"));
    EXPECT_EQ(job.StartInfoFor("other").FindString("title"), "Home");
    job.ForgetPassword();
    EXPECT_FALSE(job.Data().Get("start_info", BMessage()).Has("password"));
    job.SetType(core::JobType::Differential);
    EXPECT_EQ(job.StartInfoFor("The base").FindString("title"), "The base");
}

TEST(KTBackupJob, FilesComeBackWholeWithoutPasswords) {
    TemporaryFolder folder;
    const std::string path = folder / "default_bak";
    KTBackupJob job;
    job.SetSelection(Selection({"INCLUDE /A/*", "EXCLUDE /A/tmp/*"}));
    job.StoreVolume(Settings("KTImage", "/med"));
    job.SetStartInfo(Made({{"title", "Home"}, {"password", "secret"}}));
    ASSERT_EQ(job.Save(path), core::HeaderSave::Good);
    EXPECT_EQ(kit::MimeType(path), "application/x-vnd.velmoraware-backupselection");
    EXPECT_EQ(core::MagicOf(path), "KTBAKJOB");
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    BMessage loaded;
    ASSERT_EQ(KTBackupJob().Load(path, &loaded), core::HeaderLoad::Good);
    job.ForgetPassword();
    EXPECT_EQ(loaded, job.Data());
    EXPECT_EQ(job.Save(folder / "no/such"), core::HeaderSave::CannotCreate);
}

TEST(KTBackupJob, ForeignFilesChangeNothing) {
    TemporaryFolder folder;
    const auto load = [&](const std::string& bytes) {
        std::ofstream(folder / "job", std::ios::binary) << bytes;
        BMessage job = Made("keep"_code, {{"x", 1}});
        const BMessage before = job;
        const auto result = KTBackupJob().Load(folder / "job", &job);
        EXPECT_EQ(job, before);
        return static_cast<int32_t>(result);
    };
    BMessage missing;
    EXPECT_EQ(static_cast<int32_t>(KTBackupJob().Load(folder / "none", &missing)), 1);
    EXPECT_EQ(load("KTBAKJOB"), 2);
    EXPECT_EQ(load("KTRESJOB" + std::string(92, '\0')), 3);
    EXPECT_EQ(load("KTBAKJOB" + std::string(92, '\0') + "VMS1rubbish"), 4);
}

TEST(KTBackupJob, NoScheduleMeansAtOnce) {
    KTBackupJob job;
    job.SetSchedule(Made({{"TIME", BTime{1234567890}}, {"Days", 1}, {"Sunday", true}}));
    EXPECT_EQ(job.StartTime(), 1234567890u);
    job.ClearSchedule();
    EXPECT_EQ(job.StartTime(), 0u);
    const BMessage left = job.Data().Get("scheduler", BMessage());
    EXPECT_FALSE(left.Has("Days"));
    EXPECT_TRUE(left.Has("Sunday"));
}

TEST(AddOnCatalogue, ListsWhatWorksAndLeavesOutTheRest) {
    ProgramFolder program;
    EXPECT_TRUE(AddOnCatalogue<KTVolume>(program.Path()).List().empty());
    program.AddReal();
    program.AddTest();
    const std::string folder = program.Destinations();
    ProgramFolder::Copy(VELMORA_TEST_VOLUMES "/KTNoSymbol", folder);
    ProgramFolder::Copy(VELMORA_TEST_VOLUMES "/KTNoObject", folder);
    std::ofstream(folder + "/AAA-readme") << "not a program\n";
    std::filesystem::copy(folder + "/KTTest", folder + "/KTOpen");
    std::filesystem::permissions(folder + "/KTOpen", std::filesystem::perms::all);
    std::filesystem::create_directory(folder + "/KTFolder");

    const auto names = AddOnCatalogue<KTVolume>(program.Path()).List();
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0].fileName, "KTImage");
    EXPECT_EQ(names[0].menuName, "Image");
    EXPECT_EQ(names[1].fileName, "KTTest");

    const auto packers = AddOnCatalogue<KTCruncher>(program.Path()).List();
    ASSERT_EQ(packers.size(), 2u);
    EXPECT_EQ(packers[0].menuName, "None");
    EXPECT_EQ(packers[1].fileName, "KTZstd");
}

TEST(AddOnCatalogue, LoadsPlainNamesOfItsFolderOnly) {
    ProgramFolder program;
    program.AddTest();
    std::filesystem::copy(program.Destinations() + "/KTTest", program / "KTEvil");
    const AddOnCatalogue<KTVolume> catalogue(program.Path());
    for (const std::string& name :
         {std::string("../../../KTEvil"), program / "KTEvil", std::string(""), std::string("."),
          std::string(".."), std::string("KTNone")})
        EXPECT_FALSE(catalogue.Load(name)) << name;

    LoadedAddOn<KTVolume> first = catalogue.Load("KTTest");
    ASSERT_TRUE(first);
    LoadedAddOn<KTVolume> second = catalogue.Load("KTTest", &first);
    EXPECT_EQ(first.image, second.image);
    first = {};
    EXPECT_STREQ(second->MenuName(), "Test") << "the image stays as long as an object of it";
}

TEST(AddOnCatalogue, FolderThatOthersCanWriteIsRefused) {
    ProgramFolder program;
    program.AddTest();
    std::filesystem::permissions(program.Destinations(), std::filesystem::perms::all);
    EXPECT_TRUE(AddOnCatalogue<KTVolume>(program.Path()).List().empty());
}

TEST(KTBackupJob, MissingSettingsAreArchivedFromTheObjects) {
    ProgramFolder program;
    program.AddTest();
    program.AddReal();
    const auto volume = AddOnCatalogue<KTVolume>(program.Path()).Load("KTTest");
    const auto packer = AddOnCatalogue<KTCruncher>(program.Path()).Load("KTZstd");
    ASSERT_TRUE(volume && packer);
    KTBackupJob job;
    const BMessage sent = job.ForSending(volume.Get(), packer.Get(), "S");
    EXPECT_TRUE(sent.Get("volume", BMessage()).Get("archived", false));
    EXPECT_EQ(sent.Get("bak_packer", BMessage()).FindString("addon"), "KTZstd");
}

}  // namespace

// What every destination must do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "addons/KTVolume.h"
#include "tests/TemporaryFolder.h"
#include "tests/addons/AddOnLoader.h"
#include "tests/addons/RcloneServer.h"

namespace {

constexpr char kName[] = "20261122T201530-0000001a";
constexpr char kPartial[] = "20261122T201530-0000001a.partial";

// How to set up a destination that keeps its backups in a folder of the test.
struct Kind {
    const char* name;
    const char* addOn;
    const char* setting;   // the one that holds the place
    const char* protocol;  // of a server for the folder, null where it needs none
    bool knowsSpace;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

constexpr Kind kKinds[] = {
    {"KTImage", "KTImage", "path", nullptr, true},
    {"KTRemoteBySftp", "KTRemote", "remote", "sftp", true},
    {"KTRemoteByWebdav", "KTRemote", "remote", "webdav", false},
};

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace

class Destination : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        if (const char* protocol = GetParam().protocol) {
            if (!RcloneServer::IsInstalled()) GTEST_SKIP() << "rclone is not installed";
            fServer = std::make_unique<RcloneServer>(protocol, fFolder.Path());
        }
        fVolume = Make(fFolder.Path());
        ASSERT_TRUE(fVolume);
    }

    std::unique_ptr<KTVolume> Make(const std::string& folder) {
        auto volume = LoadAddOn<KTVolume>(std::string("destination/") + GetParam().addOn,
                                          "instantiate_ktvolume");
        if (!volume) return nullptr;
        BMessage settings;
        std::string place = folder;
        if (fServer) place = "test:" + folder.substr(fFolder.Path().size());
        settings.Add(GetParam().setting, place);
        volume->SetSettings(settings);
        return volume;
    }
    void WriteFile(const std::string& file, std::string_view content) {
        auto writer = fVolume->CreateFile(kName, file);
        ASSERT_TRUE(writer) << writer.error().Text();
        ASSERT_TRUE((*writer)->Write(BytesOf(content)));
        ASSERT_TRUE((*writer)->Finish());
    }
    std::string ReadFile(const std::string& folder, const std::string& file, int64_t offset = 0,
                         size_t size = 1000) {
        Bytes bytes(size);
        auto got = fVolume->ReadAt(folder, file, offset, bytes);
        if (!got) return "error: " + got.error().Text();
        return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(*got)};
    }
    std::vector<std::string> Folders() {
        auto folders = fVolume->ListBackups();
        EXPECT_TRUE(folders);
        return folders ? *folders : std::vector<std::string>{};
    }

    TemporaryFolder fFolder;
    std::unique_ptr<RcloneServer> fServer;
    std::unique_ptr<KTVolume> fVolume;
};

INSTANTIATE_TEST_SUITE_P(All, Destination, testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(Destination, IsReadyAndKnowsItsSpace) {
    ASSERT_TRUE(fVolume);
    const kit::Status access = fVolume->CheckAccess();
    ASSERT_TRUE(access) << access.error().Text();
    auto space = fVolume->Space();
    ASSERT_TRUE(space);
    if (GetParam().knowsSpace) {
        EXPECT_GT(space->freeBytes, 0);
        EXPECT_GE(space->capacity, space->freeBytes);
    } else {
        EXPECT_EQ(space->freeBytes, -1);
    }
    EXPECT_FALSE(space->readOnly);
    EXPECT_TRUE(Folders().empty());
}

TEST_P(Destination, BackupExistsFromPublishOnAndIsReadInAnyPiece) {
    ASSERT_TRUE(fVolume->BeginBackup(kName));
    WriteFile("0001.tar", "first medium");
    WriteFile("backup.json", "{}");
    EXPECT_EQ(Folders(), std::vector<std::string>{kPartial});
    EXPECT_EQ(ReadFile(kPartial, "0001.tar"), "first medium");
    ASSERT_TRUE(fVolume->Publish(kName));
    EXPECT_EQ(Folders(), std::vector<std::string>{kName});
    auto files = fVolume->ListFiles(kName);
    ASSERT_TRUE(files);
    ASSERT_EQ(files->size(), 2u);
    EXPECT_EQ((*files)[0].name, "0001.tar");
    EXPECT_EQ((*files)[0].size, 12);
    EXPECT_EQ((*files)[1].name, "backup.json");

    EXPECT_EQ(ReadFile(kName, "0001.tar", 3, 4), "st m");
    EXPECT_EQ(ReadFile(kName, "0001.tar", 10, 4), "um");
    EXPECT_EQ(ReadFile(kName, "0001.tar", 12, 4), "");
    EXPECT_EQ(ReadFile(kName, "0001.tar", 1000, 4), "");
    Bytes into(1);
    EXPECT_FALSE(fVolume->ReadAt(kName, "0001.tar", -1, into));
    auto missing = fVolume->ReadAt(kName, "0002.tar", 0, into);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().kind, kit::ErrorKind::NotFound);
}

// As a restore does it: several threads, forwards, with gaps, now and then back again.
TEST_P(Destination, ReadsManyPiecesFromSeveralThreads) {
    Bytes content(9'000'000);
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<uint8_t>(i * 2654435761U >> 13);
    ASSERT_TRUE(fVolume->BeginBackup(kName));
    WriteFile("0001.tar", {reinterpret_cast<const char*>(content.data()), content.size()});
    ASSERT_TRUE(fVolume->Publish(kName));
    constexpr size_t kPiece = 300'000;
    std::atomic<size_t> next = 0;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (size_t at; (at = next.fetch_add(kPiece)) < content.size();) {
                if (at / kPiece % 7 == 5) at /= 2;
                const size_t size = std::min(kPiece, content.size() - at);
                Bytes into(kPiece);
                const auto got = fVolume->ReadAt(kName, "0001.tar", static_cast<int64_t>(at), into);
                if (!got || *got != size ||
                    !std::equal(into.begin(), into.begin() + static_cast<ptrdiff_t>(size),
                                content.begin() + static_cast<ptrdiff_t>(at))) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_P(Destination, TakesBackWhatDidNotFit) {
    ASSERT_TRUE(fVolume->BeginBackup(kName));
    auto writer = fVolume->CreateFile(kName, "0001.tar");
    ASSERT_TRUE(writer);
    ASSERT_TRUE((*writer)->Write(BytesOf("keep this")));
    ASSERT_TRUE((*writer)->Write(BytesOf(", not this")));
    ASSERT_TRUE((*writer)->Truncate(9));
    ASSERT_TRUE((*writer)->Write(BytesOf("!")));
    ASSERT_TRUE((*writer)->Finish());
    EXPECT_EQ(ReadFile(kPartial, "0001.tar"), "keep this!");
}

TEST_P(Destination, RemovesWholeAndPartialBackups) {
    for (bool publish : {false, true}) {
        ASSERT_TRUE(fVolume->BeginBackup(kName));
        WriteFile("0001.tar", "x");
        if (publish) {
            ASSERT_TRUE(fVolume->Publish(kName));
        }
        const std::string folder = publish ? kName : kPartial;
        ASSERT_TRUE(fVolume->RemoveBackup(folder));
        EXPECT_TRUE(Folders().empty());
        const kit::Status again = fVolume->RemoveBackup(folder);
        ASSERT_FALSE(again);
        EXPECT_EQ(again.error().kind, kit::ErrorKind::NotFound);
    }
}

TEST_P(Destination, NeverReplacesABackup) {
    ASSERT_TRUE(fVolume->BeginBackup(kName));
    WriteFile("0001.tar", "the first");
    const kit::Status twice = fVolume->BeginBackup(kName);
    ASSERT_FALSE(twice);
    EXPECT_EQ(twice.error().kind, kit::ErrorKind::Exists);
    EXPECT_FALSE(fVolume->CreateFile(kName, "0001.tar"));
    ASSERT_TRUE(fVolume->Publish(kName));
    EXPECT_FALSE(fVolume->BeginBackup(kName));
    EXPECT_FALSE(fVolume->Publish(kName));
    EXPECT_EQ(ReadFile(kName, "0001.tar"), "the first");
}

TEST_P(Destination, ReplacesRootFilesWhole) {
    ASSERT_TRUE(fVolume->WriteRootFile("README.txt", BytesOf("a long first text")));
    ASSERT_TRUE(fVolume->WriteRootFile("README.txt", BytesOf("short")));
    EXPECT_TRUE(Folders().empty());
}

TEST_P(Destination, RefusesNamesThatLeadElsewhere) {
    std::filesystem::create_directory(fFolder / "inside");
    auto inside = Make(fFolder / "inside");
    Bytes into(10);
    for (const std::string name : {"", ".", "..", "../x", "a/b", "/etc"}) {
        EXPECT_FALSE(inside->BeginBackup(name)) << name;
        EXPECT_FALSE(inside->CreateFile(kName, name)) << name;
        EXPECT_FALSE(inside->CreateFile(name, "file")) << name;
        EXPECT_FALSE(inside->Publish(name)) << name;
        EXPECT_FALSE(inside->RemoveBackup(name)) << name;
        EXPECT_FALSE(inside->ListFiles(name)) << name;
        EXPECT_FALSE(inside->ReadAt(name, "file", 0, into)) << name;
        EXPECT_FALSE(inside->WriteRootFile(name, into)) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty(fFolder / "inside"));
}

TEST_P(Destination, TellsAMissingPlaceFromADeniedOne) {
    auto missing = Make(fFolder / "nowhere/at/all");
    const kit::Status status = missing->CheckAccess();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, kit::ErrorKind::NotFound);
    EXPECT_FALSE(missing->BeginBackup(kName));
    EXPECT_FALSE(missing->ListBackups());
    if (::geteuid() == 0) GTEST_SKIP() << "root may do everything";
    ::chmod(fFolder.Path().c_str(), 0500);
    const kit::Status denied = fVolume->CheckAccess();
    ::chmod(fFolder.Path().c_str(), 0700);
    ASSERT_FALSE(denied);
    EXPECT_EQ(denied.error().kind, kit::ErrorKind::Denied);
}

// A folder with folders in it is no backup, whatever its name.
TEST_P(Destination, LeavesOtherFoldersAlone) {
    std::filesystem::create_directories(fFolder / "mine/deeper");
    EXPECT_FALSE(fVolume->RemoveBackup("mine"));
    EXPECT_TRUE(std::filesystem::exists(fFolder / "mine/deeper"));
}

TEST_P(Destination, KeepsItsSettings) {
    BMessage settings;
    fVolume->GetSettings(&settings);
    EXPECT_EQ(settings.Get<std::string>("addon", ""), GetParam().addOn);
    auto other = Make(fFolder / "nowhere");
    other->SetSettings(settings);
    BMessage again;
    EXPECT_EQ(other->Archive(&again, true), 0);
    EXPECT_EQ(settings, again);
    EXPECT_FALSE(fVolume->IsOverwrite());
    fVolume->SetOverwrite(true);
    EXPECT_TRUE(fVolume->IsOverwrite());
    EXPECT_STRNE(fVolume->MediaName(), "");
    EXPECT_STRNE(fVolume->MenuName(), "");
    fVolume->SetSettings(BMessage());
    EXPECT_STREQ(fVolume->MediaName(), "");
    EXPECT_FALSE(fVolume->IsOverwrite());
    EXPECT_FALSE(fVolume->CheckAccess());
}

TEST(Image, ChecksWhatTheWindowSends) {
    TemporaryFolder folder;
    auto image = LoadAddOn<KTVolume>("destination/KTImage", "instantiate_ktvolume");
    ASSERT_TRUE(image);
    auto apply = [&](const std::string& path, int64_t mediaSize) {
        BMessage values;
        values.Add("path", path);
        values.Add("mediasize", mediaSize);
        values.Add("overwrite", int32_t{1});
        std::string problem;
        const bool taken = image->ApplySettings(values, BMessenger(), &problem);
        EXPECT_EQ(taken, problem.empty()) << problem;
        return taken;
    };
    EXPECT_FALSE(apply("", 0));
    EXPECT_FALSE(apply("relative", 0));
    EXPECT_FALSE(apply(folder / "missing", 0));
    EXPECT_FALSE(apply("/dev/null", 0));
    EXPECT_FALSE(apply(folder.Path(), (16 << 20) - 1));
    EXPECT_FALSE(apply(folder.Path(), -1));
    EXPECT_STREQ(image->MediaName(), "");
    EXPECT_FALSE(image->IsOverwrite());
    EXPECT_TRUE(apply(folder.Path(), 16 << 20));
    EXPECT_EQ(image->MediaName(), folder.Path());
    EXPECT_EQ(image->MediaSize(), 16 << 20);
    EXPECT_TRUE(image->IsOverwrite());
    EXPECT_EQ(image->LocalDirectory(), folder.Path());
}

TEST(Destinations, DescribeTheirWindowsInBothLanguages) {
    for (const char* addOn : {"KTImage", "KTRemote"}) {
        auto volume =
            LoadAddOn<KTVolume>(std::string("destination/") + addOn, "instantiate_ktvolume");
        ASSERT_TRUE(volume) << addOn;
        WindowHost english, german;
        volume->ShowSettings(&english, BMessenger(), "English");
        volume->ShowSettings(&german, BMessenger(), "Deutsch");
        ASSERT_EQ(english.window.Count("field"), 3) << addOn;
        for (int32_t i = 0; i < 3; ++i) {
            const auto values = german.window.Get<BMessage>("values", BMessage());
            const auto one = english.window.Get<BMessage>("field", BMessage(), i);
            const auto other = german.window.Get<BMessage>("field", BMessage(), i);
            EXPECT_TRUE(values.Has(other.Get<std::string>("key", ""))) << addOn << i;
            EXPECT_NE(one.Get<std::string>("label", ""), "") << addOn << i;
            EXPECT_NE(one.Get<std::string>("label", "") + one.Get<std::string>("hint", ""),
                      other.Get<std::string>("label", "") + other.Get<std::string>("hint", ""));
            EXPECT_EQ(one.Count("choice"), one.Count("choice_value")) << addOn << i;
        }
    }
}

TEST(Image, TellsAFullPlace) {
    TemporaryFolder folder;
    const std::string mount = "mount -t tmpfs -o size=64k none " + folder.Path() + " 2>/dev/null";
    if (std::system(mount.c_str()) != 0) GTEST_SKIP() << "needs the right to mount";
    {
        auto image = LoadAddOn<KTVolume>("destination/KTImage", "instantiate_ktvolume");
        BMessage settings;
        settings.Add("path", folder.Path());
        image->SetSettings(settings);
        EXPECT_TRUE(image->BeginBackup(kName));
        auto writer = image->CreateFile(kName, "0001.tar");
        ASSERT_TRUE(writer);
        const Bytes first(10'000, 1), second(100'000, 2), third(20'000, 3);
        EXPECT_TRUE((*writer)->Write(first));
        const kit::Status full = (*writer)->Write(second);
        ASSERT_FALSE(full);
        EXPECT_EQ(full.error().kind, kit::ErrorKind::Full);
        EXPECT_TRUE((*writer)->Truncate(10'000));
        EXPECT_TRUE((*writer)->Write(third));
        EXPECT_TRUE((*writer)->Finish());
        EXPECT_TRUE(image->Publish(kName));
        auto files = image->ListFiles(kName);
        ASSERT_TRUE(files);
        EXPECT_EQ(files->at(0).size, 30'000);
    }
    EXPECT_EQ(std::system(("umount " + folder.Path()).c_str()), 0);
}

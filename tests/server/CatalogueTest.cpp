// Catalogues: what is written is read back, in byte order, by path; the store answers as clients
// expect.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "core/protocol/Codes.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/catalogue/CatalogueWriter.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

constexpr char kName[] = "20261122T201530-0000001a";
constexpr char kOther[] = "20261123T000000-0000001b";

BackupInfo Info(const std::string& name, int32_t job = 26) {
    BackupInfo info;
    info.name = name;
    info.title = "Title of " + name;
    info.jobId = job;
    info.start = 1795378530 + job;
    info.files = 2;
    info.bytes = 77;
    info.addon = "KTImage";
    info.volumeSettings.Add("path", "/mnt/\xff");
    info.mediaName = "/mnt/\xff";
    return info;
}

class Catalogue : public testing::Test {
protected:
    Catalogue() : fStore(fHouse.root + "/store") { EXPECT_TRUE(fStore.Open()); }

    static CatalogueEntry Entry(uint32_t mode, int64_t size = 0, int64_t frame = -1) {
        CatalogueEntry entry;
        entry.mode = mode;
        entry.size = size;
        entry.frame = frame;
        entry.modified = 1'500'000'000'000'000'001;
        return entry;
    }

    // Volume "Data" with a directory, a link, a device, and odd names; "Empty" beside it.
    void WriteSome(const std::string& name) {
        auto writer = CatalogueWriter::Create(fStore.PathForNew(name), {{name}, {}});
        ASSERT_TRUE(writer) << writer.error().Text();
        CatalogueWriter& w = **writer;
        const int32_t data = w.AddEntry(Entry(S_IFDIR | 0755), "Data");
        const int32_t empty = w.AddEntry(Entry(S_IFDIR | 0755), "Empty");
        w.AddDirectory({kCatalogueRoot, data, 2, -1, 0});
        const int32_t first = w.NextId();
        w.AddEntry(Entry(S_IFREG | 0644, 5, 0), "A");
        w.AddEntry(Entry(S_IFREG | 0644, int64_t{5} << 30, 1), "B\xff");
        const int32_t sub = w.AddEntry(Entry(S_IFDIR | 0755), "a");
        w.AddEntry(Entry(S_IFLNK | 0777, 3, 1), "b");
        w.AddEntry(Entry(S_IFCHR | 0600, 0, 1), "c");
        w.AddDirectory({data, first, w.NextId() - first, 0, 0});
        const int32_t inSub = w.NextId();
        w.AddEntry(Entry(S_IFREG | 0600, 1, 1), "deep");
        w.AddDirectory({sub, inSub, 1, 1, 512});
        w.AddDirectory({empty, w.NextId(), 0, 1, 1024});
        w.AddFrame({0, 1, 0, 100, 4096, 1});
        w.AddFrame({1, 2, 700, 200, 4096, UINT64_MAX});
        ASSERT_TRUE(w.Finish());
    }

    BMessage List(std::string_view path, std::optional<int32_t> index = {}) {
        auto list = fStore.List(path, index);
        EXPECT_TRUE(list) << path << ": " << list.error().Text();
        return list ? std::move(*list) : BMessage();
    }
    static kit::Status Remove(CatalogueStore& store, const std::string& name) {
        auto removal = store.BeginRemoval(name);
        return removal ? removal->Finish() : removal.error();
    }

    EngineHouse fHouse;
    CatalogueStore fStore;
};

std::vector<std::string> Names(const BMessage& list) {
    std::vector<std::string> names;
    for (int32_t i = 0; i < list.Count("name"); ++i) {
        names.push_back(list.Get<std::string>("name", "", i));
    }
    return names;
}

TEST_F(Catalogue, ListsBackupsVolumesAndDirectories) {
    EXPECT_EQ(List("/").what, core::code::kNone);
    WriteSome(kName);
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    const BMessage top = List("/", {});
    EXPECT_EQ(top.what, core::code::kCatalogue);
    EXPECT_EQ(top.Get<int32_t>("type", 0), -1);
    EXPECT_EQ(top.Get<int32_t>("mode", 0), 1);
    EXPECT_EQ(top.Get<std::string>("name", ""), kName);
    EXPECT_EQ(top.Get<std::string>("title", ""), Info(kName).title);
    EXPECT_EQ(top.Get<int32_t>("base_id", -1), 0);
    EXPECT_EQ(top.Get<int32_t>("job_id", 0), 26);
    EXPECT_EQ(top.Get<int64_t>("size", 0), -1);
    EXPECT_EQ(top.Get<BTime>("date", {}).seconds, 1795378556u);
    EXPECT_EQ(fStore.ListOne(kName), top);

    const std::string path = std::string("/") + kName;
    const BMessage volumes = List(path, 0);
    EXPECT_EQ(Names(volumes), (std::vector<std::string>{"Data", "Empty"}));
    EXPECT_EQ(volumes.Get<int32_t>("type", 0), 3);
    EXPECT_EQ(volumes.Get<int64_t>("size", 0), -1);

    const BMessage data = List(path + "/Data", volumes.Find<int32_t>("index"));
    EXPECT_EQ(Names(data), (std::vector<std::string>{"A", "B\xff", "a", "b", "c"}));
    const int32_t types[] = {0, 0, 1, 2, 0};
    const int64_t sizes[] = {5, int64_t{5} << 30, -1, 3, 0};
    for (int32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(data.Get<int32_t>("type", -9, i), types[i]) << i;
        EXPECT_EQ(data.Get<int64_t>("size", -9, i), sizes[i]) << i;
        EXPECT_EQ(data.Get<BTime>("date", {}, i).seconds, 1'500'000'000u) << i;
    }
    EXPECT_EQ(data.Get<int32_t>("medianr", 0, 1), 2);
    EXPECT_EQ(data.Get<int64_t>("offset", 0, 1), 700);

    EXPECT_EQ(Names(List(path + "/Data/a")), std::vector<std::string>{"deep"});
    EXPECT_EQ(Names(List(path + "/Data/a/")), std::vector<std::string>{"deep"});
    for (const std::string& nothing :
         {path + "/Empty", path + "/Data/A", path + "/Nowhere", path + "/Data/a/deep/er",
          std::string("/") + kOther, std::string("/..")}) {
        EXPECT_EQ(List(nothing).what, core::code::kNone) << nothing;
    }
}

TEST_F(Catalogue, KeepsEveryRuleOfALongSelection) {
    CatalogueOrigin origin{{kName}, {}};
    for (int i = 0; i < 20'000; ++i)
        origin.rules.push_back("EXCLUDE /Disk/" + std::to_string(i));
    auto writer = CatalogueWriter::Create(fStore.PathForNew(kName), origin);
    ASSERT_TRUE(writer);
    ASSERT_TRUE((*writer)->Finish());
    auto reader = CatalogueReader::Open(fStore.PathForNew(kName));
    ASSERT_TRUE(reader);
    const auto read = reader->Origin();
    ASSERT_TRUE(read) << read.error().Text();
    EXPECT_EQ(read->rules, origin.rules);
}

TEST_F(Catalogue, LargeDirectoryKeepsByteOrderAndStaysQuickBesideIt) {
    constexpr int32_t kMany = 200'000;
    auto writer = CatalogueWriter::Create(fStore.PathForNew(kName), {{kName}, {}});
    ASSERT_TRUE(writer);
    CatalogueWriter& w = **writer;
    const int32_t volume = w.AddEntry(Entry(S_IFDIR | 0755), "V");
    w.AddDirectory({kCatalogueRoot, volume, 1, -1, 0});
    const int32_t first = w.NextId();
    char name[16];
    for (int32_t i = 0; i < kMany; ++i) {
        std::snprintf(name, sizeof(name), "%08d", i);
        w.AddEntry(Entry(S_IFREG, i, i / 1000), name);
        if (i % 1000 == 0) w.AddFrame({i / 1000, 1 + i / 50'000, i, 1, 1, 1});
    }
    w.AddDirectory({volume, first, kMany, 0, 0});
    ASSERT_TRUE(w.Finish());
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    const BMessage all = List(std::string("/") + kName + "/V", {});
    ASSERT_EQ(all.Count("name"), kMany);
    for (int32_t i = 0; i < kMany; i += 777) {
        std::snprintf(name, sizeof(name), "%08d", i);
        EXPECT_EQ(all.FindString("name", i), name);
        EXPECT_EQ(all.Get<int64_t>("size", -1, i), i);
        EXPECT_EQ(all.Get<int32_t>("medianr", -1, i), 1 + i / 50'000);
    }
    auto reader = CatalogueReader::Open(fHouse.root + "/store/" + kName + ".db");
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->Lookup("V/00123456")->size, 123456);
    EXPECT_FALSE(reader->Lookup("V/00123456x"));
}

TEST_F(Catalogue, StoreRemembersAcrossRestartsAndForgetsWhatIsRemoved) {
    WriteSome(kName);
    WriteSome(kOther);
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    ASSERT_TRUE(fStore.Adopt(kOther, Info(kOther, 27)));
    WriteSome("20261124T000000-0000001c");  // never adopted
    CatalogueStore again(fHouse.root + "/store");
    ASSERT_TRUE(again.Open());
    const auto backups = again.Backups();
    ASSERT_EQ(backups.size(), 2u);
    EXPECT_EQ(backups[0].name, kOther);
    EXPECT_EQ(backups[1].name, kName);
    const auto info = again.FindByJob(26);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->title, Info(kName).title);
    EXPECT_EQ(info->volumeSettings, Info(kName).volumeSettings);
    EXPECT_EQ(info->mediaName, "/mnt/\xff");
    EXPECT_EQ(info->bytes, 77);
    EXPECT_FALSE(std::filesystem::exists(again.PathForNew("20261124T000000-0000001c")));

    ASSERT_TRUE(Remove(again, kName));
    EXPECT_FALSE(Remove(again, kName));
    EXPECT_FALSE(again.Find(kName));
    CatalogueStore third(fHouse.root + "/store");
    ASSERT_TRUE(third.Open());
    EXPECT_EQ(third.Backups().size(), 1u);
}

TEST_F(Catalogue, DamagedFilesAreSetAside) {
    WriteSome(kName);
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    const std::string folder = fHouse.root + "/store/";
    WriteWhole(folder + kOther + ".db", "this is no database, whatever its name says");
    WriteWhole(folder + "20261125T000000-0000001d.db", "");
    std::filesystem::copy_file(folder + kName + ".db", folder + "20261126T000000-0000001e.db");
    CatalogueStore again(fHouse.root + "/store");
    ASSERT_TRUE(again.Open());
    ASSERT_EQ(again.Backups().size(), 1u);
    EXPECT_EQ(again.Backups()[0].name, kName);
    EXPECT_TRUE(std::filesystem::exists(folder + kOther + ".db.damaged"));
    EXPECT_TRUE(std::filesystem::exists(folder + "20261126T000000-0000001e.db.damaged"));
    ASSERT_EQ(again.Problems().size(), 3u);
    for (const auto& words : again.Problems())
        EXPECT_NE(words.find("set aside"), std::string::npos) << words;
    ASSERT_TRUE(again.Open());
    EXPECT_TRUE(again.Problems().empty());
}

TEST_F(Catalogue, HostileRowsGiveNothing) {
    WriteSome(kName);
    {
        auto database = Database::OpenScratch(fStore.PathForNew(kName));
        ASSERT_TRUE(database);
        ASSERT_TRUE(database->Execute(
            "UPDATE directories SET first=-5, count=2147483647 WHERE id=1;"
            "UPDATE directories SET first=1, count=8 WHERE id=2;"  // "Empty" holds its own volume
            "UPDATE entries SET name=NULL||'x' WHERE 0;"));
    }
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    const std::string path = std::string("/") + kName;
    EXPECT_EQ(List(path + "/Data").what, core::code::kNone);
    EXPECT_GT(List(path + "/Empty", {}).Count("name"), 0);
    std::string deep = path + "/Empty";
    for (int i = 0; i < 1000; ++i)
        deep += "/Empty";
    List(deep, {});
}

TEST_F(Catalogue, WhatIsInUseStaysAndWhatIsLeavingIsUsedByNobody) {
    WriteSome(kName);
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    EXPECT_FALSE(fStore.Use(kOther));
    auto user = fStore.Use(kName);
    ASSERT_TRUE(user);
    EXPECT_EQ(fStore.BeginRemoval(kName).error().kind, kit::ErrorKind::Denied);
    user.reset();
    {
        auto removal = fStore.BeginRemoval(kName);
        ASSERT_TRUE(removal);
        EXPECT_EQ(removal->Info().jobId, 26);
        EXPECT_FALSE(fStore.Use(kName));
        EXPECT_EQ(fStore.BeginRemoval(kName).error().kind, kit::ErrorKind::NotFound);
        EXPECT_GT(List("/").Count("name"), 0);
    }
    EXPECT_TRUE(fStore.Use(kName));  // thought better of
    auto removal = fStore.BeginRemoval(kName);
    ASSERT_TRUE(removal);
    ASSERT_TRUE(removal->Finish());
    EXPECT_FALSE(fStore.Find(kName));
    EXPECT_FALSE(std::filesystem::exists(fStore.PathOf(kName)));
}

TEST_F(Catalogue, ListsWhileAnotherIsWritten) {
    WriteSome(kName);
    ASSERT_TRUE(fStore.Adopt(kName, Info(kName)));
    std::atomic<bool> end = false;
    std::atomic<int> listed = 0;
    std::thread reader([&] {
        while (!end) {
            if (List(std::string("/") + kName + "/Data", {}).Count("name") == 5) ++listed;
        }
    });
    for (int i = 0; i < 20; ++i) {
        WriteSome(kOther);
        EXPECT_TRUE(fStore.Adopt(kOther, Info(kOther, 27)));
        EXPECT_TRUE(Remove(fStore, kOther));
    }
    while (listed == 0)
        std::this_thread::yield();
    end = true;
    reader.join();
}

TEST_F(Catalogue, UnfinishedFileIsGone) {
    {
        auto writer = CatalogueWriter::Create(fStore.PathForNew(kName), {{kName}, {}});
        ASSERT_TRUE(writer);
        for (int i = 0; i < 100'000; ++i)
            (*writer)->AddEntry(Entry(S_IFREG), "x");
    }
    EXPECT_FALSE(std::filesystem::exists(fStore.PathForNew(kName)));
    EXPECT_FALSE(fStore.Adopt(kName, Info(kName)));
    EXPECT_FALSE(CatalogueWriter::Create("/nowhere/at/all.new", {}));
}

}  // namespace
}  // namespace server

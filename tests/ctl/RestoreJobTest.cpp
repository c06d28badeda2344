// What the commands make of the names, paths and words that a user types.
#include "ctl/RestoreJob.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/BackupJob.h"
#include "ctl/Say.h"
#include "ctl/Words.h"

namespace ctl {
namespace {

using testing::ElementsAre;

std::vector<std::string> Names(const std::vector<ListedBackup>& backups) {
    std::vector<std::string> names;
    for (const auto& backup : backups)
        names.push_back(backup.name);
    return names;
}

TEST(MeantBackups, ByNameElseByNumberOrTitle) {
    const std::vector<ListedBackup> all{
        {"20261122T201530-0000001a", "Letters", core::JobType::Full, 26, 0, 1},
        {"20261123T201530-0000001b", "Letters", core::JobType::Incremental, 27, 26, 2},
        {"20261124T201530-00000011", "26", core::JobType::Full, 17, 0, 3},
        {"20261125T201530-00000064", "20261122T201530-0000001a", core::JobType::Full, 100, 0, 4}};
    EXPECT_THAT(Names(MeantBackups(all, "20261123T201530-0000001b")), ElementsAre(all[1].name));
    // A name wins over a title of the same letters.
    EXPECT_THAT(Names(MeantBackups(all, all[0].name)), ElementsAre(all[0].name));
    EXPECT_THAT(Names(MeantBackups(all, "0000001b")), ElementsAre(all[1].name));
    EXPECT_THAT(Names(MeantBackups(all, "100")), ElementsAre(all[3].name));
    EXPECT_THAT(Names(MeantBackups(all, "Letters")), ElementsAre(all[0].name, all[1].name));
    EXPECT_THAT(Names(MeantBackups(all, "26")), ElementsAre(all[0].name, all[2].name));
    for (const char* nothing : {"", "letters", "Letter", "0", "-26", "99", "0000001c"})
        EXPECT_TRUE(MeantBackups(all, nothing).empty()) << nothing;
}

TEST(PlacesOf, InTheTreeAndOnThisMachine) {
    BVolume root, disk;
    root.name = "System";
    root.mountPoint = "/";
    root.isBoot = true;
    disk.name = "Disk";
    disk.mountPoint = "/nowhere/disk";
    const std::vector<BVolume> volumes{root, disk};
    EXPECT_THAT(PlacesOf("/", volumes), ElementsAre("/"));
    EXPECT_THAT(PlacesOf("", volumes), ElementsAre("/"));
    EXPECT_THAT(PlacesOf("//System//home/", volumes),
                ElementsAre("/System/home", "/System/System/home"));
    EXPECT_THAT(PlacesOf("/nowhere/disk/a", volumes), ElementsAre("/nowhere/disk/a", "/Disk/a"));
    EXPECT_THAT(PlacesOf("/nowhere/../gone", volumes), ElementsAre("/gone", "/System/gone"));
    const std::string here = AbsoluteTarget(".");
    EXPECT_THAT(PlacesOf("./x", volumes), ElementsAre("/System" + here + "/x"));
    EXPECT_THAT(PlacesOf("x \xff", volumes), ElementsAre("/x \xff", "/System" + here + "/x \xff"));
}

TEST(RestoreJob, RulesAndRedirectionsByTheKindOfEntry) {
    const ListedBackup backup{"20261122T201530-0000001a", "Letters", core::JobType::Full, 26, 0, 1};
    const std::vector<TreeEntry> entries{{"/System/home", 1, -1, 0},
                                         {"/System/file", 0, 5, 0},
                                         {"/System/link", 2, 5, 0},
                                         {"/Disk", 3, -1, 0}};
    const auto strings = [](const BMessage& message, const char* field) {
        std::vector<std::string> all;
        for (int32_t i = 0; i < message.Count(field); ++i)
            all.push_back(message.Get(field, std::string(), i));
        return all;
    };
    const std::string name = "/" + backup.name;
    BMessage job = RestoreJob(backup, entries, std::nullopt, 0, "Title");
    EXPECT_EQ(job.what, "KTJA"_code);
    EXPECT_EQ(job.Get<int32_t>("job_type", 0), 4);
    EXPECT_EQ(job.Get("start_info", BMessage()).Get("title", std::string()), "Title");
    BMessage selection = job.Get("selection", BMessage());
    EXPECT_THAT(
        strings(selection, "SELECTION"),
        ElementsAre("INCLUDE " + name + "/System/home/*", "INCLUDE " + name + "/System/file",
                    "INCLUDE " + name + "/System/link", "INCLUDE " + name + "/Disk/*"));
    EXPECT_FALSE(selection.Has("source"));
    EXPECT_EQ(job.Get("restore", BMessage()).Get<int32_t>("divert", -1), 0);

    job = RestoreJob(backup, {entries[0], entries[1]}, "/to", *ParseOverwrite("rename"), "");
    selection = job.Get("selection", BMessage());
    EXPECT_THAT(strings(selection, "source"), ElementsAre("REDIREC " + name + "/System/home/*",
                                                          "REDIREC " + name + "/System/file"));
    EXPECT_THAT(strings(selection, "redirect"), ElementsAre("/to", "/to"));
    const BMessage settings = job.Get("restore", BMessage());
    EXPECT_EQ(settings.Get<int32_t>("divert", -1), 1);
    EXPECT_EQ(settings.Get<int32_t>("overwrite", -1), 2);
    EXPECT_EQ(settings.Get<int32_t>("createroot", -1), 1);
    EXPECT_FALSE(ParseOverwrite("No"));

    job = CompareJob(backup, {entries[0], entries[1]}, {}, "");
    EXPECT_EQ(job.Get<int32_t>("job_type", 0), 5);
    EXPECT_THAT(
        strings(job.Get("selection", BMessage()), "SELECTION"),
        ElementsAre("INCLUDE " + name + "/System/home/*", "INCLUDE " + name + "/System/file"));
    EXPECT_EQ(job.Get("compare", BMessage()).Get<int32_t>("compareall", 0), 1);
    job = CompareJob(backup, entries, {"data", "user", "data"}, "");
    const BMessage items = job.Get("compare", BMessage());
    EXPECT_EQ(items.Get<int32_t>("compareall", -1), 0);
    EXPECT_EQ(items.Get<int32_t>("filedata", 0), 1);
    EXPECT_EQ(items.Get<int32_t>("uid", 0), 1);
    EXPECT_FALSE(items.Has("size"));
    EXPECT_FALSE(IsCompareItem("Data"));

    job = VerifyJob(backup, "");
    EXPECT_EQ(job.Get<int32_t>("job_type", 0), 1000);
    EXPECT_THAT(strings(job.Get("selection", BMessage()), "SELECTION"),
                ElementsAre("INCLUDE " + name + "/*"));
}

TEST(Say, TheLanguageOfTheEnvironment) {
    for (const char* german : {"de", "de_DE", "de_AT.UTF-8", "de_DE@euro", "de.UTF-8"})
        EXPECT_EQ(LanguageFor(german), "Deutsch") << german;
    for (const char* other : {"", "C", "C.UTF-8", "den", "en_DE", "POSIX"})
        EXPECT_EQ(LanguageFor(other), "") << other;
}

}  // namespace
}  // namespace ctl

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

// What is common is seen where they run; here it is what a rule says of each kind of entry.
TEST(RestoreJob, RulesAndRedirectionsByTheKindOfEntry) {
    const ListedBackup backup{"20261122T201530-0000001a", "Letters", core::JobType::Full, 26, 0, 1};
    const std::vector<TreeEntry> entries{{"/System/home", 1, -1, 0},
                                         {"/System/file", 0, 5, 0},
                                         {"/System/link", 2, 5, 0},
                                         {"/Disk", 3, -1, 0}};
    const std::string name = "/" + backup.name;
    BMessage wanted;
    for (const char* path : {"/System/home/*", "/System/file", "/System/link", "/Disk/*"})
        wanted.Add("SELECTION", "INCLUDE " + name + path);
    BMessage job = RestoreJob(backup, entries, std::nullopt, 0, "Title");
    EXPECT_EQ(job.Get("selection", BMessage()), wanted);
    EXPECT_EQ(job.Get("restore", BMessage()).Get<int32_t>("divert", -1), 0);
    job = CompareJob(backup, entries, {"data", "user", "data"}, "");
    EXPECT_EQ(job.Get("selection", BMessage()), wanted);
    const BMessage items = job.Get("compare", BMessage());
    EXPECT_EQ(items.Get<int32_t>("compareall", -1), 0);
    EXPECT_EQ(items.Get<int32_t>("uid", 0), 1);
    EXPECT_FALSE(items.Has("size"));
    EXPECT_FALSE(IsCompareItem("Data"));

    wanted = BMessage();
    for (const char* path : {"/System/home/*", "/System/file"})
        wanted.Add("SELECTION", "INCLUDE " + name + path);
    for (const char* path : {"/System/home/*", "/System/file"}) {
        wanted.Add("source", "REDIREC " + name + path);
        wanted.Add("redirect", "/to");
    }
    job = RestoreJob(backup, {entries[0], entries[1]}, "/to", *ParseOverwrite("rename"), "");
    EXPECT_EQ(job.Get("selection", BMessage()), wanted);
    EXPECT_EQ(job.Get("restore", BMessage()).Get<int32_t>("overwrite", -1), 2);
    EXPECT_FALSE(ParseOverwrite("No"));
}

TEST(Say, TheLanguageOfTheEnvironment) {
    for (const char* german : {"de", "de_DE", "de_AT.UTF-8", "de_DE@euro", "de.UTF-8"})
        EXPECT_EQ(LanguageFor(german), "Deutsch") << german;
    for (const char* other : {"", "C", "C.UTF-8", "den", "en_DE", "POSIX"})
        EXPECT_EQ(LanguageFor(other), "") << other;
}

}  // namespace
}  // namespace ctl

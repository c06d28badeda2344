// What is saved held against the disk by the real engine: each thing that may differ is told by the
// item that asks for it, and by no other.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "core/protocol/Texts.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::LineType;

const std::vector<std::string> kItems = {"filedata",    "attribute",   "size", "mdate", "cdate",
                                         "symlinkdata", "permissions", "uid",  "gid"};

class EngineCompare : public testing::Test {
protected:
    void Save() {
        ASSERT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
        fBackup = fHouse.Folders().back();
    }
    JobOrder Order(const std::vector<std::string>& items,
                   const std::vector<std::string>& rules = {"INCLUDE /Source/*"}) const {
        // Where it was redirected to does not matter.
        JobOrder order = fHouse.ReadOrder(core::JobType::Compare, fBackup, fHouse.root, rules);
        BMessage compare;
        if (items.empty()) return order;
        for (const std::string& item : items)
            compare.Add(item.c_str(), int32_t{1});
        BMessage second;
        second.Add("compareall", int32_t{1});
        order.description.Add("compare", compare);
        order.description.Add("compare", second);
        return order;
    }
    // All items where none is named.
    JobEnd Compare(const std::vector<std::string>& items = {},
                   const std::vector<std::string>& rules = {"INCLUDE /Source/*"}) {
        return fHouse.Run(Order(items, rules));
    }
    std::vector<std::string> Errors() const { return fHouse.events.Texts(LineType::Error); }
    // Does something to a path and sets its time back.
    static void Change(const std::string& path, const std::function<void()>& change) {
        struct stat info;
        ASSERT_EQ(::lstat(path.c_str(), &info), 0);
        change();
        const timespec times[2] = {info.st_atim, info.st_mtim};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }

    EngineHouse fHouse;
    std::string fBackup;
};

TEST_F(EngineCompare, WhatWasSavedOrRestoredIsTheSame) {
    MakeNastyTree(fHouse.source);
    ASSERT_EQ(::linkat(AT_FDCWD, (fHouse.source + "/dangling").c_str(), AT_FDCWD,
                       (fHouse.source + "/also dangling").c_str(), 0),
              0);
    const auto before = DescribeTree(fHouse.source);
    fHouse.Run();  // a socket is left out, and not missed afterwards
    fBackup = fHouse.Folders().back();
    EXPECT_EQ(Compare(), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.Has(LineType::Totals, text::kCompareGood));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Misscompared:\t\t\t0"));
    EXPECT_TRUE(fHouse.events.Has(LineType::Heading, text::kCompareAll));
    EXPECT_TRUE(fHouse.events.Texts(LineType::Detail).empty()) << fHouse.events.All();
    const Progress& last = fHouse.events.progress.back();
    EXPECT_EQ(last.count, last.maxCount);
    EXPECT_EQ(last.size, last.maxSize);
    EXPECT_EQ(Compare(kItems), JobEnd::Good) << fHouse.events.All();

    // Made anew, which nobody can hide; everything else is as it was.
    for (const auto& entry : fs::directory_iterator(fHouse.source))
        fs::remove_all(entry.path());
    ASSERT_EQ(fHouse.Run(fHouse.ReadOrder(core::JobType::Restore, fBackup, fHouse.source)),
              JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fHouse.source)), "");
    EXPECT_EQ(Compare({"compareall"}), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.Has(LineType::Detail, text::kCreatedDiffers));
    EXPECT_EQ(Compare({"cdate"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kCreatedDiffers));
}

TEST_F(EngineCompare, EachItemTellsItsOwnDifferenceAndNoOther) {
    const std::string file = fHouse.source + "/file", link = fHouse.source + "/link";
    const auto attribute = [&](const char* name, std::string_view value) {
        return ::setxattr(file.c_str(), name, value.data(), value.size(), 0);
    };
    const auto make = [&] {
        fs::remove_all(fHouse.source);
        fs::create_directory(fHouse.source);
        WriteWhole(file, std::string(5'000'000, 'a'));
        ::chmod(file.c_str(), 0640);
        attribute("user.short", "value");
        attribute("user.same", "value");
        fs::create_symlink("there", link);
    };
    struct Case {
        std::vector<std::string> items;  // those that tell it, each with one line
        std::string line;
        std::function<void()> change;
    };
    std::vector<Case> cases = {
        {{"size", "filedata"}, "/Source/file: file", [&] { fs::resize_file(file, 4'999'999); }},
        {{"filedata"},
         "/Source/file: file data different",
         [&] {
             std::fstream out(file, std::ios::in | std::ios::out | std::ios::binary);
             out.seekp(4'999'999);
             out.put('b');
         }},
        {{"permissions"},
         "/Source/file: permissions different (backup: 'rw-r-----', source: 'rwS--x--t')",
         [&] { ::chmod(file.c_str(), 05611); }},
        {{"attribute"},
         "/Source/file: attribute size different ('user.short', backup: 5, source: 7)",
         [&] { attribute("user.short", "value 2"); }},
        {{"attribute"},
         "/Source/file: attribute data differnt ('user.same')",
         [&] { attribute("user.same", "VALUE"); }},
        {{"attribute"},
         "/Source/file: attribute 'user.same' is missing in the source",
         [&] { ::removexattr(file.c_str(), "user.same"); }},
        {{"attribute"},
         "/Source/file: attribute 'user.more' is missing in the backup",
         [&] { attribute("user.more", ""); }},
        {{"cdate"},
         "/Source/file: creation date different (backup: <= 2",
         [&] {
             fs::rename(file, fHouse.root + "/moved");
             EXPECT_EQ(Shell("cp -a " + fHouse.root + "/moved " + file), "");
         }},
    };
    const auto newLink = [&] {
        fs::remove(link);
        fs::create_symlink("else", link);
    };
    if (::geteuid() == 0) {
        cases.push_back({{"uid"}, "/Source/file: user id different (backup: 0, source: 4711)", [&] {
                             (void)!::chown(file.c_str(), 4711, 0);
                         }});
        cases.push_back({{"gid"},
                         "/Source/file: group id different (backup: 0, source: 4712)",
                         [&] { (void)!::chown(file.c_str(), 0, 4712); }});
    }
    for (const Case& one : cases) {
        SCOPED_TRACE(one.line);
        make();
        Save();
        Change(fHouse.source, [&] { Change(file, one.change); });
        std::vector<std::string> others;
        for (const std::string& item : kItems) {
            if (std::find(one.items.begin(), one.items.end(), item) == one.items.end()) {
                others.push_back(item);
                continue;
            }
            EXPECT_EQ(Compare({item}), JobEnd::Errors);
            ASSERT_EQ(Errors().size(), 1u) << fHouse.events.All();
            EXPECT_TRUE(Errors()[0].starts_with(one.line)) << Errors()[0];
            EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Misscompared:\t\t\t1"));
            EXPECT_TRUE(fHouse.events.Has(LineType::Totals, text::kCompareErrors));
        }
        EXPECT_EQ(Compare(others), JobEnd::Good) << fHouse.events.All();
    }
    make();
    Save();
    Change(fHouse.source, newLink);
    EXPECT_EQ(Compare({"symlinkdata"}), JobEnd::Errors);
    EXPECT_EQ(Errors(), std::vector<std::string>{"/Source/link: symlink contents different "
                                                 "(backup: there, source else)"});
    EXPECT_EQ(Compare({"filedata", "size", "permissions", "attribute"}), JobEnd::Good);
    // Half a second later is another time, too.
    make();
    Save();
    struct stat info;
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    const timespec later[2] = {info.st_atim, {info.st_mtim.tv_sec, info.st_mtim.tv_nsec ^ 1}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), later, 0), 0);
    EXPECT_EQ(Compare({"mdate"}), JobEnd::Errors);
    ASSERT_EQ(Errors().size(), 1u);
    EXPECT_TRUE(Errors()[0].starts_with("/Source/file: last modified date different"))
        << Errors()[0];
    EXPECT_EQ(Compare({"filedata", "cdate", "size", "uid", "gid"}), JobEnd::Good);
}

TEST_F(EngineCompare, MissingNewAndOtherThingsAreToldAndTheRestGoesOn) {
    for (const char* path : {"/a/gone", "/a/turned", "/b/in it", "/c/kept", "/d/last", "/skip/x"}) {
        fs::create_directories(fs::path(fHouse.source + path).parent_path());
        WriteWhole(fHouse.source + path, path);
    }
    fs::create_directories(fHouse.source + "/d/was directory");
    ASSERT_EQ(fHouse.Run(fHouse.Order({"INCLUDE /Source/*", "EXCLUDE /Source/skip/*"})),
              JobEnd::Good);
    fBackup = fHouse.Folders().back();
    const std::string& source = fHouse.source;
    fs::remove(source + "/a/gone");
    fs::remove(source + "/a/turned");
    fs::create_directory(source + "/a/turned");
    fs::remove_all(source + "/b");
    fs::remove(source + "/d/was directory");
    fs::create_directory_symlink("/tmp", source + "/d/was directory");
    WriteWhole(source + "/d/last", "/D/LAST");
    WriteWhole(source + "/c/new\xff", "new");
    fs::create_directories(source + "/c/new directory/with/more");
    const kit::UniqueFd socket = MakeSocket(source + "/c/socket");
    ASSERT_TRUE(socket.IsOpen());

    EXPECT_EQ(Compare({"filedata"}), JobEnd::Errors);
    auto errors = Errors();
    std::sort(errors.begin(), errors.end());
    EXPECT_EQ(errors,
              (std::vector<std::string>{
                  "/Source/a/turned: type different (backup: file, source: directory)",
                  "/Source/c/new directory: is not in the backup, nor what is below it",
                  "/Source/c/new\xff: is not in the backup",
                  "/Source/d/last: file data different",
                  std::string("/Source/d/was directory: type different (backup: directory, ") +
                      "source: symbolic link)",
                  "Error: can't access source '/Source/a/gone'",
                  "Error: can't access source '/Source/b'",
              }));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Misscompared:\t\t\t7"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::File, "/Source/c/kept"));

    // Only what is marked: a directory on the way is not looked through.
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/c/kept"}), JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/c/*", "EXCLUDE /Source/c/new directory/*",
                                     "EXCLUDE /Source/c/new\xff"}),
              JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/nothing"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kNothingToCompare));
    // The backup as such is all that is in it.
    EXPECT_EQ(Compare({"size"}, {"INCLUDE /*"}), JobEnd::Errors);
    EXPECT_EQ(Errors().size(), 6u) << fHouse.events.All();
}

TEST_F(EngineCompare, HolesAndFurtherNamesAreComparedForWhatTheyHold) {
    const std::string sparse = fHouse.source + "/sparse";
    WriteWhole(sparse, "island");
    fs::resize_file(sparse, 10'000'000);
    WriteWhole(fHouse.source + "/one", "the same data");
    fs::create_hard_link(fHouse.source + "/one", fHouse.source + "/two");
    fs::create_hard_link(fHouse.source + "/one", fHouse.source + "/three");
    Save();
    const auto write = [&](const std::string& path, off_t at, const std::string& bytes) {
        Change(path, [&] {
            std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
            out.seekp(at);
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        });
    };
    // Zeros are zeros, whether there is room for them or not.
    write(sparse, 3'000'000, std::string(2'000'000, '\0'));
    EXPECT_EQ(Compare(), JobEnd::Good) << fHouse.events.All();
    write(sparse, 9'999'999, "!");
    EXPECT_EQ(Compare(), JobEnd::Errors);
    EXPECT_EQ(Errors(), std::vector<std::string>{"/Source/sparse: file data different"});

    // A copy in place of a name is as good, until it holds something else.
    Change(fHouse.source, [&] {
        fs::remove(fHouse.source + "/three");
        EXPECT_EQ(Shell("cd " + fHouse.source + " && cp -p one three"), "");
    });
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/*", "EXCLUDE /Source/sparse"}), JobEnd::Good)
        << fHouse.events.All();
    write(fHouse.source + "/three", 4, "SAME");
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/*", "EXCLUDE /Source/sparse"}),
              JobEnd::Errors);
    EXPECT_EQ(Errors(), std::vector<std::string>{"/Source/three: file data different"});
    // Without its first name, too.
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/two"}), JobEnd::Good);
    write(fHouse.source + "/two", 0, "THE");
    EXPECT_EQ(Compare({"filedata"}, {"INCLUDE /Source/two"}), JobEnd::Errors);
}

TEST_F(EngineCompare, DamageIsToldAndFactsNeedNoData) {
    for (int i = 0; i < 12; ++i) {
        WriteWhole(fHouse.source + "/" + std::to_string(100 + i),
                   NoiseBytes(1'500'000, 7 + static_cast<uint64_t>(i)));
    }
    fHouse.packer = "KTZstd";
    Save();
    const std::string medium = fHouse.target + "/" + fBackup + "/0001.tar.zst";
    Damage(medium, 9'000'000);
    EXPECT_EQ(Compare({"filedata"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupDataUnreadable) ||
                fHouse.events.Has(LineType::Error, text::kBackupFileHeaderUnreadable))
        << fHouse.events.All();
    EXPECT_FALSE(fHouse.events.HasText(LineType::Totals, "Read Errors:\t\t\t0"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Misscompared:\t\t\t0"));
    EXPECT_GE(fHouse.events.Texts(LineType::File).size(), 8u);
    fs::resize_file(medium, 0);
    EXPECT_EQ(Compare({"size", "mdate", "cdate", "permissions", "uid", "gid"}), JobEnd::Good)
        << fHouse.events.All();

    fHouse.control.onAsked = [&] {
        if (fHouse.control.asked > 3) fHouse.control.aborted = true;
    };
    fHouse.control.asked = 0;
    EXPECT_EQ(Compare({"size"}), JobEnd::Aborted);
    EXPECT_TRUE(fHouse.events.Has(LineType::Totals, text::kCompareAborted));
}

// On the way to what was saved they are in the backup, but nobody asked for them.
TEST_F(EngineCompare, DirectoriesOnTheWayAreNotCompared) {
    fs::create_directories(fHouse.source + "/way/saved");
    ASSERT_EQ(fHouse.Run(fHouse.Order({"INCLUDE /Source/way/saved/*"})), JobEnd::Good);
    fBackup = fHouse.Folders().back();
    WriteWhole(fHouse.source + "/way/beside", "new, and the directory's time");
    EXPECT_EQ(Compare(), JobEnd::Good) << fHouse.events.All();
    fs::permissions(fHouse.source + "/way/saved", fs::perms::owner_all);
    EXPECT_EQ(Compare(), JobEnd::Errors);
    EXPECT_EQ(Errors().size(), 1u) << fHouse.events.All();
}

// What an incremental backup shows is the whole tree of its time.
TEST_F(EngineCompare, BackupThatBuildsOnAnotherIsComparedAsAWhole) {
    for (const char* name : {"a", "b", "c", "d"})
        WriteWhole(fHouse.source + "/" + name, std::string(1000, name[0]));
    Save();
    WriteWhole(fHouse.source + "/b", std::string(2000, 'B'));
    fs::remove(fHouse.source + "/c");
    const std::string first = std::exchange(fBackup, fHouse.Save(core::JobType::Incremental));
    ASSERT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Compare(), JobEnd::Good) << fHouse.events.All();
    fBackup = first;
    EXPECT_EQ(Compare({"filedata"}), JobEnd::Errors);
    EXPECT_EQ(Errors().size(), 2u) << fHouse.events.All();
}

}  // namespace
}  // namespace server

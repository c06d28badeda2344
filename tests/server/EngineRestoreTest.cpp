// Backups brought back by the real engine, compared by means that know nothing of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "core/protocol/Texts.h"
#include "server/sqlite/Database.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::LineType;

class EngineRestore : public testing::Test {
protected:
    void Save() {
        fBackup = fHouse.Save();
        ASSERT_NE(fBackup, "") << fHouse.events.All();
    }
    struct Redirection {
        std::string source, target;
    };
    JobOrder Order(const std::vector<std::string>& rules,
                   const std::vector<Redirection>& redirections = {}) {
        JobOrder order = fHouse.ReadOrder(core::JobType::Restore, fBackup, "", rules);
        BMessage selection = order.description.Get("selection", BMessage());
        BMessage settings = order.description.Get("restore", BMessage());
        for (const auto& [source, target] : redirections) {
            const bool clear = target.empty();
            selection.Add("source", (clear ? "CLEAR   /" : "REDIREC /") + fBackup + source);
            selection.Add("redirect", clear ? " " : target);
        }
        settings.Set("createemptydirs", int32_t{createEmpty});
        settings.Set("createroot", int32_t{createRoot});
        settings.Set("overwrite", int32_t{overwrite});
        order.description.Set("selection", selection);
        order.description.Set("restore", settings);
        return order;
    }
    JobEnd Restore(const std::vector<std::string>& rules,
                   const std::vector<Redirection>& redirections = {}) {
        return fHouse.Run(Order(rules, redirections));
    }
    // The catalogue of the backup, to be lied in.
    void Forge(const char* sql) {
        auto database = Database::Open(fHouse.catalogues->PathOf(fBackup));
        ASSERT_TRUE(database);
        const auto done = database->Execute(sql);
        ASSERT_TRUE(done) << done.error().Text();
    }
    std::string Medium() const { return fHouse.target + "/" + fBackup + "/0001.tar.zst"; }

    // The whole source, to fTo.
    JobEnd RestoreAll() { return Restore({"INCLUDE /Source/*"}, {{"/Source/*", fTo}}); }

    EngineHouse fHouse;
    const std::string fTo = fHouse.NewFolder();
    std::string fBackup;
    int overwrite = 0, createEmpty = 1, createRoot = 0;
};

TEST_F(EngineRestore, TreeWithEverythingComesBackElsewhereAndToItsOwnPlace) {
    MakeNastyTree(fHouse.source);
    const auto before = DescribeTree(fHouse.source);
    Save();
    EXPECT_EQ(RestoreAll(), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fTo)), "");
    EXPECT_TRUE(fHouse.events.Has(LineType::Totals, text::kRestoreGood));
    const Progress& last = fHouse.events.progress.back();
    EXPECT_EQ(last.count, last.maxCount);
    EXPECT_EQ(last.size, last.maxSize);

    for (const auto& entry : fs::directory_iterator(fHouse.source))
        fs::remove_all(entry.path());
    EXPECT_EQ(Restore({"INCLUDE /Source/*"}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fHouse.source)), "");
}

TEST_F(EngineRestore, PathsBeyondWhatOneSystemCallTakes) {
    // 120 levels of 100 bytes: deeper than the levels that stay open, longer than 4096 bytes. On
    // the way down there is a file before and a directory behind, so that the walk has to come back
    // everywhere.
    const std::string name(100, 'd');
    int at = ::open(fHouse.source.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < 120; ++level) {
        ::close(::openat(at, "a file", O_CREAT | O_WRONLY, 0644));
        ASSERT_EQ(::mkdirat(at, name.c_str(), 0755), 0);
        ::mkdirat(at, "z", 0755);
        ::close(
            ::openat(at, ("z/in z " + std::to_string(level)).c_str(), O_CREAT | O_WRONLY, 0644));
        const int next = ::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(at);
        at = next;
    }
    ::close(at);
    const auto before = DescribeTree(fHouse.source);
    Save();
    const std::string names = Shell("zstd -dc " + Medium() + " | tar -tf - | wc -lL");
    EXPECT_EQ(std::stoi(names), 1 + 120 * 4) << names;
    EXPECT_EQ(RestoreAll(), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fTo)), "");
}

TEST_F(EngineRestore, SingleFilesAndRedirectionsLandWhereTheySay) {
    for (const char* path : {"/a/one", "/a/two", "/a/sub/three", "/b/four"}) {
        fs::create_directories(fs::path(fHouse.source + path).parent_path());
        WriteWhole(fHouse.source + path, path);
    }
    fs::create_directories(fHouse.source + "/a/empty");
    Save();
    const std::string other = fHouse.root + "/to/be made";
    EXPECT_EQ(
        Restore({"INCLUDE /Source/a/*", "EXCLUDE /Source/a/two", "INCLUDE /Source/b/four"},
                {{"/Source/a/*", fTo}, {"/Source/a/sub/*", other}, {"/Source/b/four", other}}),
        JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(ReadWhole(fTo + "/one"), "/a/one");
    EXPECT_FALSE(fs::exists(fTo + "/two"));
    EXPECT_TRUE(fs::is_directory(fTo + "/empty"));
    EXPECT_FALSE(fs::exists(fTo + "/sub"));
    EXPECT_EQ(ReadWhole(other + "/three"), "/a/sub/three");
    EXPECT_EQ(ReadWhole(other + "/four"), "/b/four");

    // A directory of its own, no empty ones, and what is cleared goes home.
    createRoot = 1;
    createEmpty = 0;
    fs::remove(fHouse.source + "/a/sub/three");
    fs::remove_all(fTo);
    EXPECT_EQ(Restore({"INCLUDE /Source/a/*"}, {{"/Source/a/*", fTo}, {"/Source/a/sub/*", ""}}),
              JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(ReadWhole(fTo + "/a/two"), "/a/two");
    EXPECT_FALSE(fs::exists(fTo + "/a/empty"));
    EXPECT_EQ(ReadWhole(fHouse.source + "/a/sub/three"), "/a/sub/three");
}

TEST_F(EngineRestore, WhatIsThereStaysOrGoesAsTheModeSays) {
    WriteWhole(fHouse.source + "/old", "saved");
    WriteWhole(fHouse.source + "/new", "saved");
    fs::create_symlink("saved", fHouse.source + "/link");
    fs::create_directory(fHouse.source + "/dir");
    Save();
    const auto reset = [&] {
        fs::remove_all(fTo);
        fs::create_directory(fTo);
        for (const char* name : {"old", "new", "link"})
            WriteWhole(fTo + "/" + name, "there");
        const timespec then[2] = {{1000, 0}, {1000, 0}};
        ::utimensat(AT_FDCWD, (fTo + "/old").c_str(), then, 0);
        fs::create_directory(fTo + "/dir");
        ::chmod((fTo + "/dir").c_str(), 0701);
    };
    const auto restore = [&](int mode) {
        reset();
        overwrite = mode;
        return RestoreAll();
    };
    EXPECT_EQ(restore(0), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(ReadWhole(fTo + "/old") + ReadWhole(fTo + "/new"), "therethere");
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Left as they were:\t\t3"));
    EXPECT_EQ(restore(1), JobEnd::Good);
    EXPECT_EQ(ReadWhole(fTo + "/old") + ReadWhole(fTo + "/new"), "savedthere");
    EXPECT_EQ(restore(2), JobEnd::Good);
    EXPECT_EQ(ReadWhole(fTo + "/old") + ReadWhole(fTo + "/old.1"), "savedthere");
    EXPECT_EQ(fs::read_symlink(fTo + "/link"), "saved");
    EXPECT_EQ(restore(3), JobEnd::Good);
    EXPECT_EQ(ReadWhole(fTo + "/old") + ReadWhole(fTo + "/new"), "savedsaved");
    EXPECT_FALSE(fs::exists(fTo + "/old.1"));

    // On the way only: what a directory is stays.
    reset();
    WriteWhole(fHouse.source + "/dir/file", "x");
    Save();
    EXPECT_EQ(Restore({"INCLUDE /Source/dir/file"}, {{"/Source/*", fTo}}), JobEnd::Good);
    struct stat info;
    ASSERT_EQ(::stat((fTo + "/dir").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0701u);
}

TEST_F(EngineRestore, LinksOnTheWayAreNeverFollowed) {
    fs::create_directories(fHouse.source + "/dir/sub");
    WriteWhole(fHouse.source + "/dir/file", "saved");
    WriteWhole(fHouse.source + "/dir/sub/file", "saved");
    WriteWhole(fHouse.source + "/good", "saved");
    Save();
    const std::string outside = fHouse.root + "/outside";
    fs::create_directory(outside);
    fs::create_directory_symlink(outside, fTo + "/dir");
    EXPECT_EQ(RestoreAll(), JobEnd::Errors);
    EXPECT_TRUE(fs::is_empty(outside));
    EXPECT_EQ(ReadWhole(fTo + "/good"), "saved");
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kDirectoryNotCreated));
    overwrite = 3;  // then the link gives way
    EXPECT_EQ(RestoreAll(), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fs::is_empty(outside));
    EXPECT_EQ(ReadWhole(fTo + "/dir/sub/file"), "saved");
}

TEST_F(EngineRestore, LyingCataloguesLeadNowhere) {
    for (const char* name : {"one", "two", "three"})
        WriteWhole(fHouse.source + "/" + name, name);
    fs::create_hard_link(fHouse.source + "/one", fHouse.source + "/zz link");
    Save();
    const char* lies[] = {
        "UPDATE entries SET name = '../../escaped' WHERE name = CAST('one' AS BLOB)",
        "UPDATE entries SET name = '..' WHERE name = CAST('two' AS BLOB)",
        "UPDATE entries SET name = 'two' WHERE name = CAST('three' AS BLOB)",
        "UPDATE entries SET offset = 7 WHERE link = 0",
        "UPDATE entries SET offset = -1, frame = 9999",
        "UPDATE entries SET mode = 8630, size = 1 << 50",  // a character device
        "UPDATE entries SET link = id",
        "UPDATE entries SET link = 1",
        "UPDATE frames SET content = 1 << 40",
        "UPDATE frames SET size = 1 << 40",
        "UPDATE frames SET medium = -3, offset = -5",
        "UPDATE directories SET first = 0, count = 2000000000",
        "UPDATE directories SET first = 1 WHERE id = 1",
        "UPDATE entries SET id = -id",
    };
    const std::string whole = ReadWhole(fHouse.catalogues->PathOf(fBackup));
    for (const char* lie : lies) {
        WriteWhole(fHouse.catalogues->PathOf(fBackup), whole);
        Forge(lie);
        fs::remove_all(fTo);
        fs::create_directory(fTo);
        EXPECT_EQ(RestoreAll(), JobEnd::Errors) << lie << fHouse.events.All();
        EXPECT_FALSE(fs::exists(fHouse.root + "/escaped")) << lie;
        for (const auto& entry : fs::directory_iterator(fTo)) {
            const std::string name = entry.path().filename();
            EXPECT_EQ(ReadWhole(entry.path()), name == "zz link" ? "one" : name) << lie;
        }
    }
}

TEST_F(EngineRestore, DamageCostsTheEntriesOfItsFrameAndNoOther) {
    fHouse.packer = "KTZstd";
    for (int i = 0; i < 12; ++i)
        WriteWhole(fHouse.source + "/" + std::to_string(100 + i), NoiseBytes(1'500'000, 7 + i));
    const auto before = DescribeTree(fHouse.source);
    Save();
    Damage(Medium(), 9'000'000);
    EXPECT_EQ(RestoreAll(), JobEnd::Errors);
    int missing = 0;
    for (const auto& [path, facts] : before) {
        if (path == "/" || path.empty()) continue;
        if (fs::exists(fTo + path)) {
            EXPECT_EQ(ReadWhole(fTo + path), ReadWhole(fHouse.source + path)) << path;
        } else {
            ++missing;
            EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source" + path + "'")) << path;
        }
    }
    EXPECT_GE(missing, 1);
    EXPECT_LE(missing, 4);
}

TEST_F(EngineRestore, CheckReadsEveryByte) {
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000, 3));
    Save();
    const JobOrder check = fHouse.ReadOrder(core::JobType::Verify, fBackup, "", {"INCLUDE /*"});
    EXPECT_EQ(fHouse.Run(check), JobEnd::Good) << fHouse.events.All();

    const auto folder = fHouse.target + "/" + fBackup;
    for (const auto& file : fs::directory_iterator(folder)) {
        const std::string whole = ReadWhole(file.path());
        Damage(file.path(), whole.size() / 3);
        EXPECT_EQ(fHouse.Run(check), JobEnd::Errors) << file.path();
        fs::remove(file.path());
        EXPECT_EQ(fHouse.Run(check), JobEnd::Errors) << file.path();
        WriteWhole(file.path(), whole);
    }
    Damage(Medium(), fs::file_size(Medium()) - 6'000'000);
    EXPECT_EQ(fHouse.Run(check), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "/Source/noise")) << fHouse.events.All();
}

TEST_F(EngineRestore, FullTargetEndsWithItsLineAndNoHalfFile) {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
    for (int i = 0; i < 8; ++i)
        WriteWhole(fHouse.source + "/" + std::to_string(i), NoiseBytes(400'000, i));
    Save();
    if (::mount("tmpfs", fTo.c_str(), "tmpfs", 0, "size=1500k") != 0) {
        GTEST_SKIP() << "no mounting here";
    }
    EXPECT_EQ(RestoreAll(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kDestinationFull)) << fHouse.events.All();
    int whole = 0;
    for (const auto& entry : fs::directory_iterator(fTo)) {
        EXPECT_EQ(ReadWhole(entry.path()),
                  ReadWhole(fHouse.source + "/" + entry.path().filename().string()));
        ++whole;
    }
    EXPECT_GE(whole, 1);
    ::umount2(fTo.c_str(), MNT_DETACH);
}

TEST_F(EngineRestore, PlainUserGetsWhatHeMayHaveAndIsToldTheRest) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    WriteWhole(fHouse.source + "/his", "x");
    WriteWhole(fHouse.source + "/runs", "x");
    ASSERT_EQ(::chown((fHouse.source + "/his").c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod((fHouse.source + "/runs").c_str(), 04755), 0);
    ASSERT_EQ(::mknod((fHouse.source + "/device").c_str(), S_IFCHR | 0600, 0x103), 0);
    Save();
    EXPECT_EQ(Shell("chown -R 65534 " + fHouse.target + " " + fHouse.root + "/catalogues"), "");
    fs::permissions(fHouse.root, fs::perms::all);
    fs::permissions(fTo, fs::perms::all);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(9);
        const JobEnd end = RestoreAll();
        const bool told = fHouse.events.HasText(LineType::Detail, "/Source/runs: the owner") &&
                          fHouse.events.HasText(LineType::Error, "1 owners could not") &&
                          fHouse.events.HasText(LineType::Error, "/device");
        ::_exit(end == JobEnd::Errors && told ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    struct stat info;
    ASSERT_EQ(::stat((fTo + "/runs").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u) << "somebody else's program must not run as him";
    EXPECT_EQ(info.st_uid, 65534u);
}

TEST_F(EngineRestore, AbortEndsItAndMissingThingsAreSaid) {
    WriteWhole(fHouse.source + "/a", NoiseBytes(30'000'000, 1));
    Save();
    fHouse.control.onAsked = [&] {
        if (fHouse.control.asked > 3) fHouse.control.aborted = true;
    };
    fHouse.control.asked = 0;
    EXPECT_EQ(RestoreAll(), JobEnd::Aborted);
    EXPECT_TRUE(fs::is_empty(fTo));
    fHouse.control.onAsked = nullptr;
    fHouse.control.aborted = false;

    EXPECT_EQ(Restore({"INCLUDE /Source/nothing"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kNothingToRestore));
    fs::rename(fHouse.target, fHouse.target + ".away");
    EXPECT_EQ(Restore({"INCLUDE /Source/*"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupHeaderUnreadable));
    fBackup = "20200101T000000-00000001";
    EXPECT_EQ(Restore({"INCLUDE /Source/*"}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupMissing));
}

}  // namespace
}  // namespace server

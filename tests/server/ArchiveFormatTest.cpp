// Names, the manifest, and the tar headers as stock tar reads them.
#include <gtest/gtest.h>

#include "server/archive/Format.h"
#include "server/archive/Manifest.h"
#include "server/archive/TarMember.h"
#include "tests/TemporaryFolder.h"
#include "tests/server/Trees.h"

namespace server::archive {
namespace {

TEST(ArchiveNames, AreDayTimeAndJob) {
    EXPECT_EQ(BackupName(1795378530, 26), "20261122T201530-0000001a");
    EXPECT_TRUE(IsBackupName("20261122T201530-0000001a"));
    EXPECT_TRUE(IsBackupName(BackupName(0, INT32_MAX)));
    for (const char* other :
         {"", "photos", "20261122T201530-0000001A", "20261122T201530-0000001a.partial",
          "20261122T201530-0000001ab", "2026112xT201530-0000001a", "20261122 201530-0000001a"}) {
        EXPECT_FALSE(IsBackupName(other)) << other;
    }
    EXPECT_EQ(BackupOfFolder("20261122T201530-0000001a.partial"), "20261122T201530-0000001a");
    EXPECT_EQ(BackupOfFolder("20261122T201530-0000001a"), "20261122T201530-0000001a");
    EXPECT_FALSE(BackupOfFolder("photos.partial"));
    EXPECT_EQ(MediumFile(1, ".zst"), "0001.tar.zst");
    EXPECT_EQ(MediumFile(12345, ""), "12345.tar");
}

Manifest SomeManifest() {
    Manifest manifest;
    manifest.name = "20261122T201530-0000001a";
    manifest.title = "Täglich \"alles\"\n";
    manifest.type = core::JobType::Differential;
    manifest.jobId = 26;
    manifest.baseId = 7;
    manifest.baseBackup = "20261101T000000-00000007";
    manifest.start = 1795378530;
    manifest.end = 1795378599;
    manifest.host = "desk";
    manifest.volumes = {{"System", "/", "ext4"}, {"\xff\xfe", "/mnt/\xff\xfe", "btrfs"}};
    manifest.selection = {"INCLUDE /System/home/*", "EXCLUDE /\xff\xfe/tmp"};
    manifest.compressor = "KTZstd";
    manifest.stockCommand = "zstd -d";
    manifest.media = {{"0001.tar.zst", 5'000'000'000, std::string(64, 'a')},
                      {"0002.tar.zst", 1, std::string(64, 'b')}};
    manifest.entries = 3;
    manifest.files = 2;
    manifest.bytes = 6'000'000'000;
    manifest.errors = 1;
    return manifest;
}

TEST(ArchiveManifest, ComesBackAsItWas) {
    const auto read = ReadManifest(WriteManifest(SomeManifest()));
    ASSERT_TRUE(read) << read.error().Text();
    EXPECT_TRUE(*read == SomeManifest());
}

TEST(ArchiveManifest, RefusesWhatIsNone) {
    const Bytes good = WriteManifest(SomeManifest());
    const std::string text(good.begin(), good.end());
    auto kindOf = [](const std::string& json) {
        const auto read = ReadManifest(Bytes(json.begin(), json.end()));
        return read ? kit::ErrorKind::None : read.error().kind;
    };
    auto with = [&](const std::string& from, const std::string& to) {
        std::string changed = text;
        EXPECT_NE(changed.find(from), std::string::npos) << from;
        return kindOf(changed.replace(changed.find(from), from.size(), to));
    };
    for (size_t length = 0; length + 2 < text.size(); ++length) {
        EXPECT_EQ(kindOf(text.substr(0, length)), kit::ErrorKind::Damaged) << length;
    }
    EXPECT_EQ(kindOf("[]"), kit::ErrorKind::Damaged);
    EXPECT_EQ(kindOf("{\"format\":7}"), kit::ErrorKind::Damaged);
    EXPECT_EQ(with("\"version\": 1", "\"version\": 2"), kit::ErrorKind::Unsupported);
    EXPECT_EQ(with("20261122T201530-0000001a", "../../etc"), kit::ErrorKind::Damaged);
    EXPECT_EQ(with("0001.tar.zst", "../0001.tar.zst"), kit::ErrorKind::Damaged);
    EXPECT_EQ(with("5000000000", "-1"), kit::ErrorKind::Damaged);
    EXPECT_EQ(with("\"job_id\": 26", "\"job_id\": \"26\""), kit::ErrorKind::Damaged);
    EXPECT_EQ(kindOf(std::string(100'000, '[')), kit::ErrorKind::Damaged);
}

// Lists an archive of one member with stock tar.
std::string Listed(const TarMember& member) {
    const TemporaryFolder folder;
    Bytes tar;
    AppendTarHeader(member, tar);
    EXPECT_EQ(tar.size() % 512, 0u);
    // An archive that announces more than it holds is listed all the same, with a complaint behind.
    tar.resize(tar.size() + 1024);
    WriteWhole(folder / "a.tar", {reinterpret_cast<const char*>(tar.data()), tar.size()});
    return Shell("TZ=UTC tar --numeric-owner --full-time -tvf " + (folder / "a.tar") +
                 " 2>/dev/null | head -1");
}

TEST(ArchiveTar, NumbersBeyondTheFieldsOfUstar) {
    TarMember member;
    member.path = "V/file";
    member.mode = 0640;
    member.uid = 4'294'967'294u;
    member.gid = 2'097'152;
    member.size = int64_t{9} << 30;
    member.seconds = 9'000'000'000;
    member.nanoseconds = 50'000'000;
    EXPECT_EQ(Listed(member),
              "-rw-r----- 4294967294/2097152 9663676416 2255-03-14 16:00:00.05 V/file\n");
    member.uid = member.gid = 2'097'151;
    member.size = 8589934591;
    member.seconds = 8589934591;
    member.nanoseconds = 0;
    EXPECT_EQ(Listed(member), "-rw-r----- 2097151/2097151 8589934591 2242-03-16 12:56:31 V/file\n");
}

TEST(ArchiveTar, PathsOfEveryLength) {
    // One component, and directories of ten bytes each: every way in which a path may be split or
    // not.
    Bytes tar;
    std::string wanted;
    for (size_t length = 1; length <= 400; ++length) {
        for (bool deep : {false, true}) {
            std::string path(length, 'p');
            for (size_t i = 10; deep && i + 1 < length; i += 11)
                path[i] = '/';
            for (TarType type : {TarType::File, TarType::Directory, TarType::SymbolicLink}) {
                TarMember member;
                member.type = type;
                member.path = path;
                if (type == TarType::SymbolicLink) member.link = path;
                AppendTarHeader(member, tar);
                EXPECT_EQ(tar.size() % 512, 0u);
                wanted += path +
                          (type == TarType::Directory      ? "/"
                           : type == TarType::SymbolicLink ? " -> " + path
                                                           : "") +
                          "\n";
            }
        }
    }
    const TemporaryFolder folder;
    tar.resize(tar.size() + 1024);
    WriteWhole(folder / "a.tar", {reinterpret_cast<const char*>(tar.data()), tar.size()});
    const std::string listed =
        Shell("tar -tvf " + (folder / "a.tar") + " | sed 's/^.*[0-9]:[0-9][0-9] //'");
    EXPECT_TRUE(listed == wanted);
}

TEST(ArchiveTar, RecordsOfEveryLengthCountThemselves) {
    // The length of a record is part of it: one more digit where 10, 100, 1000 bytes are passed.
    for (size_t size = 0; size < 1200; ++size) {
        PaxRecords records;
        records.Add("k", std::string(size, 'v'));
        const Bytes& data = records.Data();
        const std::string text(data.begin(), data.end());
        EXPECT_EQ(std::stoul(text), text.size());
        EXPECT_EQ(text.back(), '\n');
    }
}

TEST(ArchiveTar, AccessListsAreWordsWithNumbers) {
    const Bytes kernel = {2,    0, 0, 0,                          //
                          1,    0, 6, 0, 255,  255,  255,  255,   // user::rw-
                          2,    0, 5, 0, 0xd2, 4,    0,    0,     // user:1234:r-x
                          4,    0, 4, 0, 255,  255,  255,  255,   // group::r--
                          8,    0, 1, 0, 0xff, 0xff, 0xff, 0xfe,  // group:4278190079:--x
                          0x10, 0, 7, 0, 255,  255,  255,  255,   // mask::rwx
                          0x20, 0, 0, 0, 255,  255,  255,  255};  // other::---
    PaxRecords records;
    ASSERT_TRUE(records.AddAccessList("SCHILY.acl.access", kernel));
    const std::string text(records.Data().begin(), records.Data().end());
    EXPECT_NE(text.find("=user::rw-,user:1234:r-x,group::r--,group:4278190079:--x,mask::rwx,"
                        "other::---\n"),
              std::string::npos)
        << text;
    for (size_t length = 0; length < kernel.size(); ++length) {
        if (length % 8 == 4) continue;
        EXPECT_FALSE(records.AddAccessList("k", std::span(kernel).first(length))) << length;
    }
    Bytes newer = kernel;
    newer[0] = 3;
    EXPECT_FALSE(records.AddAccessList("k", newer));
}

}  // namespace
}  // namespace server::archive

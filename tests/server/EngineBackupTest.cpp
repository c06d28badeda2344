// Whole backups by the real engine, restored with stock tools.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "core/protocol/Texts.h"
#include "server/archive/Format.h"
#include "server/archive/Readme.h"
#include "server/catalogue/CatalogueReader.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
using core::JobEnd;
using core::LineType;

class EngineBackup : public testing::Test {
protected:
    std::string OnlyFolder() {
        const auto folders = fHouse.Folders();
        EXPECT_EQ(folders.size(), 1u);
        return folders.empty() ? "" : folders[0];
    }
    static std::set<std::string> PathsIn(const std::string& root) {
        std::set<std::string> paths;
        for (const auto& [path, facts] : DescribeTree(root))
            paths.insert(path);
        return paths;
    }
    EngineHouse fHouse;
};

class EngineRoundTrip : public EngineBackup, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, EngineRoundTrip, testing::Values("KTNone", "KTZstd", "KTLz4", "KTXz"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(EngineRoundTrip, TreeWithEverythingComesBackByStockTools) {
    MakeNastyTree(fHouse.source);
    const auto before = DescribeTree(fHouse.source);
    fHouse.packer = GetParam();
    ASSERT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
    const std::string restored = fHouse.Unpack(OnlyFolder());
    ASSERT_NE(restored, "");
    EXPECT_EQ(Differences(before, DescribeTree(restored + "/Source")), "");
    EXPECT_EQ(TreeDifferences(fHouse.source, restored + "/Source"), "")
        << "the backup changed the source";
}

TEST_F(EngineBackup, LibarchiveReadsTheSame) {
    if (Shell("command -v bsdtar").find("exit") != std::string::npos) {
        GTEST_SKIP() << "bsdtar is not installed";
    }
    MakeNastyTree(fHouse.source);
    // What it reads differently, whoever wrote it: fractions of seconds before 1970, "=" in the
    // name of an attribute, long targets of links that are no UTF-8.
    for (const char* name : {"docs/size 511", "docs/size 512", "link not utf-8"}) {
        fs::remove(fHouse.source + "/" + name);
    }
    ::removexattr((fHouse.source + "/docs/letter").c_str(), "user.a=b%c");
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const std::string into = fHouse.root + "/by bsdtar";
    fs::create_directory(into);
    EXPECT_EQ(Shell("cd '" + into + "' && cat " + fHouse.target + "/" + OnlyFolder() +
                    "/0*.tar.zst | zstd -dc | LC_ALL=C.UTF-8 bsdtar -xpf - --numeric-owner"
                    " --acls --xattrs"),
              "");
    EXPECT_EQ(TreeDifferences(fHouse.source, into + "/Source"), "");
}

TEST_F(EngineBackup, FoldersHoldWhatTheFormatSays) {
    WriteWhole(fHouse.source + "/a", "abc");
    WriteWhole(fHouse.source + "/b", std::string(100'000, 'b'));
    fHouse.config.now = [] { return 1795378530; };
    JobOrder order = fHouse.Order();
    order.id = 26;
    ASSERT_EQ(fHouse.Run(order), JobEnd::Good);
    EXPECT_EQ(OnlyFolder(), "20261122T201530-0000001a");
    std::set<std::string> files;
    for (const auto& entry : fs::directory_iterator(fHouse.target + "/" + OnlyFolder())) {
        files.insert(entry.path().filename());
    }
    EXPECT_EQ(files, (std::set<std::string>{"0001.tar.zst", "SHA256SUMS", "backup.json",
                                            "catalogue.db.zst"}));
    const archive::Manifest manifest = fHouse.ManifestOf(OnlyFolder());
    EXPECT_EQ(manifest.title, "A test");
    EXPECT_EQ(manifest.jobId, 26);
    EXPECT_EQ(manifest.files, 2);
    EXPECT_EQ(manifest.bytes, 100'003);
    EXPECT_EQ(manifest.entries, 3);
    EXPECT_EQ(manifest.errors, 0);
    ASSERT_EQ(manifest.volumes.size(), 1u);
    EXPECT_EQ(manifest.volumes[0].name, "Source");
    ASSERT_EQ(manifest.media.size(), 1u);
    EXPECT_EQ(static_cast<uintmax_t>(manifest.media[0].size),
              fs::file_size(fHouse.target + "/" + OnlyFolder() + "/0001.tar.zst"));
    EXPECT_EQ(Shell("cd " + fHouse.target + "/2* && sha256sum -c SHA256SUMS | grep -c OK"), "3\n");
    // The copy of the catalogue is the catalogue.
    EXPECT_EQ(
        Shell("zstd -dqc " + fHouse.target + "/2*/catalogue.db.zst > " + fHouse.root + "/copy.db"),
        "");
    auto copy = CatalogueReader::Open(fHouse.root + "/copy.db");
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->Lookup("Source/b")->size, 100'000);
    // Nobody else may look into it.
    struct stat info;
    ASSERT_EQ(::stat((fHouse.target + "/" + OnlyFolder()).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 077, 0u);
}

TEST_F(EngineBackup, EveryEntryIsWhereTheCatalogueSays) {
    MakeNastyTree(fHouse.source);
    for (int i = 0; i < 300; ++i) {
        WriteWhole(fHouse.source + "/docs/noise" + std::to_string(i), NoiseBytes(70'000, i));
    }
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const std::string folder = fHouse.target + "/" + OnlyFolder();
    auto reader = CatalogueReader::Open(fHouse.root + "/catalogues/" + OnlyFolder() + ".db");
    ASSERT_TRUE(reader);
    std::map<int64_t, std::string> unpacked;
    int checked = 0;
    for (const auto& [path, fact] : DescribeTree(fHouse.source)) {
        const auto entry = reader->Lookup("Source" + path);
        ASSERT_TRUE(entry) << path;
        int64_t number = entry->frame, offset = entry->offset;
        if (S_ISDIR(entry->mode)) {
            const auto directory = reader->DirectoryAt(entry->id);
            ASSERT_TRUE(directory) << path;
            number = directory->frame;
            offset = directory->offset;
        }
        if (!unpacked.contains(number)) {
            const auto frame = reader->FrameAt(number);
            ASSERT_TRUE(frame);
            // Each frame by itself is something that the stock tool unpacks.
            unpacked[number] = Shell("tail -c +" + std::to_string(frame->offset + 1) + " " +
                                     folder + "/" + archive::MediumFile(frame->medium, ".zst") +
                                     " | head -c " + std::to_string(frame->size) + " | zstd -dc");
            EXPECT_EQ(static_cast<int64_t>(unpacked[number].size()), frame->content);
        }
        // From there on it is a tar that begins with the entry.
        const std::string rest = unpacked[number].substr(static_cast<size_t>(offset));
        ASSERT_GE(rest.size(), 512u) << path;
        EXPECT_EQ(rest.substr(257, 5), "ustar") << path;
        if (++checked % 17 != 0) continue;
        WriteWhole(fHouse.root + "/rest.tar", rest);
        const std::string name = Shell("tar --quoting-style=literal -tf " + fHouse.root +
                                       "/rest.tar 2>/dev/null | head -1");
        const std::string wanted = "Source" + path + (S_ISDIR(entry->mode) ? "/" : "");
        EXPECT_EQ(name.substr(0, wanted.find('\n')), wanted.substr(0, wanted.find('\n')) + "\n");
    }
    EXPECT_GT(checked, 300);
}

TEST_F(EngineBackup, SplitMediaJoinToOneStream) {
    constexpr int64_t kLimit = 16 << 20;
    fHouse.volume.Set("mediasize", kLimit);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(50'000'000));
    WriteWhole(fHouse.source + "/words", std::string(1000, 'w'));
    // How each compressor's frames are found in them is tested where they are inserted.
    for (const char* packer : {"KTNone", "KTZstd"}) {
        fHouse.packer = packer;
        const std::string folder = fHouse.Save();
        ASSERT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
        const auto manifest = fHouse.ManifestOf(folder);
        // A frame of noise gets a little longer by any of them, so one less fits.
        const size_t media = std::string(packer) == "KTNone" ? 3 : 4;
        ASSERT_EQ(manifest.media.size(), media) << packer;
        for (const auto& medium : manifest.media)
            EXPECT_LE(medium.size, kLimit);
        // KTNone's frames divide the limit: a medium is filled to the last byte.
        if (std::string(packer) == "KTNone") {
            EXPECT_EQ(manifest.media[0].size, kLimit);
        }
        const std::string restored = fHouse.Unpack(folder);
        EXPECT_EQ(TreeDifferences(fHouse.source, restored + "/Source"), "");
        const BMessage list = *fHouse.catalogues->List("/" + folder + "/Source", {});
        EXPECT_EQ(list.Get<int32_t>("medianr", 0, 0), 1);
        EXPECT_EQ(list.Get<int32_t>("medianr", 0, 1), static_cast<int32_t>(media));
    }
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "Backup data to media no. #4..."));
    EXPECT_FALSE(fHouse.events.Has(LineType::Heading, core::text::kBackupData));
}

TEST_F(EngineBackup, MediaThatHoldNoFrameAreRefused) {
    WriteWhole(fHouse.source + "/a", "a");
    for (int64_t size : {int64_t{100}, archive::kMinMediaSize - 1}) {
        fHouse.volume.Set("mediasize", size);
        EXPECT_EQ(fHouse.Run(), JobEnd::Errors);
        EXPECT_TRUE(fHouse.Folders().empty());
    }
    fHouse.volume.Set("mediasize", archive::kMinMediaSize);
    EXPECT_EQ(fHouse.Run(), JobEnd::Good);
}

TEST_F(EngineBackup, RulesDecideWhatIsTaken) {
    for (const char* path : {"keep/a", "keep/tmp/b", "keep/tmp/wanted", "other/c", "keeper"}) {
        fs::create_directories(fs::path(fHouse.source + "/" + path).parent_path());
        WriteWhole(fHouse.source + "/" + path, path);
    }
    ASSERT_EQ(fHouse.Run(fHouse.Order({"INCLUDE /Source/keep/*", "EXCLUDE /Source/keep/tmp/*",
                                       "INCLUDE /Source/keep/tmp/wanted"})),
              JobEnd::Good);
    const std::string restored = fHouse.Unpack(OnlyFolder());
    EXPECT_EQ(PathsIn(restored),
              (std::set<std::string>{"/Source", "/Source/keep", "/Source/keep/a",
                                     "/Source/keep/tmp", "/Source/keep/tmp/wanted"}));
}

TEST_F(EngineBackup, NothingSelectedAndUnknownSources) {
    WriteWhole(fHouse.source + "/a", "a");
    const std::vector<std::vector<std::string>> nothing = {
        {}, {"EXCLUDE /Source/*"}, {"INCLUDE /Source/*", "EXCLUDE /Source/*"}};
    for (const auto& rules : nothing) {
        EXPECT_EQ(fHouse.Run(fHouse.Order(rules)), JobEnd::Errors);
        EXPECT_TRUE(fHouse.events.Has(LineType::Error, core::text::kNothingToBackUp));
        EXPECT_TRUE(fHouse.Folders().empty());
    }
    // What is there is saved, what is not is named.
    EXPECT_EQ(fHouse.Run(fHouse.Order(
                  {"INCLUDE /Source/a", "INCLUDE /Source/missing", "INCLUDE /Elsewhere/*"})),
              JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "can't access source '/Source/missing'"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "can't access source '/Elsewhere'"));
    EXPECT_EQ(fHouse.catalogues->Backups().size(), 1u);
}

TEST_F(EngineBackup, TheServersOwnFilesAndSocketsAreLeftOut) {
    const kit::UniqueFd socket = MakeSocket(fHouse.source + "/socket");
    WriteWhole(fHouse.source + "/a", "a");
    fs::create_directory(fHouse.source + "/backups");
    fHouse.target = fHouse.source + "/backups";
    fHouse.volume.Set("path", fHouse.target);
    WriteWhole(fHouse.target + "/my own file", "stays mine");
    fHouse.catalogues = std::make_unique<CatalogueStore>(fHouse.source + "/catalogues");
    ASSERT_TRUE(fHouse.catalogues->Open());
    WriteWhole(fHouse.source + "/server.db", "changes");
    WriteWhole(fHouse.source + "/server.db-wal", "changes too");
    fHouse.config.ownFiles = {fHouse.source + "/server.db"};
    ASSERT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
    ASSERT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(
        fHouse.events.HasText(LineType::Heading, "Left out, the backups in the destination"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Detail, "/Source/socket"));
    const std::string restored = fHouse.Unpack(fHouse.Folders().back());
    auto files = PathsIn(restored + "/Source");
    std::erase_if(files, [](const std::string& path) { return path.ends_with(".db"); });
    EXPECT_EQ(files,
              (std::set<std::string>{"/a", "/backups", "/backups/my own file", "/catalogues"}));
}

TEST_F(EngineBackup, MountsAreNotCrossed) {
    fs::create_directory(fHouse.source + "/mounted");
    WriteWhole(fHouse.source + "/a", "a");
    const std::string mount = "'" + fHouse.source + "/mounted'";
    if (!Shell("mount -t tmpfs none " + mount).empty()) {
        GTEST_SKIP() << "needs the right to mount";
    }
    WriteWhole(fHouse.source + "/mounted/foreign", "x");
    // A bind mount is on the same device: only the mount itself tells it.
    fs::create_directory(fHouse.source + "/bound");
    Shell("mount --bind '" + fHouse.source + "' '" + fHouse.source + "/bound'");
    const JobEnd end = fHouse.Run();
    Shell("umount '" + fHouse.source + "/bound' " + mount);
    ASSERT_EQ(end, JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.HasText(LineType::Detail, "/Source/mounted"));
    const std::string restored = fHouse.Unpack(OnlyFolder());
    EXPECT_EQ(PathsIn(restored + "/Source"), (std::set<std::string>{"/a", "/bound", "/mounted"}));
}

TEST_F(EngineBackup, ReportTellsTheWholeCourse) {
    fs::create_directory(fHouse.source + "/dir");
    WriteWhole(fHouse.source + "/dir/file", std::string(3'000'000, 'x'));
    JobOrder order = fHouse.Order({"INCLUDE /Source/*", "EXCLUDE /Source/var/*"});
    ASSERT_EQ(fHouse.Run(order), JobEnd::Good);
    const Recorder& said = fHouse.events;
    EXPECT_EQ(said.Texts(LineType::Heading).at(0), "Starting backup 'A test':");
    for (int32_t id :
         {core::text::kDestinationIs, core::text::kCapacityIs, core::text::kFreeSpaceIs,
          core::text::kRemovableNo, core::text::kOverwriteDestinationNo, core::text::kBackupModeIs,
          core::text::kStartIs, core::text::kScanningSources, core::text::kBackupData}) {
        EXPECT_TRUE(said.Has(LineType::Heading, id)) << id;
    }
    EXPECT_EQ(said.Texts(LineType::Volume), std::vector<std::string>{"Source"});
    EXPECT_EQ(said.Texts(LineType::Directory),
              (std::vector<std::string>{"/Source", "/Source/dir"}));
    EXPECT_EQ(said.Texts(LineType::File), std::vector<std::string>{"/Source/dir/file"});
    EXPECT_TRUE(said.HasText(LineType::Totals, "Files saved:\t\t1"));
    EXPECT_TRUE(said.HasText(LineType::Totals, "Bytes saved:\t\t2.9 MB"));
    EXPECT_TRUE(said.Has(LineType::Totals, core::text::kTimeTaken));
    EXPECT_TRUE(said.Has(LineType::Totals, core::text::kBackupGood));
    EXPECT_TRUE(said.Texts(LineType::Error).empty());
    ASSERT_FALSE(said.progress.empty());
    EXPECT_EQ(said.progress.back().count, 1);
    EXPECT_EQ(said.progress.back().maxCount, 1);
    EXPECT_EQ(said.progress.back().size, 3'000'000);
    EXPECT_EQ(said.progress.back().maxSize, 3'000'000);
}

TEST_F(EngineBackup, OverwriteRemovesTheOldWhenTheNewStands) {
    WriteWhole(fHouse.source + "/a", "a");
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    fs::create_directory(fHouse.target + "/20200101T000000-00000001.partial");
    fs::create_directory(fHouse.target + "/photos");
    fHouse.volume.Set("overwrite", int32_t{1});
    JobOrder bad = fHouse.Order({"INCLUDE /Nowhere/*"});
    EXPECT_EQ(fHouse.Run(bad), JobEnd::Errors);
    EXPECT_EQ(fHouse.Folders().size(), 4u) << "a failed backup removes nothing";
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const auto folders = fHouse.Folders();
    ASSERT_EQ(folders.size(), 2u);
    EXPECT_EQ(folders[1], "photos");
    ASSERT_EQ(fHouse.catalogues->Backups().size(), 1u);
    EXPECT_EQ(fHouse.catalogues->Backups()[0].name, folders[0]);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "Deleting Backup 'A test' (ID: 1)"));
}

TEST_F(EngineBackup, JobsThatCannotRunSayWhy) {
    WriteWhole(fHouse.source + "/a", "a");
    auto errorOf = [&](JobOrder order) {
        EXPECT_EQ(fHouse.Run(order), JobEnd::Errors);
        for (const auto& said : fHouse.events.lines) {
            if (said.type == LineType::Error) return said.textId;
        }
        return -1;
    };
    JobOrder order = fHouse.Order();
    order.description.Set("addon", "KTMissing");
    EXPECT_EQ(errorOf(order), core::text::kAddOnNotLoaded);
    order.description.Set("addon", "../compressors/KTZstd");
    EXPECT_EQ(errorOf(order), core::text::kAddOnNotLoaded);
    order.description.Remove("addon");
    EXPECT_EQ(errorOf(order), core::text::kNoDestination);
    order = fHouse.Order();
    order.description.Set("volume", BMessage());
    EXPECT_EQ(errorOf(order), core::text::kNoDestination);
    order = fHouse.Order();
    order.description.Set("bak_addonpacker", "KTMissing");
    EXPECT_EQ(errorOf(order), core::text::kLine);
    fHouse.volume.Set("path", fHouse.root + "/nowhere");
    EXPECT_EQ(errorOf(fHouse.Order()), core::text::kDestinationNoAccess);
    fHouse.volume.Set("path", fHouse.target);
    order = fHouse.Order();
    BMessage start;
    start.Add("passonoff", int32_t{1});
    start.Add("password", "secret");
    order.description.Add("start_info", start);
    EXPECT_EQ(errorOf(order), core::text::kLine);
    order = fHouse.Order();
    order.type = static_cast<core::JobType>(99);
    EXPECT_EQ(errorOf(order), core::text::kLine);
    EXPECT_TRUE(fHouse.Folders().empty());
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
}

TEST_F(EngineBackup, ReadmeIsTrueWordByWord) {
    WriteWhole(fHouse.source + "/first", NoiseBytes(9'000'000, 1));
    fs::create_directories(fHouse.source + "/home/anna");
    WriteWhole(fHouse.source + "/home/anna/letter.txt", "Dear reader");
    WriteWhole(fHouse.source + "/home/last", NoiseBytes(8'500'000, 2));
    fHouse.volume.Set("mediasize", archive::kMinMediaSize);
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const std::string folder = fHouse.target + "/" + OnlyFolder();
    const std::string text = ReadWhole(fHouse.target + "/README.txt");
    ASSERT_EQ(text, archive::ReadmeText());
    std::vector<std::string> commands;
    for (size_t at = 0; (at = text.find("\n    $ ", at)) != std::string::npos; ++at) {
        commands.push_back(text.substr(at + 7, text.find('\n', at + 7) - at - 7));
    }
    auto command = [&](const std::string& begin, const std::string& part) {
        for (std::string found : commands) {
            if (!found.starts_with(begin) || found.find(part) == std::string::npos) continue;
            // The one thing that a reader has to put in place of the example.
            const size_t volume = found.find("System/home");
            if (volume != std::string::npos) found.replace(volume, 6, "Source");
            return found;
        }
        ADD_FAILURE() << begin << part;
        return std::string();
    };
    auto run = [&](const std::string& what) {
        return Shell("cd " + folder + " && set -o pipefail; " + what);
    };
    auto fresh = [&] { run("rm -rf ../restored; " + command("mkdir", "restored")); };

    const std::string checked = run(command("sha256sum", "-c"));
    EXPECT_EQ(checked.find("exit"), std::string::npos) << checked;
    EXPECT_NE(
        run(command("cat", ".zst) | zstd -dc | tar -tvf")).find("Source/home/anna/letter.txt\n"),
        std::string::npos);
    fresh();
    EXPECT_EQ(run(command("cat", ".zst) | zstd -dc | tar -xpf")), "");
    EXPECT_EQ(TreeDifferences(fHouse.source, fHouse.target + "/restored/Source"), "");
    fresh();
    EXPECT_EQ(run(command("cat", "letter.txt'")), "");
    const auto one = DescribeTree(fHouse.target + "/restored");
    EXPECT_TRUE(one.contains("/Source/home/anna/letter.txt"));
    EXPECT_EQ(one.size(), 4u);

    // The other endings. "As in step 3" of step 6: the ending and the tool are replaced.
    for (const char* packer : {"KTNone", "KTLz4", "KTXz"}) {
        fHouse.packer = packer;
        ASSERT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
        std::string other;
        for (const std::string& found : fHouse.Folders()) {
            if (found != "restored" && fHouse.target + "/" + found != folder)
                other = fHouse.target + "/" + found;
        }
        const std::string media = "*.tar" + fHouse.Ending();
        const auto runThere = [&](std::string what) {
            constexpr std::string_view kExample = "*.tar.zst";
            for (size_t at = 0; (at = what.find(kExample, at)) != std::string::npos; ++at)
                what.replace(at, kExample.size(), media);
            if (const size_t at = what.find("zstd -dc | tail"); at != std::string::npos)
                what.replace(at, 8, fHouse.Unpacker());
            return Shell("cd " + other + " && set -o pipefail; " + what);
        };
        EXPECT_EQ(runThere(command("sha256sum", "-c")).find("exit"), std::string::npos) << packer;
        EXPECT_NE(runThere(command("cat $(ls -v " + media + ")", "-tvf")).find("letter.txt\n"),
                  std::string::npos)
            << packer;
        fresh();
        EXPECT_EQ(runThere(command("cat $(ls -v " + media + ")", "-xpf")), "") << packer;
        EXPECT_EQ(TreeDifferences(fHouse.source, fHouse.target + "/restored/Source"), "") << packer;
        fresh();
        EXPECT_EQ(runThere(command("medium=", "") + "; " + command("rest=", "") + "; " +
                           command("(tail", "")),
                  "")
            << packer;
        EXPECT_EQ(TreeDifferences(fHouse.source, fHouse.target + "/restored/Source"), "") << packer;
        Shell("rm -rf " + other);
    }

    // Damage in the second frame: what is in front of it comes by step 3, the rest by step 5.
    run("printf 'damage' | dd of=0001.tar.zst bs=1 seek=5000000 conv=notrunc 2>/dev/null");
    EXPECT_NE(run(command("sha256sum", "-c")).find("0001.tar.zst: FAILED"), std::string::npos);
    fresh();
    EXPECT_NE(run(command("cat", ".zst) | zstd -dc | tar -xpf")), "");
    EXPECT_FALSE(fs::exists(fHouse.target + "/restored/Source/home/anna/letter.txt"));
    EXPECT_EQ(run(command("zstd -dqf", "catalogue")), "");
    std::string pieces = run(command("sqlite3", "SELECT"));
    if (pieces.find("exit 127") != std::string::npos) GTEST_SKIP() << "sqlite3 is not installed";
    int medium = 0;
    long long piece = 0, entry = 0;
    std::stringstream rows(pieces);
    for (std::string row; std::getline(rows, row);) {
        ASSERT_EQ(std::sscanf(row.c_str(), "%d|%lld|%lld", &medium, &piece, &entry), 3) << row;
        if (medium > 1 || piece > 5'000'000) break;
    }
    EXPECT_EQ(command("medium=", ""), "medium=1; piece=0; entry=0");
    const std::string numbers = "medium=" + std::to_string(medium) +
                                "; piece=" + std::to_string(piece) +
                                "; entry=" + std::to_string(entry);
    fresh();
    // As a reader's shell does it: tar, which starts in the middle of its records here, may close
    // the pipe before the padding at the end has come through, and tail then ends by a signal.
    EXPECT_EQ(run("set +o pipefail; " + numbers + "; " + command("rest=", "") + "; " +
                  command("(tail", "")),
              "");
    auto rest = DescribeTree(fHouse.source), got = DescribeTree(fHouse.target + "/restored/Source");
    EXPECT_TRUE(got.contains("/home/last"));
    EXPECT_EQ(got["/home/last"], rest["/home/last"]);
    EXPECT_EQ(got["/home/anna/letter.txt"], rest["/home/anna/letter.txt"]);
}

}  // namespace
}  // namespace server

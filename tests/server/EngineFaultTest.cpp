// What goes wrong while a backup is made, and what is left then.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <atomic>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "core/protocol/Texts.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/AddOns.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
using core::JobEnd;
using core::LineType;

class EngineFault : public testing::Test {
protected:
    EngineFault() : fImage(LoadDestination(fHouse.config.addOnFolder, "KTImage")) {
        (*fImage)->SetSettings(fHouse.volume);
    }
    void ExpectNothingLeft() {
        EXPECT_TRUE(fHouse.Folders().empty());
        EXPECT_TRUE(fHouse.catalogues->Backups().empty());
        EXPECT_EQ(fHouse.catalogues->List("/", {})->what, core::code::kNone);
        EXPECT_TRUE(fs::is_empty(fHouse.root + "/catalogues"));
    }
    // The only backup there is.
    void RemoveOnly() {
        const std::string name = fHouse.Folders().at(0);
        fHouse.Forget(name);
        ASSERT_TRUE((*fImage)->RemoveBackup(name));
    }
    // The file's content in the backup that was made last.
    std::string Saved(const std::string& name) {
        return ReadWhole(fHouse.Unpack(fHouse.Folders().back()) + "/Source/" + name);
    }

    EngineHouse fHouse;
    kit::Result<LoadedAddOn<KTVolume>> fImage;
};

TEST_F(EngineFault, FullAtAnyByteLeavesNothing) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000));
    WriteWhole(fHouse.source + "/words", std::string(100'000, 'w'));
    // First see how much a whole backup takes.
    FaultyVolume volume(**fImage);
    volume.room = int64_t{1} << 40;
    ASSERT_EQ(fHouse.RunTo(volume, fHouse.Order()), JobEnd::Good) << fHouse.events.All();
    const int64_t all = (int64_t{1} << 40) - volume.room;
    RemoveOnly();

    std::vector<int64_t> rooms = {0, 1, 511, 4'000'000, 4'194'304, 8'500'000};
    // Through the end of the data, the catalogue, the manifest and the sums byte by byte.
    for (int64_t room = all - 3000; room<all; room += room> all - 400 ? 7 : 101) {
        rooms.push_back(room);
    }
    rooms.push_back(all - 1);
    for (int64_t room : rooms) {
        volume.room = room;
        const JobEnd end = fHouse.RunTo(volume, fHouse.Order());
        // Times make catalogues and manifests of different backups pack differently.
        if (end == JobEnd::Good) {
            EXPECT_GT(room, all - 200);
            break;
        }
        EXPECT_EQ(end, JobEnd::Errors) << room;
        EXPECT_TRUE(fHouse.events.Has(LineType::Error, core::text::kDestinationFull)) << room;
        EXPECT_FALSE(fHouse.events.Has(LineType::Totals, core::text::kBackupGood)) << room;
        ExpectNothingLeft();
        if (HasFailure()) return;
    }
    EXPECT_GT(rooms.size(), 50u);
}

TEST_F(EngineFault, EveryFailingCallLeavesNothing) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(5'000'000));
    for (const char* call :
         {"Begin", "Create:0001.tar.zst", "Write:0001.tar.zst", "Finish:0001.tar.zst",
          "Create:catalogue.db.zst", "Write:catalogue.db.zst", "Finish:catalogue.db.zst",
          "Create:backup.json", "Finish:backup.json", "Root:README.txt", "Create:SHA256SUMS",
          "Write:SHA256SUMS", "Finish:SHA256SUMS", "Publish"}) {
        for (kit::ErrorKind kind : {kit::ErrorKind::Io, kit::ErrorKind::ReadOnly}) {
            FaultyVolume volume(**fImage);
            volume.failing = call;
            volume.kind = kind;
            EXPECT_EQ(fHouse.RunTo(volume, fHouse.Order()), JobEnd::Errors) << call;
            EXPECT_TRUE(fHouse.events.Has(LineType::Error, kind == kit::ErrorKind::Io
                                                               ? core::text::kDestinationNotWritable
                                                               : core::text::kDestinationReadOnly))
                << call << fHouse.events.All();
            ExpectNothingLeft();
        }
    }
    FaultyVolume volume(**fImage);
    volume.failing = "CheckAccess";
    volume.kind = kit::ErrorKind::ReadOnly;
    EXPECT_EQ(fHouse.RunTo(volume, fHouse.Order()), JobEnd::Errors);
    ExpectNothingLeft();
}

TEST_F(EngineFault, FullRemovableDestinationIsWaitedFor) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000));
    FaultyVolume volume(**fImage);
    volume.removable = true;
    volume.room = 5'000'000;
    bool asked = false;
    volume.onSpace = [&] {
        if (fHouse.events.Has(LineType::Heading, core::text::kMediumFull)) {
            asked = true;
            volume.room = 100'000'000;
        }
    };
    fHouse.config.lookAgain = std::chrono::milliseconds(1);
    ASSERT_EQ(fHouse.RunTo(volume, fHouse.Order()), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(asked);
    // What is written now lies beside what was written before.
    const auto folders = fHouse.Folders();
    ASSERT_EQ(folders.size(), 2u);
    EXPECT_EQ(folders[1], folders[0] + ".disc1");
    Shell("mv " + fHouse.target + "/" + folders[1] + "/* " + fHouse.target + "/" + folders[0]);
    const std::string restored = fHouse.Unpack(folders[0]);
    EXPECT_EQ(TreeDifferences(fHouse.source, restored + "/Source"), "");
}

TEST_F(EngineFault, AbortAtAnyPointLeavesNothingAndIsQuick) {
    for (int i = 0; i < 50; ++i) {
        WriteWhole(fHouse.source + "/file" + std::to_string(i), NoiseBytes(100'000, i));
    }
    WriteWhole(fHouse.source + "/large", NoiseBytes(60'000'000));
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const int64_t asked = fHouse.control.asked;
    EXPECT_GT(asked, 100);
    RemoveOnly();
    // The engine is stopped where it asks whether it may go on: at the first, in files, at the
    // last.
    for (int64_t at : {int64_t{1}, int64_t{2}, asked / 4, asked / 2, asked * 3 / 4, asked - 1}) {
        fHouse.control.asked = 0;
        std::chrono::steady_clock::time_point since;
        fHouse.control.onAsked = [&] {
            if (fHouse.control.asked >= at && !fHouse.control.aborted.exchange(true)) {
                since = std::chrono::steady_clock::now();
            }
        };
        const JobEnd end = fHouse.Run();
        const auto took = std::chrono::steady_clock::now() - since;
        fHouse.control.aborted = false;
        fHouse.control.onAsked = nullptr;
        // The two walks ask in turns, so near the end it may be over before.
        if (end == JobEnd::Good) {
            EXPECT_GT(at, asked / 2);
            RemoveOnly();
            continue;
        }
        EXPECT_EQ(end, JobEnd::Aborted) << at << fHouse.events.All();
        EXPECT_LT(took, std::chrono::seconds(6)) << at;
        EXPECT_TRUE(fHouse.events.Has(LineType::Totals, core::text::kBackupAborted)) << at;
        EXPECT_TRUE(fHouse.events.Texts(LineType::Error).empty()) << fHouse.events.All();
        ExpectNothingLeft();
    }
}

TEST_F(EngineFault, UnreadableEntriesAreNamedAndTheRestIsSaved) {
    WriteWhole(fHouse.source + "/good", "good");
    WriteWhole(fHouse.source + "/secret", "secret");
    fs::create_directories(fHouse.source + "/locked/inside");
    ::chmod((fHouse.source + "/secret").c_str(), 0);
    ::chmod((fHouse.source + "/locked").c_str(), 0);
    // Root may read everything: then somebody else has to try.
    const uid_t self = ::geteuid();
    if (self == 0) {
        Shell("chown -R 65534 " + fHouse.root);
        ASSERT_EQ(::seteuid(65534), 0);
    }
    const JobEnd end = fHouse.Run();
    ASSERT_EQ(::seteuid(self), 0);
    ::chmod((fHouse.source + "/locked").c_str(), 0700);
    EXPECT_EQ(end, JobEnd::Errors) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "can't read file '/Source/secret'"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "can't read file '/Source/locked'"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Backup ended with errors!"));
    EXPECT_EQ(Saved("good"), "good");
}

// The files below change at the moment at which the report names the file before them, or at which
// the progress names themselves: in the middle of being read.
TEST_F(EngineFault, VanishedEntriesAreNamed) {
    WriteWhole(fHouse.source + "/a", "a");
    WriteWhole(fHouse.source + "/b", "b");
    fs::create_directory(fHouse.source + "/c");
    WriteWhole(fHouse.source + "/c/d", "d");
    fs::create_directory(fHouse.source + "/e");
    WriteWhole(fHouse.source + "/e/f", "f");
    fHouse.events.onLine = [&](const Recorder::Said& said) {
        if (said.type != LineType::File) return;
        if (said.text == "/Source/a") fs::remove(fHouse.source + "/b");
        if (said.text == "/Source/c/d") fs::remove_all(fHouse.source + "/e");
    };
    EXPECT_EQ(fHouse.Run(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source/b' vanished"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source/e' vanished"));
    EXPECT_EQ(Saved("c/d"), "d");
    EXPECT_EQ(fHouse.catalogues->Backups().size(), 1u);
}

TEST_F(EngineFault, FilesReplacedByOtherThingsAreNamed) {
    WriteWhole(fHouse.source + "/a", "a");
    WriteWhole(fHouse.source + "/b", "b");
    WriteWhole(fHouse.source + "/c", "c");
    fHouse.events.onLine = [&](const Recorder::Said& said) {
        if (said.type != LineType::File || said.text != "/Source/a") return;
        fs::remove(fHouse.source + "/b");
        fs::create_directory(fHouse.source + "/b");
        fs::remove(fHouse.source + "/c");
        fs::create_symlink("/etc/passwd", fHouse.source + "/c");
    };
    EXPECT_EQ(fHouse.Run(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source/b' became something else"));
    const std::string restored = fHouse.Unpack(fHouse.Folders().back());
    EXPECT_EQ(fs::read_symlink(restored + "/Source/c"), "/etc/passwd")
        << "the link, not what it leads to";
}

class EngineChanging : public EngineFault {
protected:
    // Runs a backup of a file of 20 MB beside others, changing it when a block of it has been read.
    JobEnd RunWithChange(const std::function<void(const std::string&)>& change) {
        fContent = NoiseBytes(20'000'000);
        WriteWhole(fHouse.source + "/before", "before");
        WriteWhole(fHouse.source + "/file", fContent);
        WriteWhole(fHouse.source + "/later", "later");
        bool done = false;
        fHouse.control.onAsked = [this, change, done]() mutable {
            // Asked after each block of the file; before that for each entry.
            struct stat info;
            if (done || !fHouse.events.HasText(LineType::File, "/Source/before")) return;
            if (++fAskedInFile < 6 || ::stat((fHouse.source + "/file").c_str(), &info) != 0) return;
            done = true;
            change(fHouse.source + "/file");
        };
        const JobEnd end = fHouse.Run();
        fHouse.control.onAsked = nullptr;
        return end;
    }
    std::string fContent;
    std::atomic<int> fAskedInFile = 0;
};

TEST_F(EngineChanging, GrowingFileIsSavedAsFarAsItWas) {
    EXPECT_EQ(RunWithChange([](const std::string& path) {
                  std::ofstream(path, std::ios::app) << std::string(5'000'000, '+');
              }),
              JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source/file' changed while"));
    EXPECT_TRUE(Saved("file") == fContent);
    EXPECT_EQ(Saved("later"), "later");
    auto reader =
        CatalogueReader::Open(fHouse.root + "/catalogues/" + fHouse.Folders().back() + ".db");
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->Lookup("Source/file")->incomplete);
    EXPECT_FALSE(reader->Lookup("Source/later")->incomplete);
}

TEST_F(EngineChanging, ShrinkingFileIsFilledWithZeros) {
    EXPECT_EQ(RunWithChange([](const std::string& path) { fs::resize_file(path, 100); }),
              JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "'/Source/file' became shorter"));
    const std::string saved = Saved("file");
    ASSERT_EQ(saved.size(), fContent.size());
    const size_t same = static_cast<size_t>(
        std::mismatch(saved.begin(), saved.end(), fContent.begin()).first - saved.begin());
    EXPECT_GT(same, 1'000'000u);
    EXPECT_LT(same, fContent.size());
    EXPECT_EQ(saved.find_first_not_of('\0', same), std::string::npos);
    EXPECT_EQ(Saved("later"), "later");
}

TEST_F(EngineFault, SmallFileThatChangesIsNeverAMixture) {
    WriteWhole(fHouse.source + "/a", "a");
    WriteWhole(fHouse.source + "/b", std::string(1'500'000, '1'));
    std::atomic<int> asked = 0;
    fHouse.config.workers = 1;
    fHouse.control.onAsked = [&] {
        if (!fHouse.events.HasText(LineType::File, "/Source/a")) return;
        // The first question is before the file, the second after its first block.
        if (++asked == 2) WriteWhole(fHouse.source + "/b", std::string(1'600'000, '2'));
    };
    EXPECT_EQ(fHouse.Run(), JobEnd::Good) << fHouse.events.All();
    // Which of the two it caught depends on the moment; a mixture it must never be.
    const std::string saved = Saved("b");
    EXPECT_TRUE(saved == std::string(1'500'000, '1') || saved == std::string(1'600'000, '2'));
    EXPECT_EQ(fHouse.events.progress.back().size, static_cast<int64_t>(saved.size()) + 1);
}

TEST_F(EngineFault, CatalogueThatCannotBeWrittenIsNoBackup) {
    WriteWhole(fHouse.source + "/a", "a");
    fs::remove_all(fHouse.root + "/catalogues");
    EXPECT_EQ(fHouse.Run(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, core::text::kLogNotCreated));
    EXPECT_TRUE(fHouse.Folders().empty());
}

}  // namespace
}  // namespace server

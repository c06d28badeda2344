// Backups on discs that are changed: directories stand for the discs, a symbolic link for the
// drive.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>

#include "core/protocol/Texts.h"
#include "server/archive/BackupWriter.h"
#include "server/archive/Format.h"
#include "server/archive/KeyFile.h"
#include "server/archive/Manifest.h"
#include "server/engine/AddOns.h"
#include "server/engine/LockedBackup.h"
#include "server/queue/JobDescription.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::JobType;
using core::LineType;

constexpr int64_t kHuge = int64_t{1} << 40;

class Drive : public FaultyVolume {
public:
    explicit Drive(KTVolume& volume) : FaultyVolume(volume) { removable = true; }
    bool readOnly = false;
    kit::Result<KTVolumeSpace> Space() override {
        auto space = FaultyVolume::Space();
        if (space) space->readOnly = readOnly;
        return space;
    }
};

class EngineDiscs : public testing::Test {
protected:
    EngineDiscs()
        : fDriveAt(fHouse.root + "/drive"),
          fImage(LoadDestination(fHouse.config.addOnFolder, "KTImage")) {
        fHouse.volume.Set("path", fDriveAt);
        fHouse.config.lookAgain = std::chrono::milliseconds(1);
        fHouse.config.now = [this] { return fNow += 100; };
        (*fImage)->SetSettings(fHouse.volume);
        fDrive = std::make_unique<Drive>(**fImage);
        fTo = fHouse.root + "/restored";
        fs::create_directory(fTo);
        PutIn(1);
        // One job has put in the next disc for every one that is full; others do what else they
        // want.
        fHouse.events.onLine = [this](const Recorder::Said& said) {
            if (said.textId == text::kMediumFull && onFull) onFull();
            if (said.textId == text::kInsertMedium && onAsked) onAsked(said.text);
        };
        onFull = [this] { NextDisc(); };
        onAsked = [this](const std::string& words) { PutInWhatIsAskedFor(words); };
    }
    std::string Disc(int number) const { return fHouse.root + "/disc" + std::to_string(number); }
    void TakeOut() {
        ExpectNothingOpen();
        fs::remove(fDriveAt);
        fIn = 0;
    }
    void PutIn(int number) {
        if (fIn != 0) TakeOut();
        fs::create_directory(Disc(number));
        fs::create_symlink(Disc(number), fDriveAt);
        fIn = number;
        fDiscs = std::max(fDiscs, number);
    }
    void NextDisc() {
        PutIn(fDiscs + 1);
        fDrive->room = roomOfNext;
    }
    // A file that is open keeps a disc from being taken out.
    void ExpectNothingOpen() const {
        for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            const std::string path = fs::read_symlink(fd.path(), ignored);
            EXPECT_NE(path.rfind(Disc(fIn) + "/", 0), 0u) << path;
        }
    }
    // "… no. #2!": the one with the folder that the line behind it names.
    void PutInWhatIsAskedFor(const std::string& words) {
        asked.push_back(words);
        const size_t open = words.find('(');
        const std::string name = words.substr(open + 1, 24);
        const int number = std::stoi(words.substr(words.rfind('#') + 1));
        for (int disc = 1; disc <= fDiscs; ++disc) {
            const bool isLast = fs::exists(Disc(disc) + "/" + name) && number == DiscsOf(name);
            if (!isLast && !fs::exists(Disc(disc) + "/" + archive::PartFolder(name, number)))
                continue;
            if (disc == fIn) continue;
            PutIn(disc);
            return;
        }
        ADD_FAILURE() << "no such disc: " << words;
    }
    archive::Manifest ManifestOf(const std::string& name) const {
        for (int disc = 1; disc <= fDiscs; ++disc) {
            const auto manifest = fHouse.ManifestOf("../disc" + std::to_string(disc) + "/" + name);
            if (!manifest.name.empty()) return manifest;
        }
        return {};
    }
    int DiscsOf(const std::string& name) const { return ManifestOf(name).discs; }

    JobEnd Save(JobType type = JobType::Full) {
        const JobOrder order = type == JobType::Full ? fHouse.Order() : fHouse.NextOrder(type);
        const JobEnd end = fHouse.RunTo(*fDrive, order);
        const auto known = fHouse.catalogues->FindByJob(order.id);
        fBackup = known ? known->name : "";
        return end;
    }
    JobEnd Read(JobType type) {
        asked.clear();
        return fHouse.Run(
            fHouse.ReadOrder(type, fBackup, type == JobType::Restore ? fTo : std::string()));
    }
    JobEnd Insert(const std::string& folder) {
        asked.clear();
        return fHouse.Run(fHouse.InsertOrder({folder}));
    }
    BackupInfo Known() const { return fHouse.Known(fBackup); }
    // What the instructions say: all discs copied into one folder.
    std::string ByHand() {
        const std::string all = fHouse.target + "/" + fBackup;
        fs::create_directories(all);
        for (int disc = 1; disc <= fDiscs; ++disc)
            Shell("cp " + Disc(disc) + "/" + fBackup + "*/* " + all);
        return fHouse.Unpack(fBackup);
    }
    // Of all of this backup, on any disc.
    std::string Left() const {
        std::string left;
        for (int disc = 1; disc <= fDiscs; ++disc) {
            std::error_code isNone;
            for (const auto& entry : fs::directory_iterator(Disc(disc), isNone)) {
                if (entry.is_directory())
                    left += "disc" + std::to_string(disc) + "/" + entry.path().filename().string() +
                            " ";
            }
        }
        return left;
    }
    void MakeSource() {
        fs::create_directory(fHouse.source + "/a");
        WriteWhole(fHouse.source + "/a/large", NoiseBytes(14'000'000));
        for (int i = 0; i < 20; ++i)
            WriteWhole(fHouse.source + "/b" + std::to_string(i), NoiseBytes(500'000, i));
        // Their firsts lie on the first disc.
        fs::create_hard_link(fHouse.source + "/b1", fHouse.source + "/z1");
        fs::create_hard_link(fHouse.source + "/b1", fHouse.source + "/z2");
        WriteWhole(fHouse.source + "/words", std::string(100'000, 'w'));
    }

    // A backup on three or four discs.
    void SaveOnDiscs() {
        MakeSource();
        fDrive->room = roomOfNext = 11'000'000;
        ASSERT_EQ(Save(), JobEnd::Good) << fHouse.events.All();
    }

    int64_t fNow = 1'800'000'000;
    EngineHouse fHouse;
    const std::string fDriveAt;
    kit::Result<LoadedAddOn<KTVolume>> fImage;
    std::unique_ptr<Drive> fDrive;
    std::string fTo, fBackup;
    int fIn = 0, fDiscs = 0;
    int64_t roomOfNext = kHuge;
    std::function<void()> onFull;
    std::function<void(const std::string&)> onAsked;
    std::vector<std::string> asked;
};

TEST_F(EngineDiscs, ABackupGoesOnAndIsReadDiscByDisc) {
    SaveOnDiscs();
    const int discs = DiscsOf(fBackup);
    EXPECT_EQ(discs, fDiscs);
    EXPECT_GE(discs, 3);
    for (int disc = 1; disc <= discs; ++disc) {
        EXPECT_TRUE(fs::exists(Disc(disc) + "/README.txt"));
        EXPECT_TRUE(fs::exists(Disc(disc) + "/" +
                               (disc < discs ? archive::PartFolder(fBackup, disc) : fBackup)));
    }
    EXPECT_EQ(TreeDifferences(fHouse.source, ByHand() + "/Source"), "");

    // Each is asked for once, in order; the last one, in the drive at first, too.
    const auto expectAskedInOrder = [&] {
        ASSERT_EQ(asked.size(), static_cast<size_t>(discs)) << fHouse.events.All();
        for (int disc = 1; disc <= discs; ++disc) {
            EXPECT_EQ(asked[static_cast<size_t>(disc) - 1], "Please insert media 'A test (" +
                                                                fBackup + ")' no. #" +
                                                                std::to_string(disc) + "!");
        }
        EXPECT_TRUE(fHouse.events.Has(LineType::Heading, text::kMediumLoaded));
    };
    EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(TreeDifferences(fHouse.source, fTo), "");
    expectAskedInOrder();
    EXPECT_EQ(Read(JobType::Compare), JobEnd::Good) << fHouse.events.All();
    expectAskedInOrder();
    EXPECT_EQ(Read(JobType::Verify), JobEnd::Good) << fHouse.events.All();
    expectAskedInOrder();

    // Damage is found on the disc where it is.
    const std::string first = Disc(1) + "/" + archive::PartFolder(fBackup, 1) + "/0001.tar.zst";
    Damage(first, 5'000'000);
    EXPECT_EQ(Read(JobType::Verify), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "the checksum of '0001.tar.zst' is wrong"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "from backup!")) << fHouse.events.All();
    expectAskedInOrder();
}

TEST_F(EngineDiscs, FullAtAnyByteGoesOn) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(6'000'000));
    WriteWhole(fHouse.source + "/words", std::string(100'000, 'w'));
    for (const bool isProtected : {false, true}) {
        if (isProtected) fHouse.Protect("open sesame 4711");
        fDrive->room = kHuge;
        NextDisc();
        ASSERT_EQ(Save(), JobEnd::Good) << fHouse.events.All();
        const int64_t all = kHuge - fDrive->room;
        std::vector<int64_t> rooms = {0, 1, 10'000, 4'200'000};
        for (int64_t room = all - 3000; room < all; room += 431)
            rooms.push_back(room);
        for (const int64_t room : rooms) {
            NextDisc();
            const int first = fDiscs;
            fDrive->room = room;
            ASSERT_EQ(Save(), JobEnd::Good) << room << fHouse.events.All();
            // Times make catalogues and manifests of different backups pack differently.
            EXPECT_TRUE(fDiscs == first + 1 || room > all - 300) << room;
            EXPECT_TRUE(fHouse.events.Texts(LineType::Error).empty()) << room;
            if (HasFailure()) return;
            const std::string unpacked = ByHand();
            ASSERT_EQ(TreeDifferences(fHouse.source, unpacked + "/Source"), "") << room;
            Shell("rm -r " + unpacked + " " + fHouse.target + "/*");
            for (int disc = first; disc < fDiscs; ++disc)
                Shell("rm -r " + Disc(disc) + "/*");
        }
    }
}

TEST_F(EngineDiscs, OnlyADiscThatCanBeUsedIsTaken) {
    MakeSource();
    fDrive->room = 11'000'000;
    roomOfNext = kHuge;
    int step = 0;
    onFull = [&] { step = std::max(step, 1); };
    // Every look finds something else in the drive.
    fDrive->onSpace = [&] {
        const auto told = [&](const char* words) {
            return fHouse.events.HasText(LineType::Heading, words);
        };
        if (step == 0 || ++step < 4) return;
        if (step < 8) {
            if (fIn != 0) {
                TakeOut();
                fDrive->removable = false;  // the bare directory
                fDrive->room = kHuge;
            }
        } else if (step < 12) {
            if (fIn == 0) PutIn(7);
            fDrive->removable = fDrive->readOnly = true;
        } else if (step < 16) {
            if (step == 12) {
                EXPECT_TRUE(told("This disc is read-only."));
            }
            fDrive->readOnly = false;
            fDrive->room = 9'000'000;
        } else if (step < 20) {
            if (step == 16) {
                EXPECT_TRUE(told("This disc has too little room."));
            }
            if (fIn != 1) PutIn(1);
            fDrive->room = 8'000'000;
        } else {
            if (step == 20) {
                EXPECT_TRUE(told("has a part of this backup already"));
            }
            if (fIn == 1) NextDisc();
        }
    };
    ASSERT_EQ(Save(), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Left(), "disc1/" + fBackup + ".disc1 disc8/" + fBackup + " ");
    EXPECT_EQ(fHouse.events.Texts(LineType::Error).size(), 0u);
}

TEST_F(EngineDiscs, GivingUpTellsWhatIsLeftOnOtherDiscs) {
    MakeSource();
    fDrive->room = roomOfNext = 11'000'000;
    onFull = [&] {
        if (fDiscs == 1)
            NextDisc();
        else
            fHouse.control.aborted = true;
    };
    EXPECT_EQ(Save(), JobEnd::Aborted);
    EXPECT_FALSE(fHouse.events.Has(LineType::Error, text::kDestinationFull));
    // The second disc is in the drive and is cleaned.
    EXPECT_EQ(Left().rfind("disc1/", 0), 0u);
    EXPECT_EQ(Left().find("disc2/"), std::string::npos);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "there remain, and can be deleted: "));
    EXPECT_FALSE(fHouse.catalogues->FindByJob(1));
}

TEST_F(EngineDiscs, WhatIsNotInTheDriveIsWaitedFor) {
    WriteWhole(fHouse.source + "/file", "content");
    ASSERT_EQ(Save(), JobEnd::Good);
    TakeOut();
    fs::create_directories(Disc(2) + "/20200101T000000-00000001");
    fDiscs = 2;
    // A wrong one first.
    std::atomic<int> said = 0, looked = 0;
    fHouse.events.onLine = [&](const Recorder::Said& line) {
        if (line.textId == text::kInsertMedium) asked.push_back(line.text);
        if (line.textId == text::kInsertMedium) said = 1;
        if (line.text.find("not the medium that is asked for") != std::string::npos) PutIn(1);
    };
    fHouse.control.onAsked = [&] {
        if (said == 1 && fIn == 0 && ++looked > 5) PutIn(2);
    };
    EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(asked.size(), 2u);  // once more after the wrong one
    EXPECT_EQ(TreeDifferences(fHouse.source, fTo), "");

    // Waiting ends at once when the job is aborted, and without an error.
    TakeOut();
    for (const JobType type : {JobType::Restore, JobType::Compare, JobType::Verify}) {
        fHouse.control.aborted = false;
        fHouse.control.onAsked = nullptr;
        fHouse.events.onLine = [&](const Recorder::Said& line) {
            if (line.textId == text::kInsertMedium) fHouse.control.aborted = true;
        };
        EXPECT_EQ(Read(type), JobEnd::Aborted);
        EXPECT_TRUE(fHouse.events.Texts(LineType::Error).empty()) << fHouse.events.All();
    }
}

TEST_F(EngineDiscs, AChainIsReadDiscByDisc) {
    SaveOnDiscs();
    NextDisc();
    fDrive->room = roomOfNext = kHuge;
    // Old and new stand side by side in the tree.
    for (int i = 0; i < 20; i += 3)
        WriteWhole(fHouse.source + "/b" + std::to_string(i), NoiseBytes(300'000, 100 + i));
    fs::remove(fHouse.source + "/words");
    ASSERT_EQ(Save(JobType::Incremental), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(DiscsOf(fBackup), 1);
    PutIn(2);
    EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(TreeDifferences(fHouse.source, fTo), "");
    EXPECT_LE(asked.size(), static_cast<size_t>(fDiscs) + 1) << fHouse.events.All();
    EXPECT_EQ(Read(JobType::Compare), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Read(JobType::Verify), JobEnd::Good) << fHouse.events.All();
}

// --- brought back into the catalogue ------------------------------------------------------------

TEST_F(EngineDiscs, TheLastDiscBringsABackupBack) {
    SaveOnDiscs();
    const int discs = DiscsOf(fBackup);
    const std::string last = Disc(discs) + "/" + fBackup;
    const auto tree = DescribeTree(fHouse.source);
    const auto expectRestores = [&](size_t asks) {
        Shell("rm -r " + fTo + "/*");
        EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
        EXPECT_EQ(Differences(tree, DescribeTree(fTo)), "");
        EXPECT_EQ(asked.size(), asks) << fHouse.events.All();
    };
    fHouse.Forget(fBackup);

    // Another disc says what it is, and that it is not enough.
    PutIn(1);
    EXPECT_EQ(Insert(archive::PartFolder(fBackup, 1)), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Detail, "its last disc is needed"))
        << fHouse.events.All();
    EXPECT_EQ(Insert(fBackup), JobEnd::Errors);
    EXPECT_TRUE(asked.empty());
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());

    PutIn(discs);
    EXPECT_EQ(Insert(fBackup), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(asked.empty()) << fHouse.events.All();
    EXPECT_TRUE(Known().isRemovable);
    expectRestores(static_cast<size_t>(discs));
    EXPECT_EQ(Read(JobType::Verify), JobEnd::Good) << fHouse.events.All();

    // All of them are needed where its catalogue is lost.
    fHouse.Forget(fBackup);
    fs::remove(last + "/catalogue.db.zst");
    PutIn(discs);
    EXPECT_EQ(Insert(fBackup), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.Has(LineType::Heading, text::kQuickIndexFailed));
    EXPECT_EQ(asked.size(), static_cast<size_t>(discs)) << fHouse.events.All();
    expectRestores(static_cast<size_t>(discs));

    // A medium that was cut is damaged, however often its disc is put in.
    fHouse.Forget(fBackup);
    const std::string medium = ManifestOf(fBackup).media.back().file;
    fs::resize_file(last + "/" + medium, fs::file_size(last + "/" + medium) / 2);
    EXPECT_EQ(Insert(fBackup), JobEnd::Errors);
    EXPECT_GT(Known().files, 1) << fHouse.events.All();
    EXPECT_EQ(asked.size(), static_cast<size_t>(discs)) << fHouse.events.All();

    // Nobody is waited for who was told to stop.
    fHouse.Forget(fBackup);
    onAsked = [this](const std::string&) { fHouse.control.aborted = true; };
    EXPECT_EQ(Insert(fBackup), JobEnd::Aborted);
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
}

TEST_F(EngineDiscs, DiscsInOneFolderAreOne) {
    SaveOnDiscs();
    ASSERT_GT(DiscsOf(fBackup), 2);
    fHouse.Forget(fBackup);
    EXPECT_NE(ByHand(), "");
    fHouse.volume.Set("path", fHouse.target);
    TakeOut();
    EXPECT_EQ(Insert(fBackup), JobEnd::Good) << fHouse.events.All();
    EXPECT_FALSE(Known().isRemovable);
    EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(TreeDifferences(fHouse.source, fTo), "");
    EXPECT_EQ(Read(JobType::Verify), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(asked.empty());
}

TEST_F(EngineDiscs, APasswordAsksForNoDisc) {
    fHouse.Protect("open sesame 4711");
    SaveOnDiscs();
    const int discs = DiscsOf(fBackup);
    const auto open = [&] {
        fHouse.events.Clear();
        asked.clear();
        return OpenLockedBackup(fBackup, fHouse.identity, fHouse.config, *fHouse.catalogues,
                                fHouse.events, fHouse.control);
    };
    fHouse.Forget(fBackup);
    EXPECT_EQ(Insert(fBackup), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(Known().isLocked);
    TakeOut();
    EXPECT_FALSE(open());
    PutIn(discs);
    EXPECT_TRUE(open()) << fHouse.events.All();
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(Read(JobType::Restore), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(TreeDifferences(fHouse.source, fTo), "");

    fHouse.Forget(fBackup);
    fs::remove(Disc(discs) + "/" + fBackup + "/catalogue.db.zst.age");
    PutIn(discs);
    EXPECT_EQ(Insert(fBackup), JobEnd::Good) << fHouse.events.All();
    EXPECT_FALSE(open());
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "disc 1 of")) << fHouse.events.All();
    EXPECT_TRUE(asked.empty());
    EXPECT_TRUE(Known().isLocked);
}

// --- overwriting --------------------------------------------------------------------------------

TEST_F(EngineDiscs, OldBackupsGoFirstOnlyWhereThereIsNoRoomAndItIsWanted) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(5'000'000));
    fDrive->removable = false;
    ASSERT_EQ(Save(), JobEnd::Good);
    const std::string old = fBackup;
    fDrive->room = 1'000'000;
    EXPECT_EQ(Save(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kDestinationFull));
    EXPECT_EQ(Left(), "disc1/" + old + " ");

    fDrive->SetOverwrite(true);
    fHouse.events.onLine = [&](const Recorder::Said& said) {
        if (said.textId == text::kDeletingBackup) fDrive->room = 50'000'000;
    };
    ASSERT_EQ(Save(), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Left(), "disc1/" + fBackup + " ");
    EXPECT_FALSE(fHouse.catalogues->Find(old));
    EXPECT_TRUE(fHouse.catalogues->Find(fBackup));

    // An incremental one has nowhere to go when only what it builds on could make room.
    fDrive->room = 100'000;
    WriteWhole(fHouse.source + "/more", NoiseBytes(5'000'000, 2));
    const std::string base = fBackup;
    EXPECT_EQ(fHouse.RunTo(*fDrive, fHouse.NextOrder(JobType::Incremental, Known().jobId)),
              JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "stays: this one builds on it."));
    EXPECT_EQ(Left(), "disc1/" + base + " ");
    EXPECT_TRUE(fHouse.catalogues->Find(base));
}

TEST_F(EngineDiscs, DiscsWithOldBackupsAreOverwritten) {
    SaveOnDiscs();
    const std::string old = fBackup;
    const int before = fDiscs;
    // The same discs again.
    fDrive->SetOverwrite(true);
    PutIn(1);
    fDrive->room = 0;
    onFull = [&] {
        PutIn(fIn + 1);
        fDrive->room = fIn <= before ? 0 : 11'000'000;
    };
    int gone = 0;
    fHouse.events.onLine = [&](const Recorder::Said& said) {
        if (said.textId == text::kMediumFull) onFull();
        if (said.textId != text::kDeletingBackup) return;
        fDrive->room = 11'000'000;
        ++gone;
    };
    ASSERT_EQ(Save(), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(gone, before);
    EXPECT_EQ(Left().find(old), std::string::npos) << Left();
    EXPECT_FALSE(fHouse.catalogues->Find(old));
    EXPECT_EQ(TreeDifferences(fHouse.source, ByHand() + "/Source"), "");
}

}  // namespace
}  // namespace server

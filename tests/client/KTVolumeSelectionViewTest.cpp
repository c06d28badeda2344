// The list of whole volumes, with volumes that come and go as the test wants it.
#include "client/selection/KTVolumeSelectionView.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QImage>

#include "core/files/HeaderFile.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

class VolumeList : public ::testing::Test {
protected:
    void Make(Preferences* preferences = nullptr) {
        view = std::make_unique<KTVolumeSelectionView>(preferences, nullptr, mounts);
        tester = std::make_unique<QAbstractItemModelTester>(
            view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        view->resize(400, 200);
    }
    void Start() {
        Make();
        ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() > 0; }));
    }
    ~VolumeList() override { tester.reset(); }

    // As the node monitor tells it.
    void Mounted(int64_t device) {
        BMessage event = Made("NDMN"_code, {{"opcode", 6}, {"new device", device}});
        view->MessageReceived(event);
    }
    void Unmounted() {
        BMessage event = Made("NDMN"_code, {{"opcode", 7}});
        view->MessageReceived(event);
    }
    KTRow Row(const char* name) const { return view->Rows().ChildByText(kNoRow, 1, name); }
    std::string Names() const {
        std::string names;
        for (KTRow row = view->Rows().First(); row != kNoRow; row = view->Rows().Next(row))
            names += std::string(view->Rows().TextAt(row, 1)) + " ";
        return names;
    }
    Texts Given(BMessage message = {}) const {
        view->GetSelection(&message);
        return Strings(message, "SELECTION");
    }

    std::shared_ptr<MountTable> mounts = std::make_shared<MountTable>();
    std::unique_ptr<KTVolumeSelectionView> view;
    std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST_F(VolumeList, KeepsTheWidthsOfItsColumns) {
    TemporaryFolder folder;
    Preferences preferences((folder / "prefs").c_str(), "KTBACKUP");
    preferences.Set("QBSCOLWIDT", 12.0F);
    Make(&preferences);
    EXPECT_EQ(view->ColumnAt(1).width, 180);
    EXPECT_EQ(view->ColumnAt(2).width, 20) << "its least";
    for (int i = 0; i < 3; ++i)
        view->ColumnWidthChanged(i, static_cast<float>(100 + i));
    EXPECT_EQ(preferences.GetFloat("QBFCOLWIDT", 0), 101);
    EXPECT_EQ(preferences.GetFloat("QBSCOLWIDT", 0), 102);
}

TEST_F(VolumeList, GivesOneRuleForEachMarkedVolume) {
    mounts->Set({{"System", "/", 1}, {"B", "/b", 2}, {"A", "/a", 3}});
    Start();
    EXPECT_FALSE(view->HasSelection());
    view->MultiSelect(Row("B"));
    view->MultiSelect(Row("A"));
    EXPECT_EQ(Given(Selection({"INCLUDE /Old/*", "EXCLUDE /System/var/*"})),
              (Texts{"INCLUDE /A/*", "INCLUDE /B/*"}))
        << "in the order of the list, in place of what was there";
    view->MultiSelectAll(true);
    EXPECT_EQ(Given().size(), 3u);
    view->MultiSelectAll(false);
    EXPECT_FALSE(view->HasSelection());

    view->SetSelection(Selection({"EXCLUDE /System/*", "INCLUDE /Elsewhere/*", "INCLUDE /",
                                  "INCLUDE /A/home/x.txt", "EXCLUDE /A/*"}));
    EXPECT_EQ(Given(), Texts{"INCLUDE /A/*"}) << "a rule about a part marks the whole";
}

TEST_F(VolumeList, KeepsWhatIsAskedForBeforeTheFirstLookIsDone) {
    mounts->Hold();
    Make();
    view->SetSelection(Selection({"INCLUDE /Data/*", "INCLUDE /Data/a", "INCLUDE /Gone/*"}));
    EXPECT_TRUE(view->HasSelection());
    EXPECT_EQ(Given(), (Texts{"INCLUDE /Data/*", "INCLUDE /Gone/*"})) << "settings saved now";
    mounts->LetGo();
    ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() == 2; }));
    EXPECT_EQ(Given(), Texts{"INCLUDE /Data/*"});

    mounts->Hold();
    Make();
    view->SetSelection(Selection({"INCLUDE /Data/*"}));
    view->MultiSelectAll(false);
    view->MultiSelectAll(true);
    mounts->LetGo();
    ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() == 2; }));
    EXPECT_EQ(Given().size(), 2u);
}

TEST_F(VolumeList, FollowsMountsAndUnmounts) {
    mounts->Set({{"Disk", "/", 1}, {"Memory", "/run/x", 5, 1000, 400, "tmpfs"}});
    Start();
    EXPECT_EQ(Names(), "Disk ") << "at the start those that stay";
    mounts->Set({{"Disk", "/", 1}, {"Stick", "/a", 2}, {"Later", "/b", 3, 10, 5, "tmpfs"}});
    Mounted(2);
    Mounted(3);
    ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() == 3; }));
    view->MultiSelect(Row("Stick"));

    // Another of the same name takes it away from this one; its mark does not.
    mounts->Set({{"Disk", "/", 1}, {"Stick", "/0", 4}, {"Stick", "/a", 2}});
    Mounted(4);
    ASSERT_TRUE(WaitFor([&] { return Row("Stick (2)") != kNoRow; }));
    EXPECT_EQ(Given(), Texts{"INCLUDE /Stick (2)/*"});
    EXPECT_EQ(Row("Later"), kNoRow);

    // Another disk at the place of a marked one is not marked.
    mounts->Set({{"Disk", "/", 1}, {"Stick", "/a", 7}});
    Unmounted();
    ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() == 2; }));
    EXPECT_FALSE(view->HasSelection());
}

TEST_F(VolumeList, LookThatWasOvertakenSaysNothing) {
    Start();
    mounts->Set({{"Disk", "/", 1}, {"Data", "/mnt/data", 2}, {"New", "/new", 3}});
    Mounted(3);
    // What the look before this one saw.
    BMessage overtaken = Made("SRvl"_code, {{"read", int64_t{1}},
                                            {"name", "Disk"},
                                            {"path", "/"},
                                            {"device", int64_t{1}},
                                            {"persistent", true}});
    view->MessageReceived(overtaken);
    EXPECT_EQ(Names(), "Disk Data ");
    ASSERT_TRUE(WaitFor([&] { return view->Rows().Count() == 3; }));
    view->MessageReceived(overtaken);
    EXPECT_EQ(Names(), "Disk Data New ");
}

TEST_F(VolumeList, SaysAndShowsHowFullVolumesAre) {
    mounts->Set({{"Disk", "/", 1, 4'096'000, 1'024'000}, {"Silent", "/mnt/s", 2, 0, 0}});
    Start();
    const KTRow disk = Row("Disk"), silent = Row("Silent");
    EXPECT_EQ(view->Rows().NumberAt(disk, 2), 3'072'000) << "bytes in use";
    EXPECT_EQ(view->CellText(silent, 2), "-");
    EXPECT_EQ(view->SpokenRow(silent), "Silent");
    EXPECT_EQ(view->SpokenRow(disk), "Disk, 2.9 MiB of 3.9 MiB used (75%)");
    EXPECT_EQ(view->RowToolTip(disk), "/\n2.9 MiB of 3.9 MiB used (75%)");

    // Three quarters of the bar are dark.
    view->SetColumnWidth(2, 106);
    view->show();
    Settle();
    const auto bar = [&] {
        const QRect cell = view->visualRect(view->IndexOf(disk, 2));
        const QImage image = view->viewport()->grab(cell).toImage();
        QString drawn;
        for (int x = 13; x < image.width(); x += 10)
            drawn += qGray(image.pixel(x, image.height() - 2)) < 150 ? '#' : '.';
        return drawn;
    };
    EXPECT_EQ(bar(), "#######...");
    view->setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(bar(), "..#######.");
    view->setLayoutDirection(Qt::LeftToRight);

    // The next time the list is shown it looks anew.
    mounts->Set({{"Disk", "/", 1, 4'096'000, 4'096'000}, {"Silent", "/mnt/s", 2, 0, 0}});
    view->hide();
    view->show();
    ASSERT_TRUE(WaitFor([&] { return view->Fullness(disk) == 0; }));
    EXPECT_EQ(bar(), "..........");
}

TEST_F(VolumeList, ReadsAndWritesSelectionFiles) {
    Start();
    TemporaryFolder folder;
    BMessage request, selection = Selection({"INCLUDE /Disk/*"});
    request.Add("directory", entry_ref{folder.Path()});
    request.Add("name", "mine");
    BMessage empty(request);
    EXPECT_EQ(view->SaveSelection(empty, selection), 4) << "nothing is marked";
    EXPECT_TRUE(empty.IsEmpty());
    view->MultiSelectAll(true);
    EXPECT_EQ(view->SaveSelection(request, selection), 0);
    BMessage file, loaded;
    file.Add("refs", entry_ref{folder / "mine"});
    EXPECT_EQ(view->LoadSelection(file, &loaded), 0);
    EXPECT_EQ(loaded, selection);
    EXPECT_EQ(core::MagicOf(folder / "mine"), "KTSELECT");
}

}  // namespace

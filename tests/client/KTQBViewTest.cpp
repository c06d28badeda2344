// The quick backup tool with its real widgets; server, alerts and panels by script. What it shares
// with the backup tool is tested there.
#include "client/backup/KTQBView.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QPushButton>

#include "client/backup/KTBackupStartWin.h"
#include "client/selection/KTVolumeSelectionView.h"
#include "core/files/HeaderFile.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

class QuickBackup : public WidgetTest {
protected:
    QuickBackup() {
        desk.program.AddReal();
        desk.program.AddTest();
        view = std::make_unique<KTQBView>(desk.Context(), nullptr, "quickbackup", mounts);
        view->resize(560, 400);
        view->show();
        EXPECT_TRUE(WaitFor([&] { return view->Volumes()->Rows().Count() == 2; }));
        Settle();
    }
    QWidget* Subject() override { return view.get(); }
    static KTBackupStartWin* StartDialog() { return ShownWindow<KTBackupStartWin>(); }
    void Start() {
        Press("btn_start");
        ASSERT_TRUE(StartDialog());
        Click(StartDialog(), "btn_ok");
    }
    static Texts Rules(const BMessage& job) {
        return Strings(job.Get("selection", BMessage()), "SELECTION");
    }

    std::shared_ptr<MountTable> mounts = std::make_shared<MountTable>();
    std::unique_ptr<KTQBView> view;
};

TEST_F(QuickBackup, HasNoControlsOfModeAndTime) {
    EXPECT_EQ(view->findChildren<QComboBox*>().size(), 2);
    EXPECT_EQ(view->Volumes()->accessibleName(), "Volumes");
    EXPECT_TRUE(WaitFor([&] { return Words("str_hint").contains("'Disk'"); }));
}

TEST_F(QuickBackup, SendsTheMarkedVolumes) {
    Press("btn_start");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"QuickBackup: Sorry, no directories or files selected to backup!"});
    EXPECT_FALSE(StartDialog());

    view->SetPref(Job("Safe", false));
    Send(BMessage("sall"_code));
    EXPECT_EQ(Rules(view->Job()), (Texts{"INCLUDE /Disk/*", "INCLUDE /Data/*"}));
    Press("btn_start");
    ASSERT_TRUE(StartDialog());
    EXPECT_TRUE(StartDialog()->IsTitleEditable());
    StartDialog()->findChild<QLineEdit*>("str_title")->setText("All");
    Start();
    const BMessage sent = Sent();
    ExpectIs(sent, "KTJA"_code, {{"job_type", 1}});
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_EQ(Rules(sent), (Texts{"INCLUDE /Disk/*", "INCLUDE /Data/*", "EXCLUDE /Disk/var/*"}));
    EXPECT_EQ(sent.Get("start_info", BMessage()).FindString("title"), "All");
    EXPECT_EQ(sent.Get("volume", BMessage()).FindString("medium"), "Safe");

    Send(BMessage("sclr"_code));
    EXPECT_TRUE(Rules(view->Job()).empty());
}

TEST_F(QuickBackup, VolumeThatGoesBehindTheDialogIsNotSent) {
    view->SetPref(Job("Safe", false));
    view->Volumes()->MultiSelect(view->Volumes()->Rows().ChildAt(kNoRow, 1));
    Press("btn_start");
    ASSERT_TRUE(StartDialog());
    mounts->Set({{"Disk", "/", 1}});
    BMessage unmounted = Made("NDMN"_code, {{"opcode", 7}});
    view->Volumes()->MessageReceived(unmounted);
    ASSERT_TRUE(WaitFor([&] { return view->Volumes()->Rows().Count() == 1; }));
    Click(StartDialog(), "btn_ok");
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_TRUE(desk.server.application.empty());
}

TEST_F(QuickBackup, LoadedJobOfTheBackupToolBecomesAQuickOne) {
    BMessage job = Job("Safe", false, 2);
    const BMessage schedule = Made({{"TIME", BTime{1700000000}}, {"Days", 1}});
    job.Add("selection", Selection({"INCLUDE /Data/home/*"}));
    job.Add("scheduler", schedule);
    job.Add("bak_addonpacker", "KTZstd");
    const std::string path = desk.program / "jobsettings/other_bak";
    ASSERT_EQ(core::SaveHeaderFile(path, "KTBAKJOB", job), core::HeaderSave::Good);

    view->SetPref(entry_ref{path});
    EXPECT_EQ(Find<QComboBox>("mnu_packer")->currentText(), "Zstandard");
    EXPECT_TRUE(Find<QPushButton>("btn_packer")->isEnabled());
    EXPECT_EQ(Words("str_destination"), "Safe");
    EXPECT_EQ(view->Job().FindString("selectionpath"), path);
    // There are no controls for a time, so none can come in.
    Send(Answer("swqt"_code, true, schedule));
    Start();
    const BMessage sent = Sent();
    EXPECT_EQ(sent.Find<int32_t>("job_type"), 1);
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_FALSE(sent.Get("scheduler", BMessage()).Has("TIME"));
    EXPECT_FALSE(sent.Get("scheduler", BMessage()).Has("Days"));
    EXPECT_EQ(Rules(sent), (Texts{"INCLUDE /Data/*", "EXCLUDE /Disk/var/*"}));
    EXPECT_EQ(sent.FindString("bak_addonpacker"), "KTZstd");
}

TEST_F(QuickBackup, AsksBeforeItOverwrites) {
    view->SetPref(Job("Safe", true));
    Send(BMessage("sall"_code));
    desk.dialogs.Answer(2);
    Start();
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_EQ(desk.dialogs.Alerts()[0].title, "QuickBackup");
    EXPECT_TRUE(desk.server.application.empty()) << "taken back";
    desk.dialogs.Answer(1);
    Start();
    EXPECT_EQ(Sent().Get("volume", BMessage()).Find<int32_t>("overwrite"), 0);
}

TEST_F(QuickBackup, SettingsKeepTheMarks) {
    view->Volumes()->MultiSelect(view->Volumes()->Rows().First());
    const BMessage settings = SettingsOf(*view);
    Send(BMessage("sclr"_code));
    view->SetPref(settings);
    EXPECT_EQ(Rules(view->Job()), Texts{"INCLUDE /Disk/*"});
    EXPECT_TRUE(view->Volumes()->Rows().IsMarked(view->Volumes()->Rows().First()));
}

}  // namespace

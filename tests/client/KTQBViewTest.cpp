// The quick backup tool with its real widgets; server, alerts and panels by script. What it shares
// with the backup tool is tested there.
#include "client/backup/KTQBView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>

#include "client/backup/KTBackupStartWin.h"
#include "client/selection/KTVolumeSelectionView.h"
#include "core/files/HeaderFile.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

struct FurnishedDesk : Desk {
    FurnishedDesk() {
        program.AddReal();
        program.AddTest();
    }
};

class QuickBackup : public ::testing::Test {
protected:
    QuickBackup() {
        view.resize(560, 400);
        view.show();
        EXPECT_TRUE(WaitFor([&] { return view.Volumes()->Rows().Count() == 2; }));
        Settle();
    }
    template <class T>
    T* Find(const char* name) {
        return view.findChild<T*>(name);
    }
    void Press(const char* button) {
        Find<QPushButton>(button)->click();
        Settle();
    }
    void Send(BMessage message) {
        view.MessageReceived(message);
        Settle();
    }
    KTBackupStartWin* StartDialog() {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (auto* dialog = qobject_cast<KTBackupStartWin*>(widget);
                dialog && !dialog->isHidden())
                return dialog;
        return nullptr;
    }
    void Start() {
        Press("btn_start");
        ASSERT_TRUE(StartDialog());
        StartDialog()->findChild<QPushButton*>("btn_ok")->click();
        Settle();
    }
    BMessage Sent() {
        EXPECT_EQ(desk.server.application.size(), 1u);
        return desk.server.application.empty() ? BMessage() : desk.server.application.back();
    }
    static std::vector<std::string> Rules(const BMessage& job) {
        const BMessage selection = job.Get("selection", BMessage());
        std::vector<std::string> rules(static_cast<size_t>(selection.Count("SELECTION")));
        for (size_t i = 0; i < rules.size(); ++i)
            rules[i] = *selection.FindString("SELECTION", static_cast<int32_t>(i));
        return rules;
    }

    FurnishedDesk desk;
    std::shared_ptr<MountTable> mounts = std::make_shared<MountTable>();
    KTQBView view{desk.Context(), nullptr, "quickbackup", mounts};
};

TEST_F(QuickBackup, HasItsControlsAndNoOthers) {
    for (const char* name : {"lst_volumes", "mnu_destination", "btn_destination", "str_destination",
                             "mnu_packer", "btn_packer", "str_packer", "btn_start", "backuppopup"})
        EXPECT_EQ(view.findChildren<QWidget*>(name).size(), 1) << name;
    EXPECT_EQ(view.findChildren<QComboBox*>().size(), 2) << "no mode, no scheduler";
    QStringList items;
    for (const QAction* action : Find<QMenu>("backuppopup")->actions())
        items << action->objectName() + " " + action->text();
    EXPECT_EQ(items, (QStringList{"sall Select All", "sclr Clear All", "sbak Start Backup"}));
    EXPECT_EQ(view.Volumes()->accessibleName(), "Volumes");
    EXPECT_TRUE(WaitFor([&] { return Find<QLabel>("str_hint")->text().contains("'Disk'"); }));
}

TEST_F(QuickBackup, SendsTheMarkedVolumes) {
    Press("btn_start");
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_EQ(desk.dialogs.Alerts()[0].title, "QuickBackup");
    EXPECT_EQ(desk.dialogs.Alerts()[0].text, "Sorry, no directories or files selected to backup!");
    EXPECT_FALSE(StartDialog());

    view.SetPref(Job("Safe", false));
    Send(BMessage("sall"_code));
    EXPECT_EQ(Rules(view.Job()), (std::vector<std::string>{"INCLUDE /Disk/*", "INCLUDE /Data/*"}));
    Press("btn_start");
    ASSERT_TRUE(StartDialog());
    EXPECT_TRUE(StartDialog()->IsTitleEditable());
    StartDialog()->findChild<QLineEdit*>("str_title")->setText("All");
    Start();
    const BMessage sent = Sent();
    EXPECT_EQ(sent.what, "KTJA"_code);
    EXPECT_EQ(sent.Find<int32_t>("job_type"), 1);
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_EQ(Rules(sent), (std::vector<std::string>{"INCLUDE /Disk/*", "INCLUDE /Data/*",
                                                     "EXCLUDE /Disk/var/*"}));
    EXPECT_EQ(sent.Get("start_info", BMessage()).FindString("title"), "All");
    EXPECT_EQ(sent.Get("volume", BMessage()).FindString("medium"), "Safe");

    Send(BMessage("sclr"_code));
    EXPECT_TRUE(Rules(view.Job()).empty());
}

TEST_F(QuickBackup, VolumeThatGoesBehindTheDialogIsNotSent) {
    view.SetPref(Job("Safe", false));
    view.Volumes()->MultiSelect(view.Volumes()->Rows().ChildAt(kNoRow, 1));
    Press("btn_start");
    ASSERT_TRUE(StartDialog());
    mounts->Set({{"Disk", "/", 1}});
    BMessage unmounted("NDMN"_code);
    unmounted.Add("opcode", int32_t{7});
    view.Volumes()->MessageReceived(unmounted);
    ASSERT_TRUE(WaitFor([&] { return view.Volumes()->Rows().Count() == 1; }));
    StartDialog()->findChild<QPushButton*>("btn_ok")->click();
    Settle();
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_TRUE(desk.server.application.empty());
}

TEST_F(QuickBackup, LoadedJobOfTheBackupToolBecomesAQuickOne) {
    BMessage job = Job("Safe", false, 2);
    BMessage selection, schedule;
    selection.Add("SELECTION", "INCLUDE /Data/home/*");
    schedule.Add("TIME", BTime{1700000000});
    schedule.Add("Days", int32_t{1});
    job.Add("selection", selection);
    job.Add("scheduler", schedule);
    job.Add("bak_addonpacker", "KTZstd");
    const std::string path = desk.program / "jobsettings/other_bak";
    ASSERT_EQ(core::SaveHeaderFile(path, "KTBAKJOB", job), core::HeaderSave::Good);

    view.SetPref(entry_ref{path});
    EXPECT_EQ(Find<QComboBox>("mnu_packer")->currentText(), "Zstandard");
    EXPECT_TRUE(Find<QPushButton>("btn_packer")->isEnabled());
    EXPECT_EQ(Find<QLabel>("str_destination")->text(), "Safe");
    EXPECT_EQ(view.Job().FindString("selectionpath"), path);
    // There are no controls for a time, so none can come in.
    Send(Answer("swqt"_code, true, schedule));
    Start();
    const BMessage sent = Sent();
    EXPECT_EQ(sent.Find<int32_t>("job_type"), 1);
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_FALSE(sent.Get("scheduler", BMessage()).Has("TIME"));
    EXPECT_FALSE(sent.Get("scheduler", BMessage()).Has("Days"));
    EXPECT_EQ(Rules(sent), (std::vector<std::string>{"INCLUDE /Data/*", "EXCLUDE /Disk/var/*"}));
    EXPECT_EQ(sent.FindString("bak_addonpacker"), "KTZstd");
}

TEST_F(QuickBackup, AsksBeforeItOverwrites) {
    view.SetPref(Job("Safe", true));
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
    BMessage settings;
    view.Volumes()->MultiSelect(view.Volumes()->Rows().First());
    view.GetPref(&settings);
    Send(BMessage("sclr"_code));
    view.SetPref(settings);
    EXPECT_EQ(Rules(view.Job()), std::vector<std::string>{"INCLUDE /Disk/*"});
    EXPECT_TRUE(view.Volumes()->Rows().IsMarked(view.Volumes()->Rows().First()));
}

}  // namespace

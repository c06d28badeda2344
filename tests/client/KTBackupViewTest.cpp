// The backup tool with its real widgets, found by their names; server, alerts and panels by script.
#include "client/backup/KTBackupView.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDropEvent>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>

#include "client/app/ClientCodes.h"
#include "client/backup/KTBackupStartWin.h"
#include "client/job/KTSchedulerWindow.h"
#include "client/jobqueue/KTJobListView.h"
#include "client/selection/KTSourceSelectionView.h"
#include "core/files/HeaderFile.h"
#include "core/protocol/Codes.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

BMessage Bases() {
    BMessage jobs(core::code::kJobInserted);
    AddJob(jobs, 3, "Queued", 1, 1);
    AddJob(jobs, 5, "Home", 1, 1, true);
    AddJob(jobs, 6, "Mail", 1, 1, true);
    return jobs;
}

class BackupView : public WidgetTest {
protected:
    BackupView() {
        desk.program.AddReal();
        desk.program.AddTest();
        desk.server.answers["KTJL"_code] = Bases();
    }
    KTBackupView& View() {
        if (!view) {
            view = std::make_unique<KTBackupView>(desk.Context(), nullptr, "backup",
                                                  std::make_shared<MountTable>());
            view->resize(560, 400);
            view->show();
            WaitFor([&] { return view->Sources()->Rows().Count() > 0; });
            Settle();
        }
        return *view;
    }
    QWidget* Subject() override { return &View(); }
    void Mark() { View().Sources()->MultiSelect(View().Sources()->Rows().First()); }
    static KTBackupStartWin* StartDialog() { return ShownWindow<KTBackupStartWin>(); }
    void Confirm(KTBackupStartWin* dialog) { Click(dialog, "btn_ok"); }
    // From the start button to the confirmed dialog.
    void Start() {
        Press("btn_start");
        ASSERT_TRUE(StartDialog());
        Confirm(StartDialog());
    }
    BMessage Stored(const char* field) { return View().Job().Get(field, BMessage()); }
    static int32_t Overwrites(const BMessage& settings) {
        return settings.Get<int32_t>("overwrite", -1);
    }

    std::unique_ptr<KTBackupView> view;
};

TEST_F(BackupView, EveryControlIsSpoken) {
    for (QWidget* control : View().findChildren<QWidget*>()) {
        if (!qobject_cast<QComboBox*>(control) && !qobject_cast<QPushButton*>(control)) continue;
        EXPECT_FALSE(control->accessibleName().isEmpty() &&
                     control->property("text").toString().isEmpty())
            << control->objectName().toStdString();
    }
}

TEST_F(BackupView, FreshToolHasNoMediumAndNoCompression) {
    EXPECT_EQ(Words("str_destination"), "--");
    EXPECT_TRUE(Find<QPushButton>("btn_destination")->isEnabled());
    EXPECT_FALSE(Find<QPushButton>("btn_packer")->isEnabled()) << "none has no settings";
    EXPECT_NE(Words("str_packer"), "--");
    EXPECT_TRUE(WaitFor([&] { return Words("str_hint").contains("'Disk'"); }));
    Press("btn_start");
    Mark();
    Press("btn_start");
    EXPECT_EQ(desk.dialogs.Told(),
              (Texts{"Backup: Sorry, no directories or files selected to backup!",
                     "Backup: ERROR: no destination drive selected!"}));
    EXPECT_FALSE(StartDialog());
    EXPECT_TRUE(desk.server.application.empty());
}

TEST_F(BackupView, FullBackupIsSentWithWhatWasChosen) {
    View().SetPref(Job("Safe", false));
    EXPECT_EQ(Words("str_destination"), "Safe");
    Choose("mnu_packer", 1);
    EXPECT_TRUE(Find<QPushButton>("btn_packer")->isEnabled());
    Mark();
    Press("btn_start");
    KTBackupStartWin* dialog = StartDialog();
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->windowTitle(), "Start Backup");
    EXPECT_TRUE(dialog->IsTitleEditable());
    Press("btn_start");
    EXPECT_EQ(StartDialog(), dialog) << "one dialog, brought to the front";
    dialog->findChild<QLineEdit*>("str_title")->setText("Tuesday");
    Confirm(dialog);

    const BMessage sent = Sent();
    ExpectIs(sent, "KTJA"_code, {{"job_type", 1}});
    EXPECT_FALSE(sent.Has("base_id"));
    EXPECT_EQ(Strings(sent.Get("selection", BMessage()), "SELECTION"),
              (Texts{"INCLUDE /Disk/*", "EXCLUDE /Disk/var/*"}));
    ExpectHas(sent, {{"addon", "KTTest"}, {"bak_addonpacker", "KTZstd"}});
    EXPECT_EQ(sent.Get("volume", BMessage()).FindString("medium"), "Safe");
    EXPECT_EQ(sent.Get("start_info", BMessage()).FindString("title"), "Tuesday");
    EXPECT_TRUE(desk.dialogs.Alerts().empty());
}

TEST_F(BackupView, CancelledStartSendsNothing) {
    View().SetPref(Job("Safe", false));
    Mark();
    Press("btn_start");
    Click(StartDialog(), "btn_cancel");
    EXPECT_TRUE(desk.server.application.empty());
    Press("btn_start");
    EXPECT_TRUE(StartDialog()) << "the next one opens";
}

TEST_F(BackupView, WhatChangedBehindTheDialogIsCheckedAgain) {
    View().SetPref(Job("Safe", false));
    Mark();
    Press("btn_start");
    KTBackupStartWin* dialog = StartDialog();
    ASSERT_TRUE(dialog);
    Send(BMessage("sclr"_code));
    Confirm(dialog);
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_TRUE(desk.server.application.empty());
}

TEST_F(BackupView, OverwriteQuestionTakesNoForNo) {
    struct {
        int answer;
        bool sent;
        int32_t overwrite;
    } cases[] = {{0, true, 1}, {1, true, 0}, {2, false, 1}, {-1, true, 0}};
    View().SetPref(Job("Safe", true));
    for (const auto& [answer, sent, overwrite] : cases) {
        desk.server.application.clear();
        View().SetPref(Job("Safe", true));
        Mark();
        desk.dialogs.Answer(answer);
        Start();
        const KTAlertRequest& alert = desk.dialogs.Alerts().back();
        EXPECT_EQ(alert.title, "Backup");
        EXPECT_EQ(alert.text, "Do you really want to overwrite all existing backups on\n'Safe'?");
        EXPECT_EQ(alert.buttons, (QStringList{"Yes", "No", "Cancel"}));
        EXPECT_NE(alert.defaultButton, 0) << "what destroys is never the default";
        EXPECT_EQ(desk.server.application.size(), sent ? 1u : 0u) << answer;
        EXPECT_EQ(Overwrites(Stored("volume")), overwrite) << answer;
        if (!sent) continue;
        EXPECT_EQ(Overwrites(Sent().Get("volume", BMessage())), overwrite) << answer;
        if (overwrite == 0) {
            EXPECT_EQ(Overwrites(Sent().Get("KTTest", BMessage())), 0) << answer;
        }
    }
    EXPECT_EQ(desk.dialogs.Alerts().size(), 4u);
}

TEST_F(BackupView, IncrementalBuildsOnAFullBackupAndNeverOverwrites) {
    View().SetPref(Job("Safe", true));
    Mark();
    Choose("mnu_backupmode", 1);
    EXPECT_FALSE(View().Sources()->isVisible());
    ASSERT_TRUE(View().BaseJobs()->isVisible());
    EXPECT_EQ(View().BaseJobs()->Rows().Count(), 2) << "queued jobs are no base";
    Press("btn_start");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Backup: Sorry, there is no job for an incremental backup selected!"});

    View().BaseJobs()->Select(View().BaseJobs()->RowOfJob(6));
    Press("btn_start");
    KTBackupStartWin* dialog = StartDialog();
    ASSERT_TRUE(dialog);
    EXPECT_FALSE(dialog->IsTitleEditable());
    EXPECT_FALSE(dialog->findChild<QCheckBox*>("chk_password")->isEnabled());
    EXPECT_EQ(dialog->findChild<QLineEdit*>("str_title")->text(), "Mail");
    Confirm(dialog);
    EXPECT_EQ(desk.dialogs.Told(), Texts{}) << "no overwrite question";
    const BMessage sent = Sent();
    ExpectHas(sent, {{"job_type", 2}, {"base_id", 6}});
    EXPECT_FALSE(sent.Has("selection"));
    EXPECT_EQ(Overwrites(sent.Get("volume", BMessage())), 0);
    EXPECT_EQ(sent.Get("start_info", BMessage()).FindString("title"), "Mail");

    Choose("mnu_backupmode", 0);
    EXPECT_TRUE(View().Sources()->isVisible());
    desk.server.application.clear();
    Start();
    EXPECT_FALSE(Sent().Has("base_id"));
    EXPECT_TRUE(Sent().Has("selection"));
}

TEST_F(BackupView, BaseOfAJobIsFoundAgainAndSurvivesAMissingServer) {
    View().SetPref(Job("Safe", false, 3));
    EXPECT_EQ(Find<QComboBox>("mnu_backupmode")->currentIndex(), 2);
    EXPECT_EQ(View().BaseJobs()->CurrentSelection(), View().BaseJobs()->RowOfJob(6));
    EXPECT_EQ(SettingsOf(View()).Find<int32_t>("base_id"), 6);
    view.reset();

    desk.server.answers.clear();
    View().SetPref(Job("Safe", false, 3));
    EXPECT_EQ(View().BaseJobs()->Rows().Count(), 0);
    EXPECT_EQ(SettingsOf(View()).Find<int32_t>("base_id"), 6) << "a list never filled says nothing";
    // The server comes, and with it the list.
    desk.server.answers["KTJL"_code] = Bases();
    Send(BMessage(client::code::kServerBack));
    EXPECT_EQ(View().BaseJobs()->CurrentSelection(), View().BaseJobs()->RowOfJob(6));
}

TEST_F(BackupView, NewFullBackupsAppearAmongTheBases) {
    View().SetPref(Job("Safe", false, 2));
    BMessage bases = Bases();
    AddJob(bases, 9, "Fresh", 1, 1, true);
    desk.server.answers["KTJL"_code] = bases;
    desk.server.asked.clear();
    BMessage removed = Made(core::code::kJobRemoved, {{"job_id", 9}});
    for (int burst = 0; burst < 5; ++burst) {
        BMessage copy(removed);
        View().MessageReceived(copy);
    }
    Settle();
    EXPECT_NE(View().BaseJobs()->RowOfJob(9), kNoRow);
    EXPECT_EQ(desk.server.asked.size(), 1u) << "one question for a burst of notices";
    EXPECT_EQ(View().BaseJobs()->CurrentSelection(), View().BaseJobs()->RowOfJob(6));
}

TEST_F(BackupView, DestinationsAreSwitchedWithTheirSettings) {
    View().SetPref(Job("Safe", false));
    Choose("mnu_destination", 0);
    EXPECT_EQ(View().Job().FindString("addon"), "KTImage");
    EXPECT_EQ(Words("str_destination"), "--");
    // Nothing was stored for the first one yet, then it was.
    Choose("mnu_destination", 1);
    Press("btn_destination");
    auto* field = Find<QLineEdit>("str_medium");
    ASSERT_TRUE(field);
    field->setText("Tape");
    emit field->textEdited("Tape");
    Click(field->window(), "btn_ok");
    EXPECT_EQ(Words("str_destination"), "Tape");
    EXPECT_EQ(Stored("KTTest").FindString("medium"), "Tape");
    EXPECT_EQ(Stored("volume").FindString("addon"), "KTTest") << "added where it was missing";
    Choose("mnu_destination", 0);
    Choose("mnu_destination", 1);
    EXPECT_EQ(Words("str_destination"), "Tape");
}

TEST_F(BackupView, SettingsWindowGoesWithItsDestination) {
    View().SetPref(Job("Safe", false));
    Press("btn_destination");
    QPointer<QWidget> window = Find<QLineEdit>("str_medium")->window();
    ASSERT_TRUE(window);
    Choose("mnu_destination", 0);
    EXPECT_TRUE(WaitFor([&] { return !window || window->isHidden(); }));
}

TEST_F(BackupView, AddOnThatIsGoneIsNoDestination) {
    BMessage job = Job("Safe", false);
    job.Set("addon", "KTGone");
    View().SetPref(job);
    EXPECT_EQ(Words("str_destination"), "--");
    EXPECT_FALSE(Find<QPushButton>("btn_destination")->isEnabled());
    Mark();
    Press("btn_start");
    EXPECT_EQ(desk.dialogs.Alerts().back().text, "ERROR: no destination drive selected!");
    Choose("mnu_destination", 1);
    EXPECT_TRUE(Find<QPushButton>("btn_destination")->isEnabled());
}

TEST(BackupViewWithoutAddOns, HasEmptyMenus) {
    Desk desk;
    KTBackupView view(desk.Context(), nullptr, "backup", std::make_shared<MountTable>());
    EXPECT_EQ(view.findChild<QComboBox*>("mnu_destination")->count(), 0);
    EXPECT_FALSE(view.findChild<QPushButton*>("btn_destination")->isEnabled());
    EXPECT_FALSE(view.findChild<QPushButton*>("btn_packer")->isEnabled());
    EXPECT_EQ(view.findChild<QLabel*>("str_destination")->text(), "--");
    EXPECT_EQ(view.findChild<QLabel*>("str_packer")->text(), "--");
}

TEST_F(BackupView, JobFilesAreSavedAndLoaded) {
    View().SetPref(Job("Safe", false));
    Mark();
    Send(BMessage("ssel"_code));
    Send(BMessage("ssel"_code));
    ASSERT_EQ(desk.dialogs.Panels().size(), 1u) << "one panel";
    EXPECT_EQ(desk.dialogs.Panels()[0].request.directory, desk.program / "jobsettings");
    EXPECT_EQ(desk.dialogs.Panels()[0].request.name, "default_bak");
    const std::string path = desk.program / "jobsettings/home_bak";
    desk.dialogs.Close(path);
    EXPECT_EQ(core::MagicOf(path), "KTBAKJOB");
    EXPECT_EQ(View().Job().FindString("selectionpath"), path);

    View().SetPref(BMessage());
    EXPECT_FALSE(View().Sources()->Rows().HasMarks());
    Send(BMessage("lsel"_code));
    desk.dialogs.Close(path);
    EXPECT_TRUE(View().Sources()->Rows().HasMarks());
    EXPECT_EQ(Words("str_destination"), "Safe");
    // The next panel opens where the last file lies.
    Send(BMessage("lsel"_code));
    EXPECT_EQ(desk.dialogs.Panels().back().request.directory, desk.program / "jobsettings");
    EXPECT_EQ(desk.dialogs.Panels().back().request.name, "");
    desk.dialogs.Close(std::nullopt);
    Send(BMessage("ssel"_code));
    EXPECT_EQ(desk.dialogs.Panels().back().request.name, "home_bak");
    desk.dialogs.Close(desk.program / "no-such-folder/x");
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1u) << "a job that was not saved is said";
    EXPECT_EQ(View().Job().FindString("selectionpath"), path);
}

TEST_F(BackupView, WrongFilesChangeNothing) {
    View().SetPref(Job("Safe", false));
    Mark();
    const BMessage before = SettingsOf(View());
    const std::string path = desk.program / "other";
    std::ofstream(path) << "KTRESJOB" << std::string(92, '\0');
    BMessage loaded;
    EXPECT_EQ(View().LoadJobData(entry_ref{path}, &loaded), 3);
    View().SetPref(entry_ref{path});
    View().SetPref(entry_ref{desk.program / "missing"});
    std::ofstream(path) << "KTSELECT" << std::string(92, '\0') << "rubbish";
    View().SetPref(entry_ref{path});
    EXPECT_EQ(desk.dialogs.Alerts().size(), 3u);
    EXPECT_EQ(SettingsOf(View()), before);
}

TEST_F(BackupView, DroppedSelectionFillsOnlyTheSelection) {
    View().SetPref(Job("Safe", false));
    Mark();
    BMessage selection;
    View().Sources()->GetSelection(&selection);
    const std::string path = desk.program / "selection";
    ASSERT_EQ(core::SaveHeaderFile(path, core::kSelectionMagic, selection), core::HeaderSave::Good);
    Send(BMessage("sclr"_code));
    EXPECT_FALSE(View().Sources()->Rows().HasMarks());

    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(desk.program / "nothing")),
                  QUrl::fromLocalFile(QString::fromStdString(path))});
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&View(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&View(), &drop);
    EXPECT_TRUE(WaitFor([&] { return View().Sources()->Rows().HasMarks(); }));
    EXPECT_EQ(Words("str_destination"), "Safe");
    EXPECT_FALSE(View().Job().Has("selectionpath"));
}

TEST_F(BackupView, SelectAllAndClearAll) {
    Send(BMessage("sall"_code));
    EXPECT_EQ(Stored("selection").Count("SELECTION"), 2) << "one rule for each volume";
    Send(BMessage("sclr"_code));
    EXPECT_EQ(Stored("selection").Count("SELECTION"), 0);

    View().SetPref(Job("Safe", false, 2));
    Send(BMessage("sall"_code));
    EXPECT_FALSE(View().Sources()->Rows().HasMarks()) << "for full backups only";
    Send(BMessage("sclr"_code));
    EXPECT_EQ(View().BaseJobs()->CurrentSelection(), kNoRow);
    EXPECT_EQ(View().Job().Find<int32_t>("base_id"), 0);
}

TEST_F(BackupView, ScheduleIsShownAndTakenAway) {
    EXPECT_EQ(Words("str_bakscheduler"), "");
    BMessage schedule = Made({{"TIME", BTime{1700000000}}});
    Send(Answer("swqt"_code, false, schedule));
    EXPECT_EQ(Words("str_bakscheduler"), "");
    Send(Answer("swqt"_code, true, schedule));
    EXPECT_TRUE(Words("str_bakscheduler").startsWith("Start job at: "));
    EXPECT_TRUE(Words("str_bakscheduler").endsWith(" 2023"));
    EXPECT_EQ(Find<QComboBox>("mnu_bakscheduler")->currentIndex(), 1);
    Choose("mnu_bakscheduler", 0);
    EXPECT_EQ(Words("str_bakscheduler"), "");
    EXPECT_FALSE(Stored("scheduler").Has("TIME"));

    Choose("mnu_bakscheduler", 1);
    Press("btn_bakscheduler");
    const auto dialogs = View().window()->findChildren<KTSchedulerWindow*>();
    ASSERT_EQ(dialogs.size(), 1) << "it opens once";
    EXPECT_EQ(Find<QComboBox>("mnu_bakscheduler")->currentIndex(), 0)
        << "without a time there is no schedule";
    dialogs[0]->findChild<QLineEdit*>("DATE")->setText("31.12.2040");
    dialogs[0]->findChild<QLineEdit*>("Days")->setText("7");
    Click(dialogs[0], "btn_ok");
    EXPECT_EQ(Find<QComboBox>("mnu_bakscheduler")->currentIndex(), 1);
    EXPECT_TRUE(Words("str_bakscheduler").contains("2040"));
    EXPECT_TRUE(Words("str_bakscheduler").endsWith("every week")) << "and how often";
    EXPECT_EQ(Stored("scheduler").Get<int32_t>("Days", 0), 7);
}

TEST_F(BackupView, PasswordIsUsedOnce) {
    View().SetPref(Job("Safe", false));
    Mark();
    BMessage info = Made({{"title", "Home"}, {"passonoff", 1}, {"password", "secret"}});
    Send(Answer("bsqt"_code, true, info));
    EXPECT_EQ(Sent().Get("start_info", BMessage()).FindString("password"), "secret");
    EXPECT_FALSE(SettingsOf(View()).Get("start_info", BMessage()).Has("password"));

    View().SetPref(Job("Safe", true));
    Mark();
    desk.dialogs.Answer(2);
    Send(Answer("bsqt"_code, true, info));
    EXPECT_FALSE(SettingsOf(View()).Get("start_info", BMessage()).Has("password"))
        << "nor when taken back";
}

TEST_F(BackupView, EditingWindowStartsNothing) {
    View().HideStart();
    EXPECT_FALSE(Find<QPushButton>("btn_start")->isVisible());
    EXPECT_FALSE(Find<QAction>("sbak")->isVisible());
}

}  // namespace

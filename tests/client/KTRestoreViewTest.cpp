// The restore tool with its real widgets, in front of a server that answers by script.
#include "client/restore/KTRestoreView.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>

#include "client/app/ClientCodes.h"
#include "client/restore/KTRestorePopUpMenu.h"
#include "client/restore/KTRestoreSelectionView.h"
#include "client/uikit/KTElidedLabel.h"
#include "tests/client/RestoreTesting.h"

using namespace restore_testing;

namespace {

class RestoreTool : public CatalogueToolTest<KTRestoreView> {
protected:
    KTRow Row(const std::string& path) { return RowOf(View(), path); }
    KTRestoreSelectionView& View() { return *tool->Catalogue(); }
};

TEST_F(RestoreTool, RefusesToStartWithNothingMarked) {
    Press("btn_resstart");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Restore: Sorry, no directories or files selected to restore!"});
    EXPECT_FALSE(FindWindow("str_title"));
    EXPECT_FALSE(tool->CheckStart(true));
    EXPECT_EQ(desk.dialogs.Told(), Texts{});
}

TEST_F(RestoreTool, SendsTheJobOnceTheStartDialogSaysSo) {
    ExpandTo(View(), "Mon/Disk/home");
    View().MultiSelect(Row("Mon/Disk/home"));
    View().AddRedirection(Row("Mon/Disk/home"), "/t");
    Press("btn_resstart");
    Press("btn_resstart");  // the one that is open
    auto* title = FindWindow<QLineEdit>("str_title");
    ASSERT_TRUE(title);
    title->setText("Get it back");
    ClickBeside("str_title", "btn_ok");
    ASSERT_TRUE(WaitFor([&] { return desk.server.application.size() == 1; }));
    const BMessage& job = desk.server.application[0];
    ExpectIs(job, "KTJA"_code, {{"job_type", 4}});
    EXPECT_EQ(job.Count("job_type"), 1);
    const BMessage selection = job.Get("selection", BMessage());
    EXPECT_EQ(Strings(selection, "SELECTION"), (Texts{"INCLUDE /Mon/Disk/home/*"}));
    EXPECT_EQ(Strings(selection, "source"), (Texts{"REDIREC /Mon/Disk/home/*"}));
    EXPECT_EQ(job.Get("start_info", BMessage()).FindString("title"), "Get it back");
    // What was marked may have gone while the dialog was open.
    Press("btn_resstart");
    View().MultiSelectAll(false);
    ClickBeside("str_title", "btn_ok");
    EXPECT_EQ(desk.server.application.size(), 1U);
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Restore: Sorry, no directories or files selected to restore!"});
}

TEST_F(RestoreTool, TheStartDialogFollowsTheMarks) {
    ExpandTo(View(), "Mon/Disk/home");
    View().MultiSelect(Row("Mon/Disk/home/f"));
    Press("btn_resstart");
    auto* list = FindWindow<KTColumnListView>("lst_passwords");
    ASSERT_TRUE(list);
    ASSERT_EQ(list->Rows().Count(), 1);
    EXPECT_EQ(list->Rows().TextAt(list->Rows().First(), 3), "Mon");
    View().MultiSelect(Row("Old"));
    Settle();
    EXPECT_EQ(list->Rows().Count(), 2);
    // Where the first item goes: nowhere known, as no volume here is called "Disk".
    auto* landing = FindWindow<KTElidedLabel>("str_landing");
    ASSERT_TRUE(WaitFor([&] { return landing->text() == "--"; })) << landing->text().toStdString();
    View().AddRedirection(Row("Mon/Disk/home/f"), "/target");
    Send(BMessage("rsDV"_code));  // not diverted
    EXPECT_EQ(landing->text(), "--");
    Send(Made("rsDV"_code, {{"divert", 1}}));
    EXPECT_EQ(landing->text(), "/target/f");
    ClickBeside("str_title", "btn_cancel");
    EXPECT_TRUE(desk.server.application.empty());
}

TEST_F(RestoreTool, DivertingTakesEffectAtOnceAndIsTakenBack) {
    auto* area = tool->findChild<QScrollArea*>("RestoreRedirectScrollView");
    ASSERT_TRUE(area);
    EXPECT_FALSE(area->isVisible());
    Press("btn_ressettings");
    auto* box = FindWindow<QCheckBox>("chk_divert");
    ASSERT_TRUE(box);
    box->click();
    Settle();
    EXPECT_TRUE(area->isVisible());
    ClickBeside("chk_divert", "btn_cancel");
    EXPECT_FALSE(area->isVisible());
    Press("btn_ressettings");
    FindWindow<QCheckBox>("chk_divert")->click();
    FindWindow<QComboBox>("mnu_overwrite")->setCurrentIndex(3);
    ClickBeside("chk_divert", "btn_ok");
    EXPECT_TRUE(area->isVisible());
    const BMessage settings = tool->Job().Get("restore", BMessage());
    ExpectHas(settings, {{"divert", 1}, {"overwrite", 3}});
}

TEST_F(RestoreTool, DeletesWholeBackupsOnly) {
    ExpandTo(View(), "Mon/Disk");
    View().MultiSelect(Row("Mon/Disk/home"));
    Press("btn_delete");
    EXPECT_EQ(desk.dialogs.Alerts().back().text, "Sorry, no backup(s) selected to delete!");
    View().MultiSelect(Row("Mon"));
    Press("btn_delete");
    auto* text = FindWindow<QPlainTextEdit>("tctrl_delete");
    ASSERT_TRUE(text);
    EXPECT_TRUE(text->toPlainText().startsWith("Home, Thu Jan  1 "));
    EXPECT_EQ(text->toPlainText().count('\n'), 1);
    View().MultiSelect(Row("Tue"));
    Settle();
    EXPECT_EQ(text->toPlainText().count('\n'), 2);
    FindWindow<QCheckBox>("chk_deletedata")->setChecked(true);
    ClickBeside("tctrl_delete", "btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 1U);
    const BMessage& request = desk.server.posted[0];
    EXPECT_EQ(request.what, "KTxX"_code);
    EXPECT_EQ(Strings(request, "name"), (Texts{"Mon", "Tue"}));
    EXPECT_EQ(request.Get<int32_t>("full", 0, 1), 1);
    EXPECT_NE(Row("Mon"), kNoRow);  // until the server says so
    // Marks that go take the open question with them.
    Press("btn_delete");
    ASSERT_TRUE(FindWindow<QPlainTextEdit>("tctrl_delete"));
    View().MultiSelectAll(false);
    Settle();
    EXPECT_FALSE(FindWindow<QPlainTextEdit>("tctrl_delete"));
}

TEST_F(RestoreTool, KeepsJobFilesAndSelections) {
    View().MultiSelect(Row("Mon"));
    View().AddRedirection(Row("Mon"), "/t");
    Send(BMessage("ssel"_code));
    ASSERT_EQ(desk.dialogs.Panels().size(), 1U);
    EXPECT_EQ(desk.dialogs.Panels()[0].request.name, "default_res");
    desk.dialogs.Close(desk.program / "jobsettings/mine");
    const std::string file = desk.program / "jobsettings/mine";
    EXPECT_EQ(core::MagicOf(file), "KTRESJOB");
    EXPECT_EQ(tool->Job().FindString("selectionpath"), file);

    View().MultiSelectAll(false);
    tool->SetPref(entry_ref{file});
    Settle();
    BMessage selection;
    View().GetSelectionList(&selection);
    EXPECT_EQ(Strings(selection, "SELECTION"), (Texts{"INCLUDE /Mon/*"}));
    EXPECT_EQ(Strings(selection, "redirect"), (Texts{"/t"}));

    // A selection file fills the selection, and leaves the rest.
    const std::string marks = desk.program / "marks";
    ASSERT_EQ(core::SaveHeaderFile(marks, core::kRestoreSelectionMagic,
                                   Made({{"SELECTION", "INCLUDE /Old/*"}})),
              core::HeaderSave::Good);
    tool->SetPref(entry_ref{marks});
    EXPECT_EQ(View().WholeBackups(), (std::vector<KTRow>{Row("Old")}));
    EXPECT_EQ(tool->Job().FindString("selectionpath"), file);

    BMessage job;
    desk.program.Write("wrong", "KTBAKJOB" + std::string(200, '\0'));
    EXPECT_EQ(tool->LoadJobData({desk.program / "wrong"}, &job), 3);
    tool->SetPref(entry_ref{desk.program / "wrong"});
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1U);
    EXPECT_EQ(View().WholeBackups(), (std::vector<KTRow>{Row("Old")}));
}

TEST_F(RestoreTool, SaysWhenItStarts) {
    auto* words = tool->findChild<KTElidedLabel*>("str_resscheduler");
    EXPECT_EQ(words->text(), "--");
    Send(Answer("swqt"_code, true, Made({{"TIME", BTime{2'000'000'000}}})));
    EXPECT_TRUE(words->text().startsWith("Start job at: ")) << words->text().toStdString();
    const BMessage settings = SettingsOf(*tool);
    tool->SetPref(BMessage());
    EXPECT_EQ(words->text(), "--");
    tool->SetPref(settings);
    EXPECT_TRUE(words->text().contains("2033"));
}

TEST_F(RestoreTool, TheMenuRedirectsTheRowItWasOpenedOn) {
    ExpandTo(View(), "Mon/Disk");
    View().MultiSelect(Row("Mon/Disk"));
    View().SetCurrentRow(Row("Mon/Disk"));
    auto* menu = View().findChild<QMenu*>("RestorePopUp");
    ASSERT_TRUE(menu);
    std::filesystem::create_directories(desk.program / "dir/sub & more");
    desk.program.Write("dir/file", "no directory");
    KTRestorePopUpMenu below("dir", desk.program / "dir", BMessenger(&View()), menu);
    emit below.aboutToShow();
    ASSERT_TRUE(WaitFor([&] { return below.actions().size() == 3 && below.actions()[2]->menu(); }));
    EXPECT_EQ(below.actions()[2]->text(), "sub && more");
    auto* sub = qobject_cast<KTRestorePopUpMenu*>(below.actions()[2]->menu());
    sub->findChild<QAction*>("here")->trigger();
    Settle();
    BMessage selection;
    View().GetSelectionList(&selection);
    EXPECT_EQ(Strings(selection, "redirect"), (Texts{desk.program / "dir/sub & more"}));
    BMessage clear("RSCA"_code);
    View().MessageReceived(clear);
    EXPECT_EQ(View().CellText(Row("Mon/Disk"), KTLogDataView::kRedirect), "");
}

TEST_F(RestoreTool, TellsAboutARow) {
    ExpandTo(View(), "Mon/Disk/home");
    const BMessage info = View().InfoAbout(Row("Mon/Disk/home/f"));
    EXPECT_EQ(Strings(info, "RESINFOSPALTE1"),
              (Texts{"Name", "Size", "Date", "Destination", "Kind", "Volume", "Path", "Redirect",
                     "Backup", "Date"}));
    Texts values = Strings(info, "RESINFOSPALTE2");
    values[2] = values[9] = "";
    EXPECT_EQ(values,
              (Texts{"f", "42", "", "- kommt noch -", "File", "Disk", "/home/f", "", "Mon", ""}));
}

TEST_F(RestoreTool, UnlocksABackupAndShowsWhatIsInIt) {
    catalogue.Lock("Mon");
    View().Expand(Row("Mon"));
    Settle();
    auto* field = FindWindow<QLineEdit>("str_password");
    ASSERT_TRUE(field);
    catalogue.Open("Mon");
    field->setText("right");
    ClickBeside("str_password", "btn_ok");
    ASSERT_TRUE(WaitFor([&] { return Row("Mon/Disk") != kNoRow; }));
    EXPECT_TRUE(View().Rows().IsExpanded(Row("Mon")));
}

}  // namespace

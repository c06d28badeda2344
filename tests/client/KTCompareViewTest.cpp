// The compare tool with its real widgets, in front of a server that answers by script.
#include "client/compare/KTCompareView.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>

#include "kit/storage/NodeAttributes.h"
#include "tests/client/RestoreTesting.h"

using namespace restore_testing;

namespace {

const std::vector<const char*> kOthers = {"filedata",    "attribute",   "size", "mdate", "cdate",
                                          "symlinkdata", "permissions", "uid",  "gid"};

class CompareTool : public CatalogueToolTest<KTCompareView> {
protected:
    // Marks, starts and confirms; the job that was posted.
    BMessage Start() {
        const size_t before = desk.server.application.size();
        Press("btn_resstart");
        ClickBeside("str_title", "btn_ok");
        EXPECT_TRUE(WaitFor([&] { return desk.server.application.size() == before + 1; }));
        return desk.server.application.back();
    }
    KTLogDataView& View() { return *tool->Catalogue(); }
};

TEST_F(CompareTool, SendsWhatIsMarkedAndAddsAnEntryWithEachStart) {
    Press("btn_resstart");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Compare: Sorry, no directories or files selected to compare!"});

    Press("btn_cmpsettings");
    FindWindow<QCheckBox>("compareall")->click();
    Settle();
    FindWindow<QCheckBox>("size")->click();
    ClickBeside("compareall", "btn_ok");
    ExpandTo(View(), "Mon/Disk/home");
    View().MultiSelect(RowOf(View(), "Mon/Disk/home/f"));
    BMessage job = Start();
    ExpectIs(job, "KTJA"_code, {{"job_type", 5}});
    EXPECT_EQ(Strings(job.Get("selection", BMessage()), "SELECTION"),
              (Texts{"INCLUDE /Mon/Disk/home/f"}));
    EXPECT_EQ(job.Count("compare"), 2);
    job = Start();
    ASSERT_EQ(job.Count("compare"), 3);
    const BMessage chosen = job.Get("compare", BMessage());
    ExpectHas(chosen, {{"size", 1}, {"filedata", 0}, {"compareall", 0}});
    for (const int32_t i : {1, 2})
        EXPECT_EQ(job.Get("compare", BMessage(), i).Get<int32_t>("compareall", 0), 1);
    // The dialog asks for no passwords and says nothing about them; the server is not asked.
    Press("btn_resstart");
    EXPECT_TRUE(FindWindow<QLineEdit>("str_title"));
    EXPECT_FALSE(FindWindow("str_noneprotected"));
    EXPECT_FALSE(FindWindow("lst_passwords"));
    ClickBeside("str_title", "btn_cancel");
    EXPECT_TRUE(checked.empty());
    // What is changed later is still the first of them.
    Press("btn_cmpsettings");
    FindWindow<QCheckBox>("uid")->click();
    ClickBeside("compareall", "btn_ok");
    job = Start();
    EXPECT_EQ(job.Count("compare"), 4);
    EXPECT_EQ(job.Get("compare", BMessage()).Get<int32_t>("uid", 0), 1);
}

TEST_F(CompareTool, CompareAllStandsForTheOthers) {
    Press("btn_cmpsettings");
    Press("btn_cmpsettings");  // the one that is open
    auto* all = FindWindow<QCheckBox>("compareall");
    ASSERT_TRUE(all);
    EXPECT_EQ(all->window()->windowTitle(), "Compare Settings");
    EXPECT_TRUE(all->isChecked());  // as long as nothing was chosen
    for (const bool on : {true, false, true}) {
        EXPECT_EQ(all->isChecked(), on);
        for (const char* name : kOthers)
            EXPECT_EQ(FindWindow<QCheckBox>(name)->isEnabled(), !on) << name;
        all->click();
        Settle();
    }
    FindWindow<QCheckBox>("gid")->click();
    ClickBeside("compareall", "btn_cancel");
    EXPECT_FALSE(tool->Job().Has("compare"));
}

TEST_F(CompareTool, NothingIsSentElsewhere) {
    EXPECT_TRUE(View().isColumnHidden(KTLogDataView::kRedirect));
    EXPECT_FALSE(View().acceptDrops());
    auto* menu = tool->findChild<QMenu*>("compareppopup");
    ASSERT_TRUE(menu);
    Texts names;
    for (const QAction* action : menu->actions())
        if (!action->isSeparator()) names.push_back(action->objectName().toStdString());
    EXPECT_EQ(names, (Texts{"sall", "sclr", "cmse", "cmst"}));
    Send(BMessage("sall"_code));
    EXPECT_TRUE(tool->CheckStart(true));
    EXPECT_TRUE(tool->Job().Get("selection", BMessage()).Has("SELECTION"));
    Send(BMessage("sclr"_code));
    EXPECT_FALSE(tool->CheckStart(true));
    tool->HideStart();
    EXPECT_FALSE(tool->findChild<QPushButton*>("btn_resstart")->isVisible());
}

TEST_F(CompareTool, OpensAProtectedBackupByItsPassword) {
    ExpandTo(View(), "Tue/Disk");
    View().SetCurrentRow(RowOf(View(), "Tue/Disk"));
    Press("btn_cmppassword");
    auto* field = FindWindow<QLineEdit>("str_password");
    ASSERT_TRUE(field);
    field->setText("right");
    ClickBeside("str_password", "btn_ok");
    ASSERT_TRUE(WaitFor([&] { return !checked.empty(); }));
    EXPECT_EQ(Strings(checked.back(), "name"), (Texts{"Tue"}));
    EXPECT_EQ(Strings(checked.back(), "pw"), (Texts{"right"}));
}

TEST_F(CompareTool, KeepsJobFilesOfItsOwnMagicAndTheSharedType) {
    View().MultiSelect(RowOf(View(), "Mon"));
    Send(BMessage("ssel"_code));
    const std::string file = desk.program / "jobsettings/mine";
    desk.dialogs.Close(file);
    EXPECT_EQ(core::MagicOf(file), "KTCMPJOB");
    EXPECT_EQ(kit::MimeType(file), "application/x-vnd.velmoraware-restoreselection");
    EXPECT_EQ(tool->Job().FindString("selectionpath"), file);
    Send(BMessage("sclr"_code));
    tool->SetPref(entry_ref{file});
    EXPECT_TRUE(tool->CheckStart(true));
    // A restore job is no compare job.
    desk.program.Write("wrong", "KTRESJOB" + std::string(200, '\0'));
    BMessage job;
    EXPECT_EQ(tool->LoadJobData({desk.program / "wrong"}, &job), 3);
}

}  // namespace

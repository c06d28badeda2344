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

class CompareTool : public ::testing::Test {
protected:
    CompareTool() {
        desk.server.answer = [this](const BMessage& question) -> BMessage {
            if (question.what != "ktpc"_code) return catalogue(question);
            checked.push_back(question);
            BMessage reply("ktpr"_code);
            reply.Add("name", question.Get("name", std::string()));
            reply.Add(question.Has("pw") ? "result" : "protected", int32_t{1});
            return reply;
        };
        tool = std::make_unique<KTCompareView>(desk.Context());
        tool->resize(900, 600);
        tool->show();
        Settle();
    }
    void Send(uint32_t code) {
        BMessenger(tool.get()).SendMessage(BMessage(code));
        Settle();
    }
    void Press(const char* name) {
        auto* button = tool->findChild<QPushButton*>(name);
        ASSERT_TRUE(button) << name;
        button->click();
        Settle();
    }
    static void PressIn(const char* child, const char* name) {
        auto* widget = FindWindow<QWidget>(child);
        ASSERT_TRUE(widget) << child;
        widget->window()->findChild<QPushButton*>(name)->click();
        Settle();
    }
    // Marks, starts and confirms; the job that was posted.
    BMessage Start() {
        const size_t before = desk.server.application.size();
        Press("btn_resstart");
        PressIn("str_title", "btn_ok");
        EXPECT_TRUE(WaitFor([&] { return desk.server.application.size() == before + 1; }));
        return desk.server.application.back();
    }
    KTLogDataView& View() { return *tool->Catalogue(); }

    Desk desk;
    Catalogue catalogue;
    std::vector<BMessage> checked;
    std::unique_ptr<KTCompareView> tool;
};

TEST_F(CompareTool, SendsWhatIsMarkedAndAddsAnEntryWithEachStart) {
    Press("btn_resstart");
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1U);
    EXPECT_EQ(desk.dialogs.Alerts()[0].title, "Compare");
    EXPECT_EQ(desk.dialogs.Alerts()[0].text, "Sorry, no directories or files selected to compare!");

    Press("btn_cmpsettings");
    FindWindow<QCheckBox>("compareall")->click();
    Settle();
    FindWindow<QCheckBox>("size")->click();
    PressIn("compareall", "btn_ok");
    ExpandTo(View(), "Mon/Disk/home");
    View().MultiSelect(RowOf(View(), "Mon/Disk/home/f"));
    BMessage job = Start();
    EXPECT_EQ(job.what, "KTJA"_code);
    EXPECT_EQ(job.Get<int32_t>("job_type", 0), 5);
    EXPECT_EQ(Strings(job.Get("selection", BMessage()), "SELECTION"),
              (Texts{"INCLUDE /Mon/Disk/home/f"}));
    EXPECT_EQ(job.Count("compare"), 2);
    job = Start();
    ASSERT_EQ(job.Count("compare"), 3);
    const BMessage chosen = job.Get("compare", BMessage());
    EXPECT_EQ(chosen.Get<int32_t>("size", -1), 1);
    EXPECT_EQ(chosen.Get<int32_t>("filedata", -1), 0);
    EXPECT_EQ(chosen.Get<int32_t>("compareall", -1), 0);
    for (const int32_t i : {1, 2})
        EXPECT_EQ(job.Get("compare", BMessage(), i).Get<int32_t>("compareall", 0), 1);
    // The dialog asks for no passwords and says nothing about them; the server is not asked.
    Press("btn_resstart");
    EXPECT_TRUE(FindWindow<QLineEdit>("str_title"));
    EXPECT_FALSE(FindWindow<QWidget>("str_noneprotected"));
    EXPECT_FALSE(FindWindow<QWidget>("lst_passwords"));
    PressIn("str_title", "btn_cancel");
    EXPECT_TRUE(checked.empty());
    // What is changed later is still the first of them.
    Press("btn_cmpsettings");
    FindWindow<QCheckBox>("uid")->click();
    PressIn("compareall", "btn_ok");
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
    PressIn("compareall", "btn_cancel");
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
    Send("sall"_code);
    EXPECT_TRUE(tool->CheckStart(true));
    EXPECT_TRUE(tool->Job().Get("selection", BMessage()).Has("SELECTION"));
    Send("sclr"_code);
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
    PressIn("str_password", "btn_ok");
    ASSERT_TRUE(WaitFor([&] { return !checked.empty(); }));
    EXPECT_EQ(Strings(checked.back(), "name"), (Texts{"Tue"}));
    EXPECT_EQ(Strings(checked.back(), "pw"), (Texts{"right"}));
}

TEST_F(CompareTool, KeepsJobFilesOfItsOwnMagicAndTheSharedType) {
    View().MultiSelect(RowOf(View(), "Mon"));
    Send("ssel"_code);
    const std::string file = desk.program / "jobsettings/mine";
    desk.dialogs.Close(desk.program / "jobsettings/mine");
    EXPECT_EQ(core::MagicOf(file), "KTCMPJOB");
    EXPECT_EQ(kit::MimeType(file), "application/x-vnd.velmoraware-restoreselection");
    EXPECT_EQ(tool->Job().FindString("selectionpath"), file);
    Send("sclr"_code);
    tool->SetPref(entry_ref{file});
    EXPECT_TRUE(tool->CheckStart(true));
    // A restore job is no compare job.
    desk.program.Write("wrong", "KTRESJOB" + std::string(200, '\0'));
    BMessage job;
    EXPECT_EQ(tool->LoadJobData({desk.program / "wrong"}, &job), 3);
}

}  // namespace

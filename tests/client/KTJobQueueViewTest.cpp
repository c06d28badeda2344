// The job queue tool with its editing windows, in front of a server that answers by script.
#include "client/jobqueue/KTJobQueueView.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTest>

#include "client/backup/KTBackupView.h"
#include "client/catalogue/KTLogDataView.h"
#include "client/compare/KTCompareView.h"
#include "client/jobqueue/KTJQWindow.h"
#include "client/jobqueue/KTJobListView.h"
#include "client/restore/KTFoundBackups.h"
#include "tests/client/RestoreTesting.h"

using namespace restore_testing;

namespace {

enum Button { kYes, kNo };

class JobQueueTool : public CatalogueTest {
protected:
    JobQueueTool() {
        BMessage jobs("KTJI"_code);
        const std::tuple<int32_t, int32_t, int32_t> kJobs[] = {
            {21, 1, 1}, {22, 2, 4}, {23, 3, 5}, {24, 4, 1}, {25, 1, 7}};
        for (const auto& [id, status, type] : kJobs)
            AddJob(jobs, id, "Job " + std::to_string(id), status, type);
        desk.server.answers["KTJL"_code] = jobs;
        desk.program.AddReal();
        tool = std::make_unique<KTJobQueueView>(desk.Context());
        tool->resize(700, 400);
        tool->show();
        Settle();
    }
    void Mark(std::initializer_list<int32_t> jobs) {
        tool->Jobs()->MultiSelectAll(false);
        for (const int32_t id : jobs)
            tool->Jobs()->MultiSelect(tool->Jobs()->RowOfJob(id));
        ASSERT_TRUE(
            WaitFor([&] { return tool->Jobs()->Rows().MarkedRows().size() == jobs.size(); }));
        QTest::qWait(20);  // changes are told together
        Settle();
    }
    QWidget* Subject() override { return tool.get(); }
    QString On() {
        QString on;
        for (const char* name : {"start", "pause", "continue", "abort", "delete", "edit"}) {
            on += Find(QString("btn_jq") + name)->isEnabled() ? QChar(name[0]) : QChar('-');
        }
        return on;
    }
    // What goes to the server for this command, as "code job flag".
    Texts Sent(uint32_t code) {
        desk.server.application.clear();
        Send(BMessage(code));
        Texts sent;
        for (const BMessage& message : desk.server.application)
            sent.push_back(CodeText(message.what) + ' ' +
                           std::to_string(message.Get<int32_t>("job_id", 0)) + ' ' +
                           std::to_string(message.Get<int32_t>("flag", 0)));
        return sent;
    }
    KTJQWindow* Edit(int32_t id, const BMessage& job) {
        desk.server.answers["KTjg"_code] = job;
        Mark({id});
        Send(BMessage("JQed"_code));
        return ShownWindow<KTJQWindow>();
    }
    // The edit marks and stored jobs since the last call, as "KTje 21 1".
    Texts Marks() {
        Texts marks;
        for (const BMessage& message : desk.server.posted)
            marks.push_back(CodeText(message.what) + ' ' +
                            std::to_string(message.Get<int32_t>("job_id", 0)) + ' ' +
                            std::to_string(message.Get<int32_t>("edit", -1)));
        desk.server.posted.clear();
        return marks;
    }
    static BMessage CompareJob() {
        return Made("KTJA"_code,
                    {{"job_type", 5},
                     {"selection", Selection({"INCLUDE /Mon/Disk/home/f"})},
                     {"start_info", Made({{"title", "Mine"}})},
                     {"scheduler", Made({{"TIME", BTime{4'000'000'000}}, {"Days", 1}})},
                     {"job_id", 23}});
    }

    std::unique_ptr<KTJobQueueView> tool;
};

TEST_F(JobQueueTool, SendsOneMessageForEachMarkedJobThatQualifies) {
    EXPECT_EQ(On(), "------");
    EXPECT_TRUE(Sent("JQpa"_code).empty());
    Mark({21, 22});
    EXPECT_EQ(On(), "sp-ad-");
    desk.dialogs.Answer(kYes);
    EXPECT_EQ(Sent("JQsa"_code), (Texts{"KTbg 21 0"}));
    desk.dialogs.Answer(kYes);
    EXPECT_EQ(Sent("jqab"_code), (Texts{"KTJD 22 1"}));
    EXPECT_EQ(Sent("JQpa"_code), (Texts{"KTJP 21 0", "KTJP 22 0"}));
    Mark({23});
    EXPECT_EQ(On(), "--cade");
    EXPECT_EQ(Sent("JQco"_code), (Texts{"KTJC 23 0"}));
    Mark({21, 24});
    desk.dialogs.Answer(kYes);
    EXPECT_EQ(Sent("JQdl"_code), (Texts{"KTJD 21 0"})) << "one that is being edited stays";
    Mark({24});
    EXPECT_EQ(On(), "------");
    const size_t asked = desk.dialogs.Alerts().size();
    EXPECT_TRUE(Sent("JQdl"_code).empty());
    EXPECT_EQ(desk.dialogs.Alerts().size(), asked) << "nothing to ask about";
}

TEST_F(JobQueueTool, AsksBeforeWhatCannotBeTakenBack) {
    Mark({21, 23});
    for (const uint32_t code : {"JQsa"_code, "jqab"_code, "JQdl"_code}) {
        desk.dialogs.Answer(kNo);
        EXPECT_TRUE(Sent(code).empty());
    }
    EXPECT_TRUE(Sent("JQdl"_code).empty()) << "closed without a button";
    ASSERT_EQ(desk.dialogs.Alerts().size(), 4U);
    const char* words[] = {"start", "abort", "delete", "delete"};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(desk.dialogs.Alerts()[i].text,
                  QString("Do you really want to %1 the selected job(s)?").arg(words[i]));
    for (const size_t i : {1U, 2U})
        EXPECT_EQ(desk.dialogs.Alerts()[i].defaultButton, kNo);
    // What it is about may start while the question stands.
    QTest::keyClick(tool->Jobs(), Qt::Key_Delete);
    Settle();
    EXPECT_EQ(desk.dialogs.Alerts().size(), 5U);
}

TEST_F(JobQueueTool, ButtonsFollowTheServersNotices) {
    Mark({21});
    EXPECT_EQ(On(), "sp--de");
    Send(Made("KTjc"_code, {{"job_id", 21}, {"jobstatus", 2}}));
    EXPECT_EQ(On(), "-p-ad-");
    // A repeating job goes on under another number; the mark goes with it.
    Send(Made("KTjc"_code,
              {{"job_id", 21}, {"new_id", 31}, {"jobstatus", 1}, {"date", BTime{4'000'000'000}}}));
    EXPECT_EQ(Sent("JQpa"_code), (Texts{"KTJP 31 0"}));
    auto* words = tool->findChild<QLabel*>("str_nextjob");
    EXPECT_TRUE(words->isVisible());
    EXPECT_TRUE(words->text().contains("Job 21")) << words->text().toStdString();
    Send(Made("KTJR"_code, {{"job_id", 31}}));
    EXPECT_EQ(On(), "------");
    EXPECT_FALSE(words->isVisible());
}

TEST_F(JobQueueTool, EditsAJobWithTheToolThatMadeIt) {
    KTJQWindow* window = Edit(23, CompareJob());
    ASSERT_TRUE(window);
    EXPECT_EQ(Marks(), (Texts{"KTje 23 1"}));
    EXPECT_EQ(window->windowTitle(), "Edit: Mine");
    auto* view = window->findChild<KTCompareView*>("cmp_job_setttings");
    ASSERT_TRUE(view);
    EXPECT_FALSE(view->findChild<QPushButton*>("btn_resstart")->isVisible());
    // Only one window a job.
    Send(BMessage("JQed"_code));
    EXPECT_TRUE(Marks().empty());
    // Nothing was changed: nothing of the job is lost.
    Click(window, "btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 2U);
    BMessage stored = desk.server.posted[0].Get("job_data", BMessage());
    EXPECT_EQ(Marks(), (Texts{"KTjs 23 -1", "KTje 23 0"}));
    EXPECT_EQ(Strings(stored.Get("selection", BMessage()), "SELECTION"),
              (Texts{"INCLUDE /Mon/Disk/home/f"}));
    EXPECT_EQ(stored.Get("scheduler", BMessage()).Get("TIME", BTime()).seconds, 4'000'000'000);
    EXPECT_EQ(stored.Get("scheduler", BMessage()).Get<int32_t>("Days", 0), 1);
    EXPECT_EQ(stored.Get("start_info", BMessage()).Get("title", std::string()), "Mine");
    EXPECT_FALSE(stored.Has("compare")) << "that is added by a start, not by an edit";
    EXPECT_EQ(stored.Get<int32_t>("job_id", 0), 23);
}

TEST_F(JobQueueTool, AnEditEndsOnlyWithACompleteJobAndIsLetGoHoweverItEnds) {
    KTJQWindow* window = Edit(23, CompareJob());
    ASSERT_TRUE(window);
    BMessage clear("sclr"_code);
    window->MessageReceived(clear);
    Settle();
    Click(window, "btn_ok");
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1U);
    EXPECT_TRUE(window->isVisible());
    // A job file brings all but the number.
    desk.program.Write("compare", std::string());
    BMessage other = CompareJob();
    other.Remove("job_id");
    ASSERT_EQ(core::SaveHeaderFile(desk.program / "compare", "KTCMPJOB", other, "x/y"),
              core::HeaderSave::Good);
    window->findChild<KTCompareView*>()->SetPref(entry_ref{desk.program / "compare"});
    Click(window, "btn_cancel");
    EXPECT_EQ(Marks(), (Texts{"KTje 23 1", "KTje 23 0"})) << "cancelled: nothing is stored";

    // It has started meanwhile, or is gone.
    EXPECT_FALSE(Edit(23, BMessage("NONE"_code)));
    EXPECT_EQ(Marks(), (Texts{"KTje 23 1", "KTje 23 0"}));
    EXPECT_EQ(desk.dialogs.Alerts().size(), 2U);
    // A kind that no tool here makes.
    Mark({25});
    EXPECT_FALSE(Edit(25, Made("KTJA"_code, {{"job_type", 7}})));
    EXPECT_EQ(Marks(), (Texts{"KTje 25 1", "KTje 25 0"}));

    // The server comes back without its marks; the client ends with a window open.
    ASSERT_TRUE(Edit(23, CompareJob()));
    Send(BMessage("svbk"_code));
    EXPECT_EQ(Marks(), (Texts{"KTje 23 1", "KTje 23 1"}));
    tool.reset();
    EXPECT_EQ(Marks(), (Texts{"KTje 23 0"}));
}

TEST_F(JobQueueTool, AnEditedBackupIsWholeAgain) {
    const BMessage selection =
        Selection({"INCLUDE /Not here/home/*", "EXCLUDE /Not here/home/tmp"});
    const BMessage job =
        Made("KTJA"_code, {{"job_type", 1},
                           {"addon", "KTImage"},
                           {"volume", Made({{"addon", "KTImage"}, {"path", "/somewhere/else"}})},
                           {"bak_addonpacker", "KTZstd"},
                           {"bak_packer", Made({{"addon", "KTZstd"}, {"level", 7}})},
                           {"selection", selection},
                           {"start_info", Made({{"title", "Every evening"}, {"passonoff", 1}})}});
    KTJQWindow* window = Edit(21, job);
    ASSERT_TRUE(window);
    ASSERT_TRUE(window->findChild<KTBackupView*>("bak_job_setttings"));
    Click(window, "btn_ok");
    EXPECT_EQ(desk.dialogs.Told(), Texts{});
    ASSERT_EQ(desk.server.posted.size(), 3U);
    const BMessage stored = desk.server.posted[1].Get("job_data", BMessage());
    Texts rules = Strings(stored.Get("selection", BMessage()), "SELECTION");
    ASSERT_EQ(rules.size(), 3U);
    EXPECT_TRUE(rules.back().ends_with("/var/*")) << rules.back();
    rules.pop_back();
    EXPECT_EQ(rules, Strings(selection, "SELECTION"));
    EXPECT_EQ(stored.Get("volume", BMessage()).Get("path", std::string()), "/somewhere/else");
    EXPECT_EQ(stored.Get("bak_packer", BMessage()).Get<int32_t>("level", 0), 7);
    EXPECT_EQ(stored.Get("start_info", BMessage()).Get("title", std::string()), "Every evening");
    EXPECT_EQ(stored.Get("bak_addonpacker", std::string()), "KTZstd");
}

TEST_F(JobQueueTool, EditsAnInsertJobInTheInsertWindow) {
    const BMessage job =
        Made("KTJA"_code, {{"job_type", 6},
                           {"volume", Made({{"addon", "KTImage"}, {"path", "/media/shelf"}})},
                           {"ID", "a"},
                           {"title", "A"},
                           {"start_info", Made({{"title", "Bring them back"}})}});
    EXPECT_FALSE(Edit(25, job));
    auto* list = FindWindow<KTFoundBackups>("col_listview");
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->window()->windowTitle().endsWith("Bring them back"));
    EXPECT_EQ(Marks(), (Texts{"KTje 25 1", "ktvs 0 -1"}));
    BMessage found("ktvd"_code);
    for (const char* id : {"a", "b"}) {
        found.Add("title", id);
        found.Add("ID", id);
    }
    BMessenger(tool.get()).SendMessage(std::move(found));
    Settle();
    ASSERT_EQ(list->Marked().size(), 1U);
    list->MultiSelect(list->RowOfId("b"));
    Click(list->window(), "btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 2U);
    const BMessage stored = desk.server.posted[0].Get("job_data", BMessage());
    EXPECT_EQ(Strings(stored, "ID"), (Texts{"a", "b"}));
    EXPECT_FALSE(stored.Has("title")) << "it would be taken for the job's own";
    EXPECT_EQ(stored.Get("start_info", BMessage()).FindString("title"), "Bring them back");
    EXPECT_EQ(Marks(), (Texts{"KTjs 25 -1", "KTje 25 0"}));
}

TEST_F(JobQueueTool, ShowsTheColumnsThatTheSettingsAskFor) {
    Send(BMessage("JQst"_code));
    auto* box = FindWindow<QCheckBox>("jqshowid");
    ASSERT_TRUE(box);
    EXPECT_EQ(box->window()->windowTitle(), "JobQueue Settings");
    EXPECT_TRUE(box->isChecked());
    box->click();
    Click(box->window(), "btn_ok");
    EXPECT_TRUE(tool->Jobs()->isColumnHidden(KTJobListView::kId));
    EXPECT_FALSE(tool->Jobs()->isColumnHidden(KTJobListView::kDate));
    ExpectHas(SettingsOf(*tool), {{"jqshowid", 0}});
}

}  // namespace

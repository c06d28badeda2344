// The insert window with its real widgets, alone and opened from the restore tool, in front of a
// server that answers by script.
#include "client/restore/KTResInsertWindow.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>

#include "client/app/ClientCodes.h"
#include "client/restore/KTRestoreView.h"
#include "tests/client/RestoreTesting.h"

using namespace restore_testing;

namespace {

BMessage Found(const std::vector<std::pair<std::string, std::string>>& backups,
               std::optional<int32_t> id = {}) {
    BMessage answer("ktvd"_code);
    if (id) answer.Add("id", *id);
    for (const auto& [name, title] : backups) {
        answer.Add("title", title);
        answer.Add("ID", name);
        answer.Add("date", BTime{title.empty() ? 0U : 1'700'000'000U});
    }
    return answer;
}

BMessage Place(const char* medium) {
    BMessage settings = Job(medium, true);
    settings.Remove("job_type");
    return settings;
}

class InsertWindow : public DialogTest<KTResInsertWindow> {
protected:
    InsertWindow() {
        desk.program.AddReal();
        desk.program.AddTest();
    }

    void Open(const BMessage& settings,
              KTResInsertWindow::Use use = KTResInsertWindow::Use::NewChoice) {
        Show(new KTResInsertWindow(desk.Context(), "Insert Backup", &parent, settings, "reiq"_code,
                                   BMessenger(&tool), use));
    }
    void Choose(const char* destination) {
        auto* menu = Find<QComboBox>("mnu_destination");
        const int item = menu->findText(destination);
        ASSERT_GE(item, 0) << destination;
        client_testing::Choose(menu, item);
    }
    void Mark(const char* id) {
        List()->MultiSelect(List()->RowOfId(id));
        Settle();
    }
    KTFoundBackups* List() { return Find<KTFoundBackups>("col_listview"); }
    int32_t ScanId() { return desk.server.posted.back().Get<int32_t>("id", 0); }
    // What it hands back when it is confirmed.
    BMessage Confirmed() {
        Press("btn_ok");
        EXPECT_EQ(tool.heard.size(), 1U);
        EXPECT_EQ(tool.heard.back().what, "reiq"_code);
        EXPECT_TRUE(tool.heard.back().Get("result", false));
        return tool.heard.back().Get("settings", BMessage());
    }
};

TEST_F(InsertWindow, ScansTheDestinationAsSoonAsItIsChosen) {
    Open(BMessage());
    EXPECT_TRUE(desk.server.posted.empty()) << "no place is known yet";
    EXPECT_EQ(Words("str_destination"), "--");
    Choose("Test");
    ASSERT_EQ(desk.server.posted.size(), 1U);
    const BMessage& scan = desk.server.posted[0];
    ExpectIs(scan, "ktvs"_code, {{"name", "KTTest"}});
    EXPECT_TRUE(scan.Find<BMessage>("settings"));
    EXPECT_TRUE(scan.Find<int32_t>("id"));

    // Its own settings say where; the add-on tells when they changed.
    Press("btn_destination");
    auto* medium = FindWindow<QLineEdit>("str_medium");
    ASSERT_TRUE(medium);
    medium->setText("Shelf");
    Click(medium->window(), "btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 2U);
    EXPECT_EQ(desk.server.posted[1].Get("settings", BMessage()).FindString("medium"), "Shelf");
    EXPECT_EQ(Words("str_destination"), "Shelf");
}

TEST_F(InsertWindow, ShowsWhatWasFoundAndHandsBackWhatIsMarked) {
    Open(Place("Shelf"));
    ASSERT_EQ(desk.server.posted.size(), 1U) << "a known place is looked at when it opens";
    EXPECT_EQ(List()->Rows().Count(), 0);
    Send(Found({{"a-1", "Häuschen"}, {"b-2", ""}, {"c-3", "Third"}}, ScanId()));
    ASSERT_EQ(List()->Rows().Count(), 3);
    EXPECT_EQ(Words("str_found"), "Found: 3, marked: 0");
    const auto cell = [this](const char* id, int column) {
        return List()->IndexOf(List()->RowOfId(id), column).data().toString();
    };
    EXPECT_EQ(cell("a-1", 1), "Häuschen");
    EXPECT_TRUE(cell("a-1", 2).contains("2023"));
    EXPECT_EQ(cell("a-1", 3), "a-1");
    EXPECT_EQ(cell("b-2", 1), "- no title -");
    EXPECT_EQ(cell("b-2", 2), "-");
    EXPECT_EQ(List()->CellColor(List()->Rows().Color(List()->Rows().First())), QColor(255, 0, 0));
    EXPECT_FALSE(List()->CellIcon(List()->Rows().First()).isNull());

    Mark("c-3");
    Mark("a-1");
    EXPECT_EQ(Words("str_found"), "Found: 3, marked: 2");
    List()->ColumnWidthChanged(KTFoundBackups::kTitle, 99);
    EXPECT_EQ(desk.preferences.GetFloat("namecolumnwidth", 0), 99);
    const BMessage settings = Confirmed();
    EXPECT_EQ(Strings(settings, "ID"), (Texts{"a-1", "c-3"}));
    EXPECT_EQ(Strings(settings, "title"), (Texts{"Häuschen", "Third"}));
    EXPECT_EQ(settings.FindString("addon"), "KTTest");
    EXPECT_EQ(settings.Get("volume", BMessage()).FindString("medium"), "Shelf");
    EXPECT_TRUE(settings.Has("winpos"));
}

TEST_F(InsertWindow, NewIdsReplaceTheOldOnesAndTitlesAreAdded) {
    BMessage settings = Place("Shelf");
    settings.Add("ID", "old");
    settings.Add("title", "Old");
    Open(settings);
    Send(Found({{"old", "Old"}, {"new", "New"}}));  // an answer need not say which scan it is of
    EXPECT_TRUE(List()->Marked().empty());
    Mark("new");
    const BMessage back = Confirmed();
    EXPECT_EQ(Strings(back, "ID"), (Texts{"new"}));
    EXPECT_EQ(Strings(back, "title"), (Texts{"Old", "New"}));
}

TEST_F(InsertWindow, LateAnswersAndTwoScansAtOnceAreToldApart) {
    BMessage settings = Place("Shelf");
    settings.Add("job_id", int32_t{42});
    Open(settings);
    EXPECT_EQ(ScanId(), 42);
    Press("btn_scan");
    const int32_t second = ScanId();
    EXPECT_NE(second, 42);
    Choose("Image");
    const int32_t third = ScanId();
    EXPECT_NE(third, second);
    Send(Found({{"x", "Of the shelf"}}, second));
    EXPECT_EQ(List()->Rows().Count(), 0);
    Send(Found({{"y", "Of the image"}}, third));
    EXPECT_EQ(List()->Rows().Count(), 1);
    Send(Found({}, 42));
    EXPECT_EQ(List()->Rows().Count(), 1);
    Send(Found({}, third));
    EXPECT_EQ(List()->Rows().Count(), 0) << "the server looked again and found nothing";
}

TEST_F(InsertWindow, LookingAgainKeepsMarksAndAnotherPlaceDoesNot) {
    Open(Place("Shelf"));
    Send(Found({{"a", "A"}, {"b", "B"}}, ScanId()));
    Mark("a");
    Mark("b");
    Press("btn_scan");
    EXPECT_EQ(List()->Rows().Count(), 0);
    Send(Found({{"b", "B"}, {"c", "C"}}, ScanId()));
    ASSERT_EQ(List()->Marked().size(), 1U);
    EXPECT_EQ(List()->Marked()[0].id, "b");
    Choose("Image");
    Choose("Test");
    Send(Found({{"b", "B"}}, ScanId()));
    EXPECT_TRUE(List()->Marked().empty());
    EXPECT_FALSE(Confirmed().Has("ID"));
}

TEST_F(InsertWindow, SaysWhatGoesOn) {
    // Drawn in the list, and read from there by whoever cannot see it.
    const auto shown = [this] { return dialog->cursor().shape() == Qt::BusyCursor; };
    Open(Place("Shelf"));
    EXPECT_TRUE(shown());
    Send(BMessage(client::code::kServerGone));
    EXPECT_FALSE(shown());
    Send(BMessage(client::code::kServerBack));
    EXPECT_TRUE(shown());
    ASSERT_EQ(desk.server.posted.size(), 2U);
    Send(Found({{"a", "A"}}, desk.server.posted[0].Get<int32_t>("id", 0)));
    EXPECT_TRUE(shown()) << "of the server that is gone";
    Send(Found({}, ScanId()));
    EXPECT_FALSE(shown());
    Send(BMessage(client::code::kServerBack));
    EXPECT_EQ(desk.server.posted.size(), 2U) << "nothing was missing";
}

TEST_F(InsertWindow, AWaitingJobKeepsWhatItWasSentWith) {
    BMessage job = Place("Shelf");
    job.what = "KTJA"_code;
    job.Add("job_type", int32_t{6});
    job.Add("job_id", int32_t{9});
    for (const char* id : {"a", "away"})
        job.Add("ID", id);
    for (const char* title : {"Earlier", "A", "Away"})
        job.Add("title", title);
    const BMessage info = Made({{"title", "Bring them back"}});
    job.Add("start_info", info);
    Open(job, KTResInsertWindow::Use::WaitingJob);
    Send(Found({{"a", "A"}, {"b", "B"}}, 9));
    ASSERT_EQ(List()->Marked().size(), 1U);
    EXPECT_TRUE(Words("str_found").contains("not found there now: 1"))
        << Words("str_found").toStdString();
    Mark("b");
    const BMessage back = Confirmed();
    EXPECT_EQ(Strings(back, "ID"), (Texts{"away", "a", "b"}));
    EXPECT_FALSE(back.Has("title"));
    EXPECT_EQ(back.Get("start_info", BMessage()), info);
    ExpectHas(back, {{"job_type", 6}, {"job_id", 9}});
}

class InsertFromTool : public CatalogueTest {
protected:
    InsertFromTool() {
        desk.program.AddTest();
        tool = std::make_unique<KTRestoreView>(desk.Context());
        tool->show();
        Settle();
    }
    QWidget* Subject() override { return tool.get(); }
    // The window, with these found.
    KTFoundBackups* Insert(const BMessage& found = BMessage()) {
        Press("btn_insert");
        if (found.what) Send(found);
        return FindWindow<KTFoundBackups>("col_listview");
    }
    void Use(const BMessage& place) { tool->SetPref(Made({{"res_insert", place}})); }

    std::unique_ptr<KTRestoreView> tool;
};

TEST_F(InsertFromTool, SendsTheJobWhenTheStartDialogSaysSo) {
    Use(Place("Shelf"));
    Insert();
    Insert();  // the one that is open
    ASSERT_EQ(desk.server.posted.size(), 1U);
    Send(Found({{"a", "A"}, {"b", "B"}}));
    auto* list = FindWindow<KTFoundBackups>("col_listview");
    ASSERT_TRUE(list);
    list->MultiSelect(list->RowOfId("b"));
    ClickBeside("col_listview", "btn_ok");
    auto* title = FindWindow<QLineEdit>("str_title");
    ASSERT_TRUE(title);
    EXPECT_EQ(title->window()->windowTitle(), "Insert Start");
    title->setText("Back in the list");
    EXPECT_TRUE(desk.server.application.empty());
    const auto before = std::time(nullptr);
    ClickBeside("str_title", "btn_ok");
    ASSERT_EQ(desk.server.application.size(), 1U);
    const BMessage& job = desk.server.application[0];
    ExpectIs(job, "KTJA"_code, {{"job_type", 6}, {"addon", "KTTest"}});
    EXPECT_EQ(Strings(job, "ID"), (Texts{"b"}));
    EXPECT_EQ(Strings(job, "title"), (Texts{"B"}));
    EXPECT_EQ(job.Get("start_info", BMessage()).FindString("title"), "Back in the list");
    const BMessage schedule = job.Get("scheduler", BMessage());
    EXPECT_EQ(schedule.Count("TIME"), 1);
    EXPECT_GE(schedule.Get("TIME", BTime()).seconds, before);
    EXPECT_EQ(tool->Job().Get<int32_t>("job_type", 0), 4) << "the tool's own job is a restore";

    // Next time the window knows the place; nothing is marked, and nothing is started.
    Insert();
    EXPECT_EQ(desk.server.posted.size(), 2U);
    ClickBeside("col_listview", "btn_ok");
    EXPECT_EQ(desk.dialogs.Told(), Texts{"Insert: Sorry, no backups for re-indexing selected!"});
    EXPECT_EQ(desk.server.application.size(), 1U);
    EXPECT_FALSE(FindWindow<QLineEdit>("str_title"));
    EXPECT_EQ(Strings(tool->Job().Get("res_insert", BMessage()), "title"), (Texts{"B"}));
}

TEST_F(InsertFromTool, ACancelledWindowChangesNothing) {
    Use(Place("Shelf"));
    auto* list = Insert(Found({{"a", "A"}}));
    list->MultiSelect(list->RowOfId("a"));
    ClickBeside("col_listview", "btn_cancel");
    EXPECT_TRUE(desk.dialogs.Alerts().empty());
    EXPECT_FALSE(tool->Job().Get("res_insert", BMessage()).Has("ID"));
    Send(Found({{"a", "A"}}));  // to nobody
}

}  // namespace

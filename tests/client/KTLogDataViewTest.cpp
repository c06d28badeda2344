#include "client/catalogue/KTLogDataView.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QDragEnterEvent>
#include <QElapsedTimer>
#include <QMimeData>
#include <QSignalSpy>
#include <QUrl>

#include "client/app/ClientCodes.h"
#include "tests/client/RestoreTesting.h"

using namespace restore_testing;

namespace {

using Mark = KTRowStore::Mark;

class LogData : public CatalogueTest {
protected:
    void Make() {
        view = std::make_unique<KTLogDataView>(&desk.server, &desk.preferences, nullptr);
        tester = std::make_unique<QAbstractItemModelTester>(
            view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        view->resize(900, 500);
        view->show();
        Settle();
    }
    QWidget* Subject() override { return view.get(); }
    void TearDown() override {
        tester.reset();
        view.reset();
    }
    KTRow Row(const std::string& path) const { return RowOf(*view, path); }
    std::string Cell(const std::string& path, int column) const {
        return view->CellText(Row(path), column).toStdString();
    }
    BMessage Recorded() const {
        BMessage message;
        view->GetSelectionList(&message);
        return message;
    }
    Texts Rules() const { return Strings(Recorded(), "SELECTION"); }
    Texts Sources() const { return Strings(Recorded(), "source"); }
    Texts Targets() const { return Strings(Recorded(), "redirect"); }
    Texts Asked() const {
        Texts paths;
        for (const BMessage& question : desk.server.asked)
            paths.push_back(question.Get("path", std::string()));
        return paths;
    }

    std::unique_ptr<KTLogDataView> view;
    std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST_F(LogData, GroupsBackupsByTheirSetAndShowsWhatTheyAre) {
    Make();
    ASSERT_EQ(view->Rows().ChildCount(kNoRow), 2);
    const KTRow home = view->SearchEntry(7, "");
    EXPECT_EQ(view->CellText(home, KTLogDataView::kName), "Home");
    EXPECT_EQ(view->Rows().NumberAt(home, KTLogDataView::kMedia), 7);
    EXPECT_EQ(view->Rows().ChildCount(home), 2);
    EXPECT_EQ(Cell("Mon", KTLogDataView::kName), "Full Backup");
    EXPECT_EQ(Cell("Tue", KTLogDataView::kName), "Incremental Backup");
    EXPECT_EQ(Cell("Tue", KTLogDataView::kFile), "Tue");
    EXPECT_EQ(Cell("Tue", KTLogDataView::kType), "-1");
    // Without a set the job's id is the key; without a title something is said.
    const KTRow old = view->Rows().Superitem(Row("Old"));
    EXPECT_EQ(view->Rows().NumberAt(old, KTLogDataView::kMedia), 3);
    EXPECT_EQ(view->CellText(old, KTLogDataView::kName), "- no title -");
    // The same set under another title is the same set; without any key the title decides.
    view->InsertList(List({{-1, "Wed", -1, 0, "Renamed", 3, 9, 7}, {-1, "Thu", -1, 0, "", 9}}),
                     kNoRow);
    EXPECT_EQ(view->Rows().ChildCount(home), 3);
    EXPECT_EQ(Cell("Wed", KTLogDataView::kName), "Differential Backup");
    EXPECT_EQ(Cell("Wed", KTLogDataView::kDate), "-");
    EXPECT_EQ(view->Rows().Superitem(Row("Thu")), old);
    EXPECT_EQ(Cell("Thu", KTLogDataView::kName), "Backup");
    // Told twice, it is there once.
    view->InsertList(List({{-1, "Wed", -1, 0, "Renamed", 3, 9, 7}}), kNoRow);
    EXPECT_EQ(view->Rows().ChildCount(home), 3);
}

TEST_F(LogData, FetchesEachLevelOnceByPathAndIndex) {
    Make();
    ExpandTo(*view, "Mon/Disk/home");
    view->Collapse(Row("Mon/Disk"));
    view->Expand(Row("Mon/Disk"));
    Settle();
    EXPECT_EQ(Asked(), (Texts{"/", "/Mon", "/Mon/Disk", "/Mon/Disk/home"}));
    EXPECT_EQ(desk.server.asked[1].Get<int32_t>("index", 0), 100);
    EXPECT_EQ(Cell("Mon/Disk/home/f", KTLogDataView::kSize), "42 bytes");
    EXPECT_EQ(Cell("Mon/Disk/home/docs", KTLogDataView::kSize), "");
    EXPECT_EQ(Cell("Mon/Disk/home/l", KTLogDataView::kDate), "-");
    EXPECT_EQ(Cell("Mon/Disk/home/l", KTLogDataView::kIndex), "102");
    EXPECT_TRUE(view->Rows().IsSuperItem(Row("Mon/Disk/home/docs")));
    EXPECT_FALSE(view->Rows().IsSuperItem(Row("Mon/Disk/home/l")));
    EXPECT_EQ(view->CellColor(view->Rows().Color(Row("Mon"))), QColor(255, 0, 0));
}

TEST_F(LogData, RecordsMarksAsRules) {
    Make();
    ExpandTo(*view, "Mon/Disk/home/docs");
    view->MultiSelect(Row("Mon/Disk/home"));
    view->MultiDeselect(Row("Mon/Disk/home/docs"));
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/Disk/home/*", "EXCLUDE /Mon/Disk/home/docs/*"}));
    EXPECT_TRUE(view->WholeBackups().empty());
    // A file's record takes those of names that begin alike with it.
    view->MultiSelectAll(false);
    view->MultiSelect(Row("Mon/Disk/home/docs/ab"));
    view->MultiSelect(Row("Mon/Disk/home/docs/a"));
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/Disk/home/docs/a"}));
    EXPECT_EQ(view->FirstMarked(), "/Mon/Disk/home/docs/a");
    // A set stands for its backups; nothing is ever recorded for everything at once.
    view->MultiSelectAll(true);
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/*", "INCLUDE /Tue/*", "INCLUDE /Old/*"}));
    EXPECT_EQ(view->WholeBackups().size(), 3U);
    view->MultiDeselect(view->SearchEntry(7, ""));
    EXPECT_EQ(view->MarkedBackups(), (std::vector<KTRow>{Row("Old")}));
}

TEST_F(LogData, AMarkHoldsForWhatIsFetchedLater) {
    Make();
    view->MultiSelect(Row("Mon"));
    ExpandTo(*view, "Mon/Disk/home");
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home/f")), Mark::Whole);
    view->MultiDeselect(Row("Mon/Disk/home/f"));
    EXPECT_EQ(view->CellMark(Row("Mon")), Mark::Part);
    ExpandTo(*view, "Mon/Disk/home/docs");
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home/docs/c")), Mark::Whole);
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/*", "EXCLUDE /Mon/Disk/home/f"}));
}

TEST_F(LogData, ReplaysASelectionBeforeAnythingIsThere) {
    BMessage stored;
    for (const char* rule : {"INCLUDE /Mon/Disk/home/*", "EXCLUDE /Mon/Disk/home/docs/a",
                             "INCLUDE /Gone/Disk/*", "INCLUDE /Old/Disk/missing"})
        stored.Add("SELECTION", rule);
    for (const auto& [source, target] : std::vector<std::pair<const char*, const char*>>{
             {"REDIREC /Mon/Disk/home/*", "/t"}, {"REDIREC /Tue/Disk/home/*", "/unmarked"}}) {
        stored.Add("source", source);
        stored.Add("redirect", target);
    }
    desk.server.keepsWaiting = true;
    Make();
    view->SetSelection(stored, true);
    EXPECT_TRUE(view->HasSelection());
    // The answers come, one level after the other.
    desk.server.keepsWaiting = false;
    for (const auto& done : std::exchange(desk.server.waiting, {})) {
        done(BSendResult::Ok, catalogue(Made("KTLR"_code, {{"path", "/"}})));
    }
    Settle();
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/Disk/home/*", "EXCLUDE /Mon/Disk/home/docs/a"}));
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home")), Mark::Part);
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home/docs/a")), Mark::None);
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home/docs/c")), Mark::Whole);
    EXPECT_EQ(view->CellMark(Row("Old")), Mark::None);
    EXPECT_EQ(Sources(), (Texts{"REDIREC /Mon/Disk/home/*"}));
    EXPECT_EQ(Cell("Mon/Disk/home/docs/c", KTLogDataView::kRedirect), "/t/docs/c");
}

TEST_F(LogData, RedirectsWhatIsMarkedAndTakesItBack) {
    Make();
    ExpandTo(*view, "Mon/Disk/home/docs");
    view->AddRedirection(Row("Mon/Disk/home"), "/t");
    EXPECT_EQ(Sources(), Texts{});  // it is not marked
    view->MultiSelect(Row("Mon/Disk/home"));
    view->AddRedirection(Row("Mon/Disk/home"), "/t");
    view->AddRedirection(Row("Mon/Disk/home/docs"), "/u");
    view->AddRedirection(Row("Mon/Disk/home/f"), "relative");
    EXPECT_EQ(Sources(), (Texts{"REDIREC /Mon/Disk/home/*", "REDIREC /Mon/Disk/home/docs/*"}));
    EXPECT_EQ(Targets(), (Texts{"/t", "/u"}));
    EXPECT_EQ(Cell("Mon/Disk/home", KTLogDataView::kRedirect), "/t");
    EXPECT_EQ(Cell("Mon/Disk/home/f", KTLogDataView::kRedirect), "/t/f");
    EXPECT_EQ(Cell("Mon/Disk/home/docs/c", KTLogDataView::kRedirect), "/u/c");
    view->ClearRedirection(Row("Mon/Disk/home"));
    EXPECT_EQ(Sources(), (Texts{"CLEAR   /Mon/Disk/home/*"}));
    EXPECT_EQ(Targets(), (Texts{" "}));
    EXPECT_EQ(Cell("Mon/Disk/home/docs/c", KTLogDataView::kRedirect), "");
    view->MultiSelectAll(false);
    EXPECT_TRUE(Recorded().IsEmpty());
}

TEST_F(LogData, ADroppedDirectoryRedirectsTheMarkedRowUnderIt) {
    Make();
    ExpandTo(*view, "Mon/Disk/home");
    view->MultiSelect(Row("Mon/Disk/home/docs"));
    const std::string target = desk.program / "with blank";
    std::filesystem::create_directories(target);
    desk.program.Write("file", "no directory");
    const auto drop = [&](const std::string& path, const std::string& onto) {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(QString::fromStdString(path))});
        view->ScrollTo(Row(onto));
        view->viewport()->repaint();
        const QPoint at = view->visualRect(view->IndexOf(Row(onto), view->NameColumn())).center();
        EXPECT_EQ(view->RowAt(at), Row(onto));
        QDragEnterEvent enter(at, Qt::LinkAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(view->viewport(), &enter);
        QDragMoveEvent move(at, Qt::LinkAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(view->viewport(), &move);
        if (!enter.isAccepted() || !move.isAccepted()) return false;
        QDropEvent dropped(at, Qt::LinkAction | Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(view->viewport(), &dropped);
        return dropped.isAccepted();
    };
    EXPECT_FALSE(drop(desk.program / "file", "Mon/Disk/home/docs"));
    EXPECT_FALSE(drop(target, "Mon/Disk/home/f"));  // it is not marked
    EXPECT_EQ(Sources(), Texts{});
    EXPECT_TRUE(drop(target, "Mon/Disk/home/docs"));
    EXPECT_EQ(Sources(), (Texts{"REDIREC /Mon/Disk/home/docs/*"}));
    EXPECT_EQ(Targets(), (Texts{target}));
}

TEST_F(LogData, ARemovedBackupGoesWithItsRulesAndItsEmptySet) {
    Make();
    view->MultiSelectAll(true);
    view->AddRedirection(Row("Old"), "/t");
    Send(Made("KTLr"_code, {{"name", "Old"}}));
    EXPECT_EQ(Row("Old"), kNoRow);
    EXPECT_EQ(view->Rows().ChildCount(kNoRow), 1);
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/*", "INCLUDE /Tue/*"}));
    EXPECT_EQ(Sources(), Texts{});
    view->RemoveList("Mon");
    view->RemoveList("no such backup");
    EXPECT_EQ(view->Rows().ChildCount(view->SearchEntry(7, "")), 1);
}

TEST_F(LogData, ALockedBackupAsksOnceAndOpensLater) {
    catalogue.Lock("Mon");
    Make();
    const QSignalSpy locked(view.get(), &KTLogDataView::Locked);
    view->Expand(Row("Mon"));
    Settle();
    ASSERT_EQ(locked.count(), 1);
    EXPECT_EQ(locked[0][0].value<KTRow>(), Row("Mon"));
    EXPECT_FALSE(view->Rows().IsExpanded(Row("Mon")));
    EXPECT_EQ(Cell("Mon", KTLogDataView::kName), "Full Backup (locked)");
    // A stored selection that leads through it is kept, and nobody is asked for it.
    view->SetSelection(Made({{"SELECTION", "INCLUDE /Mon/Disk/home/*"}}), true);
    Settle();
    EXPECT_EQ(locked.count(), 1);
    EXPECT_EQ(view->FirstMarked(), "/Mon/Disk/home");
    catalogue.Open("Mon");
    ExpandTo(*view, "Mon/Disk");
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home")), Mark::Whole);
    EXPECT_EQ(Cell("Mon", KTLogDataView::kName), "Full Backup");
}

TEST_F(LogData, OutlivesTheServer) {
    Make();
    ExpandTo(*view, "Mon/Disk");
    view->MultiSelect(Row("Mon/Disk"));
    desk.server.keepsWaiting = true;
    view->Expand(Row("Mon/Disk/home"));
    Settle();
    EXPECT_TRUE(view->IsReading(Row("Mon/Disk/home")));
    Send(BMessage(client::code::kServerGone));
    EXPECT_FALSE(view->IsReading(Row("Mon/Disk/home")));
    EXPECT_FALSE(view->Rows().IsExpanded(Row("Mon/Disk/home")));
    // An answer to a question that nobody waits for any more changes nothing.
    desk.server.waiting.front()(BSendResult::Ok, List({{0, "late", 1, 0, {}}}));
    Settle();
    EXPECT_EQ(view->Rows().ChildCount(Row("Mon/Disk/home")), 0);
    // The next server knows one backup less and one more; marks stay.
    desk.server.keepsWaiting = false;
    catalogue.Set("/",
                  List({{-1, "Mon", -1, 1000, "Home", 1, 7, 7}, {-1, "New", -1, 1, "New", 1, 9}}));
    Send(BMessage(client::code::kServerBack));
    EXPECT_EQ(Row("Old"), kNoRow);
    EXPECT_NE(Row("New"), kNoRow);
    EXPECT_EQ(Rules(), (Texts{"INCLUDE /Mon/Disk/*"}));
    ExpandTo(*view, "Mon/Disk/home");
    EXPECT_EQ(view->CellMark(Row("Mon/Disk/home/f")), Mark::Whole);
}

TEST_F(LogData, HostileListsAreTakenAsFarAsTheyMakeSense) {
    BMessage odd("KTLi"_code);
    for (const int32_t type : {0, 77, 1})
        odd.Add("type", type);
    for (const char* name : {"", "odd\n\xff", "dir"})
        odd.Add("name", name);
    odd.Add("size", "no number");
    catalogue.Set("/Mon/Disk", odd);
    Make();
    ExpandTo(*view, "Mon/Disk");
    EXPECT_EQ(view->Rows().ChildCount(Row("Mon/Disk")), 2);
    const KTRow strange = view->Rows().ChildAt(Row("Mon/Disk"), 0);
    EXPECT_EQ(view->CellText(strange, KTLogDataView::kName), "odd\\x0A\\xFF");
    view->CellIcon(strange);
    Send(Made("KTLi"_code, {{"type", "x"}}));
    EXPECT_EQ(view->Rows().ChildCount(kNoRow), 2);
}

TEST_F(LogData, ALongDirectoryIsShownAtOnce) {
    std::vector<Entry> many;
    for (int i = 0; i < 100'000; ++i)
        many.push_back({0, "file number " + std::to_string(i), i, 1000 + i, {}});
    catalogue.Set("/Mon/Disk/home/docs", List(many));
    Make();
    ExpandTo(*view, "Mon/Disk/home");
    tester.reset();  // looks at every row
    QElapsedTimer timer;
    timer.start();
    view->Expand(Row("Mon/Disk/home/docs"));
    ASSERT_TRUE(
        WaitFor([&] { return view->Rows().ChildCount(Row("Mon/Disk/home/docs")) == 100'000; }));
    view->viewport()->repaint();
    RecordProperty("ms", static_cast<int>(timer.elapsed()));
    EXPECT_LT(timer.elapsed(), 5000);
}

}  // namespace

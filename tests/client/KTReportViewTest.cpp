// The report tool with its real widgets, in front of a server that answers by script.
#include "client/report/KTReportView.h"

#include <gtest/gtest.h>

#include <QSplitter>
#include <QTest>
#include <fstream>

#include "client/app/ClientCodes.h"
#include "client/report/KTReportListView.h"
#include "client/report/KTReportTextView.h"
#include "client/uikit/KTMultiRequest.h"
#include "kit/app/SharedArea.h"
#include "tests/client/ReportTesting.h"

using namespace report_testing;

namespace {

class ReportTool : public WidgetTest {
protected:
    ReportTool() {
        BMessage list("rpIN"_code);
        AddReport(list, 3, "Home", 1, 1'000'000'000);
        AddReport(list, 5, "", 2);
        AddReport(list, 8, "<b>x</b>", 77);
        desk.server.answers["rpGL"_code] = list;
    }
    KTReportView& Tool() {
        if (!tool) {
            tool = std::make_unique<KTReportView>(desk.Context());
            tool->resize(700, 600);
            tool->show();
            Settle();
        }
        return *tool;
    }
    QWidget* Subject() override { return &Tool(); }
    KTReportListView& List() { return *Find<KTReportListView>("lst_reports"); }
    KTReportTextView& Text() { return *Find<KTReportTextView>("txt_report"); }
    QString State() { return Words("str_problems"); }
    void Mark(int32_t id) {
        List().MultiSelect(List().RowOfReport(id));
        Settle();
    }
    QPoint PointOf(int32_t id) {
        return List().visualRect(List().IndexOf(List().RowOfReport(id))).center();
    }
    bool IsEnabled(const char* name) { return Find(name)->isEnabled(); }

    std::unique_ptr<KTReportView> tool;
};

TEST_F(ReportTool, ListsTheNewestOnTopInPlainText) {
    const auto& list = List();
    ASSERT_EQ(list.Rows().Count(), 3);
    const auto row = [&](int32_t id) {
        QStringList cells;
        for (int column = 0; column < 4; ++column)
            cells << List().CellText(List().RowOfReport(id), column);
        return cells;
    };
    EXPECT_EQ(list.ReportId(list.Rows().First()), 8);
    EXPECT_EQ(row(3)[0], "Home");
    EXPECT_EQ(row(3)[1], "Full Backup");
    EXPECT_TRUE(row(3)[2].contains("2001")) << row(3)[2].toStdString();
    EXPECT_EQ(row(3)[3], "3");
    EXPECT_EQ(row(5), (QStringList{"- no title -", "Incr. Backup", "-", "5"}));
    EXPECT_EQ(row(8), (QStringList{"<b>x</b>", "Unknown", "-", "8"}));

    BMessage more("rpIN"_code);
    AddReport(more, 9, "New", 6);
    AddReport(more, 5, "Told twice", 2);
    Send(more);
    EXPECT_EQ(list.Rows().Count(), 4);
    EXPECT_EQ(list.ReportId(list.Rows().First()), 9);
    EXPECT_EQ(row(5)[0], "Told twice");
}

TEST_F(ReportTool, HeightOfTheListIsKept) {
    auto* panes = Find<QSplitter>("panes");
    const auto drag = [](QSplitter* splitter, int to) {
        QWidget* handle = splitter->handle(1);
        const QPoint middle = handle->rect().center();
        const QPoint there(middle.x(), to - handle->y() + middle.y());
        QTest::mousePress(handle, Qt::LeftButton, {}, middle);
        QTest::mouseMove(handle, there);
        QTest::mouseRelease(handle, Qt::LeftButton, {}, there);
    };
    const int height = panes->sizes()[0] + 60;
    drag(panes, height);
    EXPECT_EQ(panes->sizes()[0], height);
    EXPECT_EQ(desk.preferences.GetFloat("RPLHEIGHT", 0), static_cast<float>(height));
    tool.reset();
    EXPECT_EQ(Find<QSplitter>("panes")->sizes()[0], height);
    tool.reset();
    desk.preferences.Set("RPLHEIGHT", 1e30F);
    EXPECT_GT(Find<QSplitter>("panes")->sizes()[1], 50) << "the text is not hidden";
}

TEST_F(ReportTool, NoReportsAndNoServer) {
    desk.server.answers["rpGL"_code] = BMessage("NONE"_code);
    EXPECT_EQ(List().Rows().Count(), 0);
    EXPECT_TRUE(List().IsFetched());
    for (const char* name : {"btn_save", "btn_print", "btn_delete", "btn_nextproblem"})
        EXPECT_FALSE(IsEnabled(name)) << name;
    EXPECT_TRUE(IsEnabled("btn_settings"));
    for (const uint32_t code : {"RSAV"_code, "RPRN"_code, "RCLR"_code})
        Send(BMessage(code));
    EXPECT_EQ(desk.dialogs.Told(), (Texts{"Save Report: There is no report to save!",
                                          "Print Report: There is no report to print!",
                                          "Delete Report: No report to delete selected!"}));
    EXPECT_EQ(desk.dialogs.Alerts()[2].escapeButton, 0);
    EXPECT_TRUE(desk.server.posted.empty());

    // Without an answer the list stays, and is asked for again when the server is back.
    desk.server.answers.erase("rpGL"_code);
    Send(BMessage(client::code::kServerGone));
    Send(BMessage(client::code::kServerBack));
    EXPECT_FALSE(List().IsFetched());
    BMessage list("rpIN"_code);
    AddReport(list, 1, "Back");
    desk.server.answers["rpGL"_code] = list;
    Send(BMessage(client::code::kServerBack));
    EXPECT_EQ(List().Rows().Count(), 1);
}

TEST_F(ReportTool, DoubleClickAndReturnOpen) {
    List();
    QTest::mouseClick(List().viewport(), Qt::LeftButton, {}, PointOf(5));
    QTest::mouseDClick(List().viewport(), Qt::LeftButton, {}, PointOf(5));
    Settle();
    ASSERT_EQ(desk.server.application.size(), 1u);
    ExpectIs(desk.server.application[0], "rpOP"_code,
             {{"report_id", 5}, {"user", BMessenger(&Tool())}});
    EXPECT_EQ(List().MarkedReports(), std::vector<int32_t>{5});

    List().SetCurrentRow(List().RowOfReport(3));
    QTest::keyClick(&List(), Qt::Key_Return);
    Settle();
    ASSERT_EQ(desk.server.application.size(), 3u);
    ExpectIs(desk.server.application[1], "rpCL"_code, {{"report_id", 5}});
    EXPECT_EQ(desk.server.application[2].Find<int32_t>("report_id"), 3);

    Send(OneOfEach(5));
    EXPECT_EQ(Tool().ShownReport(), 0) << "the text of a report that is not wanted any more";
    Send(OneOfEach(3));
    EXPECT_EQ(Tool().ShownReport(), 3);
    EXPECT_EQ(Text().WholeText(), "4\n3\n2\n1");
    EXPECT_TRUE(Find<QLabel>("str_report")->text().startsWith("Home, Full Backup, "));
    EXPECT_TRUE(IsEnabled("btn_save"));

    // A press of the second button leaves the selection.
    const auto marked = List().MarkedReports();
    QTest::mouseClick(List().viewport(), Qt::RightButton, {}, PointOf(8));
    EXPECT_EQ(List().MarkedReports(), marked);
}

TEST_F(ReportTool, LargeReportsComeThroughASharedArea) {
    auto area = kit::SharedArea::Create(OneOfEach(3));
    ASSERT_TRUE(area);
    auto answer = std::make_shared<BMessage>();
    BMessage where = Made("rpRP"_code, {{"report_id", 3}, {"area_id", area->Id()}});
    where.SetDelivery(std::make_unique<Foreign>(answer));
    Send(std::move(where));
    EXPECT_EQ(answer->what, "xxxx"_code);
    EXPECT_EQ(Text().WholeText(), "4\n3\n2\n1");

    auto gone = std::make_shared<BMessage>();
    BMessage nowhere = Made("rpRP"_code, {{"report_id", 5}, {"area_id", int32_t{999'999}}});
    nowhere.SetDelivery(std::make_unique<Foreign>(gone));
    Send(std::move(nowhere));
    EXPECT_EQ(gone->what, "xxxx"_code);
    EXPECT_EQ(Tool().ShownReport(), 0);
    EXPECT_FALSE(IsEnabled("btn_save"));

    BMessage command = Made("RFSZ"_code, {{"size", 30}});
    command.SetDelivery(std::make_unique<Foreign>(gone));
    Send(std::move(command));
    EXPECT_NE(Text().font().pointSize(), 30) << "commands are not taken from the wire";
}

TEST_F(ReportTool, RemovedReportTakesItsTextAlong) {
    Tool();
    Mark(3);
    Send(OneOfEach(3));
    EXPECT_TRUE(IsEnabled("btn_delete"));
    BMessage removed = Made("rpRM"_code, {{"report_id", 8}, {"report_id", 99}});
    Send(removed);
    EXPECT_EQ(Tool().ShownReport(), 3);
    removed.Add("report_id", int32_t{3});
    Send(removed);
    EXPECT_EQ(Tool().ShownReport(), 0);
    EXPECT_EQ(Text().WholeText(), "");
    EXPECT_EQ(List().Rows().Count(), 1);
    for (const char* name : {"btn_save", "btn_print", "btn_delete"})
        EXPECT_FALSE(IsEnabled(name)) << name;
}

TEST_F(ReportTool, ProblemsAreCountedAndFound) {
    BMessage text = Made("rpRP"_code, {{"report_id", 3}});
    for (const int32_t type : {1, 3, 1, 3, 6, 3})
        core::AddReportWords(text, static_cast<core::LineType>(type), "x");
    Send(text);
    EXPECT_EQ(State(), "Problems: 3   Lines not shown: 1");
    std::vector<int> visited;
    for (int i = 0; i < 4; ++i) {
        QTest::keyClick(&Text(), Qt::Key_F8);
        visited.push_back(Text().Caret().line);
    }
    EXPECT_EQ(visited, (std::vector<int>{1, 3, 4, 1}));
    EXPECT_EQ(State(), "Problem 1 of 3");
    QTest::keyClick(&List(), Qt::Key_F8, Qt::ShiftModifier);
    EXPECT_EQ(Text().Caret().line, 4) << "from the first it goes round to the last";
    Press("btn_prevproblem");
    EXPECT_EQ(Text().Caret().line, 3);
    Press("btn_nextproblem");
    EXPECT_EQ(Text().Caret().line, 4);

    BMessage good = Made("rpRP"_code, {{"report_id", 5}});
    core::AddReportWords(good, core::LineType::Totals, "fine");
    Send(good);
    EXPECT_EQ(State(), "No problems");
    EXPECT_FALSE(IsEnabled("btn_nextproblem"));
}

TEST_F(ReportTool, WordsAreFound) {
    Send(OneOfEach(3));
    auto* field = Find<QLineEdit>("str_find");
    QTest::keyClick(&Text(), Qt::Key_F, Qt::ControlModifier);
    field->setText("2");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(Text().SelectedText(), "2");
    EXPECT_EQ(Text().SelectionBegin().line, 2);
    field->setText("nowhere");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(State(), "Not found");
}

TEST_F(ReportTool, LongSearchLeavesTheWindowAlive) {
    BMessage lines = Made("rpRP"_code, {{"report_id", 3}});
    constexpr int kLines = 200'000;
    for (int i = 0; i < kLines; ++i)
        core::AddReportWords(lines, core::LineType::Totals, "hay");
    core::AddReportWords(lines, core::LineType::Totals, "a needle");
    Send(lines);
    auto* field = Find<QLineEdit>("str_find");
    field->setText("needle");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(State(), "Searching...");
    EXPECT_TRUE(QTest::qWaitFor([this] { return Text().SelectedText() == "needle"; }));
    EXPECT_EQ(Text().Caret().line, kLines);
    EXPECT_EQ(State(), "No problems");

    // Another report has nothing of it.
    field->setText("nowhere");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(State(), "Searching...");
    Send(OneOfEach(3));
    QTest::qWait(0);
    EXPECT_NE(State(), "Not found");
    EXPECT_NE(State(), "Searching...");
}

TEST_F(ReportTool, SavesTheWholeText) {
    Send(OneOfEach(3));
    Press("btn_save");
    ASSERT_EQ(desk.dialogs.Panels().size(), 1u);
    EXPECT_EQ(desk.dialogs.Panels()[0].request.name, "KTBackupReport.txt");
    Press("btn_save");
    EXPECT_EQ(desk.dialogs.Panels().size(), 1u) << "one panel is enough";
    desk.dialogs.Close(desk.program / "mine.txt");
    std::ifstream file(desk.program / "mine.txt");
    const std::string content(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(content, "4\n3\n2\n1\n");
    EXPECT_EQ(SettingsOf(Tool()).FindString("savepath"), desk.program.Path());
    Press("btn_save");
    EXPECT_EQ(desk.dialogs.Panels().back().request.directory, desk.program.Path());
    desk.dialogs.Close(desk.program / "no such folder/x");
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_TRUE(desk.dialogs.Alerts()[0].text.contains("no such folder"));
}

TEST_F(ReportTool, DeletesWhatWasAskedAbout) {
    Tool();
    Send(BMessage("sall"_code));
    EXPECT_EQ(List().MarkedReports(), (std::vector<int32_t>{8, 5, 3}));
    Send(BMessage("sclr"_code));
    EXPECT_FALSE(IsEnabled("btn_delete"));
    Mark(3);
    Mark(8);
    Press("btn_delete");
    const auto dialog = [&] { return Tool().window()->findChild<KTMultiRequest*>(); };
    ASSERT_TRUE(dialog());
    EXPECT_EQ(dialog()->windowTitle(), "Delete Report(s)");
    EXPECT_EQ(dialog()->findChild<QLabel*>("str_question")->text(),
              "Do you really want to delete the selected report(s)?");
    Mark(5);  // not in the question
    Click(dialog(), "btn_cancel");
    EXPECT_TRUE(desk.server.posted.empty());
    List().MultiDeselect(List().RowOfReport(5));
    Press("btn_delete");
    Mark(5);
    Click(dialog(), "btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 1u);
    const BMessage& deletion = desk.server.posted[0];
    EXPECT_EQ(deletion.what, "rpDL"_code);
    EXPECT_EQ(deletion.Count("report_id"), 2);
    EXPECT_EQ(deletion.Find<int32_t>("report_id", 0), 8);
    EXPECT_EQ(deletion.Find<int32_t>("report_id", 1), 3);
    EXPECT_EQ(List().Rows().Count(), 3) << "rows go when the server says so";
    EXPECT_TRUE(SettingsOf(Tool()).Find<BMessage>("deletereport"));
}

TEST_F(ReportTool, OpensAReportOnBehalfOfOthers) {
    Tool();
    Mark(8);
    BMessage show = Made("RPSH"_code, {{"report_id", 5}});
    Send(show);
    ASSERT_EQ(desk.server.application.size(), 1u);
    EXPECT_EQ(desk.server.application[0].Find<int32_t>("report_id"), 5);
    EXPECT_EQ(List().MarkedReports(), std::vector<int32_t>{5});
    // One that the list does not know yet is looked for.
    BMessage list("rpIN"_code);
    AddReport(list, 12, "Just now");
    desk.server.answers["rpGL"_code] = list;
    show.Set("report_id", int32_t{12});
    Send(show);
    EXPECT_EQ(desk.server.application.back().Find<int32_t>("report_id"), 12);
    const size_t before = desk.server.application.size();
    show.Set("report_id", int32_t{4});
    Send(show);
    EXPECT_EQ(desk.server.application.size(), before) << "one that is gone is not asked for";
}

}  // namespace

// The lines of a report, and the view that shows them.
#include "client/report/KTReportText.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QScrollBar>
#include <QTest>
#include <QTextLayout>

#include "client/report/KTReportTextView.h"
#include "tests/client/ReportTesting.h"

using namespace report_testing;

namespace {

QString All(const KTReportText& text) {
    return QString::fromUtf8(text.ToUtf8());
}

TEST(KTReportText, FilterHidesDetailsAndNeverAProblem) {
    const KTReportText volumes(OneOfEach(1), 0);
    EXPECT_EQ(All(volumes), "4\n3\n2\n1\n");
    EXPECT_EQ(volumes.CountHidden(), 3);
    EXPECT_EQ(volumes.Problems(), std::vector<int>{1});
    EXPECT_TRUE(volumes.IsProblem(1));
    EXPECT_EQ(All(volumes.WithFilter(1)), "5\n4\n3\n2\n1\n");
    const KTReportText files = volumes.WithFilter(2);
    EXPECT_EQ(All(files), "7\n6\n5\n4\n3\n2\n1\n");
    EXPECT_EQ(files.Problems(), std::vector<int>{4});
    EXPECT_EQ(All(volumes.WithFilter(-1)), All(volumes));
    EXPECT_EQ(All(volumes.WithFilter(99)), All(files));
    for (const int32_t type : {0, 8, 100, -7})
        EXPECT_TRUE(KTReportText::Shows(type, 0)) << type;
}

TEST(KTReportText, WordsAreMadeOfIdsAndArguments) {
    BMessage lines("rpRP"_code);
    KTReportLine count;
    count.AddInt32(70000);
    AddLine(lines, 2, 9, count);  // "Files saved:\t\t%ld"
    KTReportLine differs;
    differs.AddString("/System/a\tb");
    differs.AddInt64(5'000'000'000);
    differs.AddInt64(7);
    AddLine(lines, 3, 284, differs);
    core::AddReportWords(lines, core::LineType::Error, "x\xFF\n<b>y</b>\xE2\x80\xAE");
    AddLine(lines, 1, 99999);
    const KTReportText text(std::move(lines), 0);
    ASSERT_EQ(text.CountLines(), 4);
    EXPECT_EQ(text.LineAt(0), "Files saved:\t\t70000");
    EXPECT_TRUE(text.LineAt(1).contains("5000000000")) << text.LineAt(1).toStdString();
    EXPECT_EQ(text.LineAt(2), "x\\xFF\\x0A<b>y</b>\\xE2\\x80\\xAE") << "one line stays one";
    EXPECT_EQ(text.LineAt(3), "") << "a text that nobody has";
}

// The heads of reports, in both languages and in a font whose characters differ in width.
TEST(KTReportText, ValuesBehindTabsLineUp) {
    for (const char* family : {"DejaVu Sans Mono", "DejaVu Sans"}) {
        const QFont font(QString::fromLatin1(family), 10);
        const auto valueAt = [&font](const QString& line) {
            QTextLayout layout(line, font);
            layout.setTextOption(KTReportLineOption(line, QFontMetricsF(font).averageCharWidth(),
                                                    QTextOption::NoWrap));
            layout.beginLayout();
            layout.createLine();
            layout.endLayout();
            return layout.lineAt(0).cursorToX(static_cast<int>(line.lastIndexOf('\t')) + 1);
        };
        for (const QStringList& head :
             {QStringList{"Start:\t\t\t\t\t\tx", "Destination:\t\t\t\tx", "Capacity:\t\t\t\t\tx",
                          "Overwrite existing data:\tx"},
              {"Files saved:\t\tx", "Time:\t\t\t\tx", "Pack ratio:\t\t\tx"},
              {"Geschwindigkeit:\tx", "Startzeitpunkt:\t\tx",
               QString::fromUtf8("Überschreiben:\t\tx"), "Dateien eingelesen:\tx"}}) {
            for (const QString& line : head)
                EXPECT_NEAR(valueAt(line), valueAt(head[0]), 1) << family << line.toStdString();
        }
    }
}

TEST(KTReportText, ReadyWordsAndUnevenArrays) {
    EXPECT_EQ(All(KTReportText(
                  Made("rpRP"_code, {{"report", "one"}, {"report", "two"}, {"linetype", 6}}), 0)),
              "two\n")
        << "a line without a type is shown";

    BMessage uneven("rpRP"_code);
    core::AddReportWords(uneven, core::LineType::Heading, "whole");
    uneven.Add("text_id", int32_t{279});
    EXPECT_EQ(All(KTReportText(uneven, 0)), "whole\n");
    EXPECT_TRUE(KTReportText(BMessage("rpRP"_code), 0).IsEmpty());
}

// In slices of a line each.
std::optional<KTTextPlace> Find(const KTReportText& text, const char* words, KTTextPlace from,
                                bool forward) {
    KTReportSearch search(text, QString::fromUtf8(words), from, forward);
    while (!search.Run(std::chrono::milliseconds(0))) {
    }
    return search.Found();
}

TEST(KTReportText, FindGoesRoundInBothDirections) {
    BMessage lines("rpRP"_code);
    for (const char* words : {"alpha beta alpha", "gamma", "ALPHA"})
        lines.Add("report", words);
    const KTReportText text(std::move(lines), 0);
    using Place = KTTextPlace;
    EXPECT_EQ(Find(text, "alpha", {0, 0}, true), (Place{0, 0}));
    EXPECT_EQ(Find(text, "alpha", {0, 1}, true), (Place{0, 11}));
    EXPECT_EQ(Find(text, "alpha", {0, 12}, true), (Place{2, 0}));
    EXPECT_EQ(Find(text, "alpha", {2, 1}, true), (Place{0, 0}));
    EXPECT_EQ(Find(text, "alpha", {0, 11}, false), (Place{0, 0}));
    EXPECT_EQ(Find(text, "alpha", {0, 0}, false), (Place{2, 0}));
    EXPECT_EQ(Find(text, "gamma", {1, 1}, true), (Place{1, 0})) << "the only one, from behind it";
    EXPECT_EQ(Find(text, "gamma", {1, 0}, false), (Place{1, 0}));
    EXPECT_EQ(Find(text, "delta", {1, 0}, true), std::nullopt);
    EXPECT_EQ(Find(text, "delta", {1, 0}, false), std::nullopt);
    EXPECT_EQ(Find(text, "", {1, 0}, true), std::nullopt);
    EXPECT_EQ(text.Text({0, 6}, {2, 2}), "beta alpha\ngamma\nAL");
}

class ReportText : public ::testing::Test {
protected:
    ReportText() {
        BMessage lines("rpRP"_code);
        for (int i = 0; i < 1000; ++i)
            core::AddReportWords(lines, core::LineType(i % 100 == 99 ? 3 : 1),
                                 "line " + std::to_string(i));
        view.resize(400, 200);
        view.show();
        view.SetText(KTReportText(std::move(lines), 0));
    }
    void Key(int key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(&view, static_cast<Qt::Key>(key), modifiers);
    }
    KTReportTextView view{"txt", nullptr};
};

TEST_F(ReportText, KeysMoveSelectAndCopy) {
    Key(Qt::Key_Down);
    Key(Qt::Key_Down, Qt::ShiftModifier);
    Key(Qt::Key_End, Qt::ShiftModifier);
    EXPECT_EQ(view.SelectedText(), "line 1\nline 2");
    Key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text(), "line 1\nline 2");
    Key(Qt::Key_Right);
    EXPECT_FALSE(view.HasSelection());
    EXPECT_EQ(view.Caret(), (KTTextPlace{3, 0}));
    Key(Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_EQ(view.SelectedText(), "\n");
    Key(Qt::Key_End, Qt::ControlModifier);
    EXPECT_EQ(view.Caret(), (KTTextPlace{999, 8}));
    EXPECT_EQ(view.verticalScrollBar()->value(), view.verticalScrollBar()->maximum());
    Key(Qt::Key_Down);
    EXPECT_EQ(view.Caret().line, 999);
    Key(Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(view.SelectedText(), view.WholeText());
    EXPECT_EQ(view.WholeText().count('\n'), 999);
}

TEST_F(ReportText, MouseSelects) {
    const int height = view.fontMetrics().lineSpacing();
    const QPoint first(view.fontMetrics().lineSpacing() * 2, height / 2);
    QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, first);
    EXPECT_EQ(view.SelectedText(), "line");
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, first);
    EXPECT_EQ(view.SelectedText(), "line 0") << "a third click takes the line";
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, QPoint(0, height / 2));
    QMouseEvent drag(QEvent::MouseMove, QPointF(390, height * 1.5), QPointF(390, height * 1.5),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view.viewport(), &drag);
    EXPECT_EQ(view.SelectedText(), "line 0\nline 1");
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, QPoint(390, height * 3 / 2));
}

TEST_F(ReportText, DraggingBeyondTheEdgeScrolls) {
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, QPoint(100, 5));
    QMouseEvent drag(QEvent::MouseMove, QPointF(100, 500), QPointF(100, 500), Qt::NoButton,
                     Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view.viewport(), &drag);
    EXPECT_TRUE(WaitFor([&] { return view.verticalScrollBar()->value() > 3; }));
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, QPoint(100, 500));
    EXPECT_GT(view.SelectionEnd().line, 3);
}

// A problem is told apart by its sign in the margin, not by its ground alone.
TEST_F(ReportText, ProblemHasASignInTheMargin) {
    view.SelectLine(99);
    const int top = (99 - view.verticalScrollBar()->value()) * view.fontMetrics().lineSpacing();
    ASSERT_GE(top, 0);
    ASSERT_LT(top, view.viewport()->height());
    const QImage picture = view.viewport()->grab().toImage();
    const auto colors = [&](int y) {
        std::set<QRgb> found;
        for (int x = 0; x < view.fontMetrics().lineSpacing(); ++x)
            found.insert(picture.pixel(x, y + view.fontMetrics().lineSpacing() / 2));
        return found.size();
    };
    EXPECT_GT(colors(top), 2U);
    EXPECT_EQ(colors(top - view.fontMetrics().lineSpacing()), 1U);
}

}  // namespace

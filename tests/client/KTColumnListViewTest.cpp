#include "client/uikit/KTColumnListView.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include "client/uikit/KTWindowLooper.h"
#include "tests/support/MadeMessage.h"

namespace {

using ListType = KTColumnListView::ListType;

// Notes what a view records and what it is told.
class NotingView : public KTColumnListView {
public:
    using KTColumnListView::KTColumnListView;
    void MultiSelect(KTRow row) override {
        KTColumnListView::MultiSelect(row);
        noted += "+" + std::string(Rows().TextAt(row, 1));
    }
    void MultiDeselect(KTRow row) override {
        KTColumnListView::MultiDeselect(row);
        noted += "-" + std::string(Rows().TextAt(row, 1));
    }
    void Expand(KTRow row) override {
        KTColumnListView::Expand(row);
        noted += ">" + std::string(Rows().TextAt(row, 1));
    }
    void ColumnWidthChanged(int column, float width) override {
        noted += "w" + std::to_string(column) + "=" + std::to_string(static_cast<int>(width));
    }
    void MessageReceived(BMessage& message) override { messages.push_back(message); }

    std::string Noted() { return std::exchange(noted, {}); }
    std::string noted;
    std::vector<BMessage> messages;
};

class KTColumnListViewTest : public ::testing::Test {
protected:
    void Make(ListType type, bool outline) {
        std::vector<KTColumn> columns;
        columns.emplace_back("", 16.0F, 20.0F, KTColumnKind::Icon);
        columns.emplace_back("Name", 230.0F, 20.0F);
        columns.emplace_back("Size", 70.0F, 40.0F, KTColumnKind::Number);
        columns.emplace_back("Password", 90.0F, 20.0F);
        columns[3].editable = columns[3].typingHidden = true;
        view = std::make_unique<NotingView>("lst_test", type, columns, nullptr);
        view->SetOutline(outline);
        tester = std::make_unique<QAbstractItemModelTester>(
            view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        view->resize(500, 300);
        view->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(view.get()));
    }
    void TearDown() override {
        tester.reset();
        view.reset();
    }
    KTRow Add(KTRow parent, std::string_view name, bool super = false) {
        const std::string_view texts[] = {name, ""};
        const int64_t numbers[] = {0, 5};
        return view->Rows().AddUnder(parent, {texts, numbers, super, false, 0});
    }
    QPoint On(KTRow row, int column = 1) {
        return view->visualRect(view->IndexOf(row, column)).center();
    }
    void Click(QPoint at, Qt::KeyboardModifiers keys = Qt::NoModifier) {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, keys, at);
    }
    void ClickExpander(KTRow row) {
        const QRect cell = view->visualRect(view->IndexOf(row, 1));
        Click({cell.left() - view->indentation() / 2, cell.center().y()});
    }
    void Press(int key, Qt::KeyboardModifiers keys = Qt::NoModifier) {
        QTest::keyClick(view.get(), static_cast<Qt::Key>(key), keys);
    }
    std::string CurrentName() {
        const KTRow row = view->CurrentRow();
        return row == kNoRow ? "" : std::string(view->Rows().TextAt(row, 1));
    }

    std::unique_ptr<NotingView> view;
    std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST(KTColumn, WidthsAreRaisedToTheirMinimum) {
    EXPECT_EQ(KTColumn("", 16, 20).width, 20);
    EXPECT_EQ(KTColumn("", 16, 2).minWidth, 4);
    EXPECT_EQ(KTColumn("", 1, 2).width, 4);
}

TEST_F(KTColumnListViewTest, AClickMarksAndOnTheExpanderOnlyExpands) {
    Make(ListType::Multiple, true);
    const KTRow disk = Add(kNoRow, "Disk", true);
    const KTRow home = Add(disk, "home", true);
    const KTRow file = Add(home, "file");
    ClickExpander(disk);
    EXPECT_EQ(view->Noted(), ">Disk");
    EXPECT_TRUE(view->Rows().IsExpanded(disk));
    Click(On(home));
    EXPECT_EQ(view->Noted(), "+home");
    EXPECT_EQ(view->IndexOf(disk).data(Qt::CheckStateRole).toInt(), Qt::Checked);
    Click(On(home, 2));
    EXPECT_EQ(view->Noted(), "-home");
    EXPECT_FALSE(view->Rows().IsMarked(file));
    ClickExpander(disk);
    EXPECT_EQ(view->Noted(), "");
    EXPECT_FALSE(view->isExpanded(view->IndexOf(disk)));
    // A leaf has none: a click where it would be marks.
    view->Expand(disk);
    view->Expand(home);
    view->Noted();
    ClickExpander(file);
    EXPECT_EQ(view->Noted(), "+file");
    EXPECT_EQ(view->Rows().MarkOf(disk), KTRowStore::Mark::Whole);
}

TEST_F(KTColumnListViewTest, ExpandingFromOutsideGoesThroughTheHook) {
    Make(ListType::Multiple, true);
    const KTRow disk = Add(kNoRow, "Disk", true);
    view->setExpanded(view->IndexOf(disk), true);  // a screen reader's way
    EXPECT_EQ(view->Noted(), ">Disk");
    Add(disk, "late");
    view->setExpanded(view->IndexOf(disk), false);
    EXPECT_FALSE(view->Rows().IsExpanded(disk));
}

TEST_F(KTColumnListViewTest, TheKeyboardReachesEverything) {
    Make(ListType::Multiple, true);
    const KTRow disk = Add(kNoRow, "Disk", true);
    const KTRow home = Add(disk, "home", true);
    Add(home, "file");
    Add(home, "film");
    Add(kNoRow, "Zip", true);
    view->setFocus();
    Press(Qt::Key_Home);
    EXPECT_EQ(CurrentName(), "Disk");
    Press(Qt::Key_Right);
    Press(Qt::Key_Right);
    EXPECT_EQ(CurrentName(), "home");
    EXPECT_EQ(view->Noted(), ">Disk");
    Press(Qt::Key_Space);
    EXPECT_EQ(view->Noted(), "+home");
    Press('+');
    EXPECT_EQ(view->Noted(), ">home");
    Press(Qt::Key_F);
    EXPECT_EQ(CurrentName(), "file");
    QTest::keyClicks(view.get(), "ilm");
    EXPECT_EQ(CurrentName(), "film");
    Press(Qt::Key_Left);
    EXPECT_EQ(CurrentName(), "home");
    Press('-');
    EXPECT_FALSE(view->Rows().IsExpanded(home));
    Press(Qt::Key_End);
    EXPECT_EQ(CurrentName(), "Zip");
    Press(Qt::Key_Home);
    Press('-');
    Press('*');
    EXPECT_TRUE(view->Rows().IsExpanded(disk));
    EXPECT_TRUE(view->Rows().IsExpanded(home));
    // Nothing of all this has marked anything but Space.
    EXPECT_EQ(view->Noted(), ">Disk>home");
}

TEST_F(KTColumnListViewTest, ShiftTakesARangeInAFlatList) {
    Make(ListType::Multiple, false);
    std::vector<KTRow> rows;
    for (const char* name : {"a", "b", "c", "d", "e"})
        rows.push_back(Add(kNoRow, name));
    Click(On(rows[1]));
    Click(On(rows[3]), Qt::ShiftModifier);
    EXPECT_EQ(view->Rows().MarkedRows(), (std::vector<KTRow>{rows[1], rows[2], rows[3]}));
    Click(On(rows[2]));  // unmarks, and a range from here does the same
    Click(On(rows[0]), Qt::ShiftModifier);
    EXPECT_EQ(view->Rows().MarkedRows(), (std::vector<KTRow>{rows[3]}));
    Press(Qt::Key_End);
    Press(Qt::Key_Up, Qt::ShiftModifier);
    EXPECT_EQ(view->Rows().MarkedRows(), (std::vector<KTRow>{rows[3], rows[4]}));
    Press(Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(view->Rows().MarkedRows().size(), 5U);
}

TEST_F(KTColumnListViewTest, ASingleListHasOneMarkedRow) {
    Make(ListType::Single, false);
    const KTRow a = Add(kNoRow, "a");
    const KTRow b = Add(kNoRow, "b");
    QFocusEvent focus(QEvent::FocusIn, Qt::TabFocusReason);
    QApplication::sendEvent(view.get(), &focus);
    EXPECT_EQ(view->CurrentSelection(), kNoRow);  // coming by with Tab selects nothing
    Click(On(a));
    EXPECT_EQ(view->CurrentSelection(), a);
    Press(Qt::Key_Down);
    EXPECT_EQ(view->CurrentSelection(), b);
    EXPECT_FALSE(view->Rows().IsMarked(a));
    view->Rows().Remove(b);
    EXPECT_EQ(view->CurrentSelection(), kNoRow);  // and not the neighbour
    view->Select(a);
    EXPECT_TRUE(view->Rows().IsMarked(a));
    view->Select(kNoRow);
    EXPECT_FALSE(view->Rows().HasMarks());
}

TEST_F(KTColumnListViewTest, MessagesAreCoalescedAndNameTheRow) {
    Make(ListType::Multiple, false);
    const KTRow a = Add(kNoRow, "a");
    const KTRow b = Add(kNoRow, "b");
    view->SetSelectionMessage(BMessage("slch"_code), view.get());
    view->SetInvocationMessage(BMessage("invo"_code), view.get());
    view->MultiSelect(a);
    view->MultiSelect(b);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view->messages.empty(); }));
    EXPECT_EQ(view->messages[0].what, "slch"_code);
    view->SetCurrentRow(b);
    Press(Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->messages.size() == 2; }));
    EXPECT_EQ(view->messages[1].what, "invo"_code);
    EXPECT_EQ(view->messages[1].Get<int64_t>("item", -1), b);
    // A double click leaves the mark as it was and invokes.
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, On(a));
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->messages.size() >= 3; }));
    EXPECT_EQ(view->messages[2].what, "invo"_code);
}

TEST_F(KTColumnListViewTest, EditingHidesWhatIsTyped) {
    Make(ListType::Multiple, false);
    const KTRow row = Add(kNoRow, "a");
    view->SetInvocationMessage(BMessage("invo"_code), view.get());
    Click(On(row, 3));
    EXPECT_FALSE(view->Rows().IsMarked(row));  // the press edits, it does not mark
    auto* field = view->viewport()->findChild<QLineEdit*>();
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    EXPECT_EQ(field->accessibleName(), "Password");
    QTest::keyClicks(field, "s3cret");
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !view->messages.empty(); }));
    EXPECT_EQ(view->Rows().TextAt(row, 3), "s3cret");
    EXPECT_FALSE(view->IndexOf(row, 3).data().toString().contains("s3"));
    ExpectIs(view->messages[0], "clrn"_code, {{"text", "s3cret"}});
    EXPECT_EQ(view->messages[0].Get<int64_t>("item", -1), row);
}

TEST_F(KTColumnListViewTest, AWidthIsToldOnceWhenTheBorderIsLetGo) {
    Make(ListType::Multiple, true);
    auto* bar = view->header()->viewport();
    const int y = bar->height() / 2;
    const int border =
        view->header()->sectionViewportPosition(2) + view->header()->sectionSize(2) - 1;
    QTest::mousePress(bar, Qt::LeftButton, {}, {border, y});
    for (int x = border + 5; x <= border + 30; x += 5) {
        QMouseEvent move(QEvent::MouseMove, QPointF(x, y), bar->mapToGlobal(QPointF(x, y)),
                         Qt::NoButton, Qt::LeftButton, {});
        QApplication::sendEvent(bar, &move);
    }
    EXPECT_EQ(view->Noted(), "");
    QTest::mouseRelease(bar, Qt::LeftButton, {}, {border + 30, y});
    EXPECT_EQ(view->Noted(), "w2=100");
    view->header()->resizeSection(2, 5);
    EXPECT_EQ(view->header()->sectionSize(2), 40);  // its minimum
    EXPECT_EQ(view->Noted(), "");                   // nobody dragged
}

TEST_F(KTColumnListViewTest, TheMenuIsAboutTheRowUnderIt) {
    Make(ListType::Multiple, false);
    QMenu menu;
    menu.addAction("Delete");
    view->SetPopUpMenu(&menu);
    Add(kNoRow, "a");
    const KTRow b = Add(kNoRow, "b");
    QTest::mouseClick(view->viewport(), Qt::RightButton, {}, On(b));
    QContextMenuEvent event(QContextMenuEvent::Mouse, On(b), view->viewport()->mapToGlobal(On(b)));
    QApplication::sendEvent(view->viewport(), &event);
    EXPECT_TRUE(menu.isVisible());
    EXPECT_EQ(view->Rows().MarkedRows(), std::vector<KTRow>{b});
    menu.close();
}

TEST_F(KTColumnListViewTest, NamesThatAreNoTextAreShownEscaped) {
    Make(ListType::Multiple, true);
    const KTRow row = Add(kNoRow, "caf\xe9\n");
    EXPECT_EQ(view->IndexOf(row, 1).data().toString(), "caf\\xE9\\x0A");
    EXPECT_EQ(view->Rows().TextAt(row, 1), "caf\xe9\n");
}

// Qt checks the model after every step; this one walks through all kinds of them.
TEST_F(KTColumnListViewTest, TheModelTellsTheTruthWhileRowsComeAndGo) {
    Make(ListType::Multiple, true);
    const KTRow disk = Add(kNoRow, "Disk", true);
    const KTRow other = Add(kNoRow, "Other", true);
    view->Expand(disk);
    for (int i = 0; i < 40; ++i)
        Add(disk, "n" + std::to_string(i));
    const KTRow sub = Add(disk, "sub", true);
    Add(sub, "deep");
    view->Expand(sub);
    QApplication::processEvents();
    view->Rows().Move(sub, other);
    view->Rows().RemoveRange(disk, 10, 20);
    view->Expand(other);
    QApplication::processEvents();
    EXPECT_TRUE(view->isExpanded(view->IndexOf(sub)));
    EXPECT_EQ(view->indexBelow(view->IndexOf(other)), view->IndexOf(sub));
    view->Rows().RemoveChildren(other);
    view->Rows().MakeEmpty();
    QApplication::processEvents();
    EXPECT_EQ(view->model()->rowCount(), 0);
}

TEST(KTColumnListColors, AreMadeReadable) {
    const QColor blue(49, 61, 225);
    EXPECT_EQ(KTColumnListView::Readable(blue, Qt::white), blue);
    EXPECT_GT(KTColumnListView::Readable(blue, QColor(35, 38, 41)).lightnessF(), blue.lightnessF());
}

}  // namespace

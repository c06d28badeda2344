// The list of the server's jobs.
#include "client/jobqueue/KTJobListView.h"

#include <gtest/gtest.h>

#include <QLineEdit>
#include <QTest>

#include "core/protocol/Codes.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;
using Show = KTJobListView::Show;

namespace {

class JobList : public WidgetTest {
protected:
    KTJobListView& List(Show show = Show::Queue) {
        if (!list)
            list = std::make_unique<KTJobListView>(show, KTColumnListView::ListType::Multiple,
                                                   &desk.server, &desk.preferences, nullptr);
        return *list;
    }
    QWidget* Subject() override { return &List(); }

    std::unique_ptr<KTJobListView> list;
};

TEST_F(JobList, ShowsJobsInWords) {
    BMessage jobs(core::code::kListJobs);
    AddJob(jobs, 255, "Home", 1, 1);
    AddJob(jobs, 256, "", 2, 6);
    AddJob(jobs, 257, "x\xFFy", 9, 9);
    AddJob(jobs, 3, "In the catalogue", 1, 1, true);
    desk.server.answers["KTJL"_code] = jobs;
    ASSERT_TRUE(List().GetJobListFromServer());
    ASSERT_EQ(List().Rows().Count(), 3) << "bases are not in the queue";
    const auto row = [&](int32_t id) {
        QStringList cells;
        for (int column = 1; column < 6; ++column)
            cells << List().CellText(List().RowOfJob(id), column);
        return cells;
    };
    EXPECT_EQ(row(255), (QStringList{"Home", "Waiting", "Full Backup", "-", "000000ff"}));
    EXPECT_EQ(row(256), (QStringList{"- no title -", "Running", "Insert", "-", "00000100"}));
    EXPECT_EQ(row(257), (QStringList{"x\\xFFy", "Unknown", "Unknown", "-", "00000101"}));
}

TEST_F(JobList, FollowsTheServersNotices) {
    desk.server.answers["KTJL"_code] = BMessage(core::code::kNone);
    ASSERT_TRUE(List().GetJobListFromServer());
    EXPECT_EQ(List().Rows().Count(), 0);
    BMessage inserted(core::code::kJobInserted);
    AddJob(inserted, 1, "A", 1, 1);
    AddJob(inserted, 2, "B", 1, 2);
    Send(inserted);
    Send(inserted);
    EXPECT_EQ(List().Rows().Count(), 2) << "told twice, listed once";

    Send(Made(core::code::kJobChanged, {{"job_id", 2}, {"jobstatus", 3}, {"new_id", 7}}));
    EXPECT_EQ(List().RowOfJob(2), kNoRow);
    ASSERT_NE(List().RowOfJob(7), kNoRow);
    EXPECT_EQ(List().CellText(List().RowOfJob(7), KTJobListView::kStatus), "Pause");
    EXPECT_EQ(List().JobTitle(List().RowOfJob(7)), "B") << "what is not named stays";

    BMessage removed = Made(core::code::kJobRemoved, {{"job_id", 99}});
    Send(removed);
    EXPECT_EQ(List().Rows().Count(), 2);
    removed.Add("job_id", int32_t{1});
    removed.Add("job_id", int32_t{7});
    Send(removed);
    EXPECT_EQ(List().Rows().Count(), 0);
}

TEST_F(JobList, NoAnswerLeavesTheList) {
    BMessage inserted(core::code::kJobInserted);
    AddJob(inserted, 1, "A", 1, 1);
    Send(inserted);
    List().MultiSelect(List().RowOfJob(1));
    EXPECT_FALSE(List().GetJobListFromServer());
    EXPECT_FALSE(List().IsFetched());
    EXPECT_EQ(List().Rows().Count(), 1);
    desk.server.answers["KTJL"_code] = inserted;
    EXPECT_TRUE(List().GetJobListFromServer());
    EXPECT_TRUE(List().Rows().IsMarked(List().RowOfJob(1))) << "marks survive a new list";
}

TEST_F(JobList, TitleEditedInPlaceIsStored) {
    BMessage inserted(core::code::kJobInserted);
    AddJob(inserted, 1, "A", 1, 1);
    AddJob(inserted, 2, "B", 2, 1);
    Send(inserted);
    const KTRow first = List().RowOfJob(1);
    List().show();
    const QPoint title = List().visualRect(List().IndexOf(first, KTJobListView::kTitle)).center();
    QTest::mouseClick(List().viewport(), Qt::LeftButton, {}, title);
    EXPECT_TRUE(List().Rows().IsMarked(first)) << "the first press marks";
    EXPECT_FALSE(List().findChild<QLineEdit*>());
    QTest::mouseClick(List().viewport(), Qt::LeftButton, {}, title);
    auto* editor = List().findChild<QLineEdit*>();
    ASSERT_TRUE(editor) << "the next one edits";
    EXPECT_FALSE(List().TestRenameColumnData(List().RowOfJob(2), KTJobListView::kTitle))
        << "a running job cannot be changed";
    BMessage job = Made(core::code::kSubmitJob, {{"job_type", 1}});
    desk.server.answers["KTjg"_code] = job;
    QTest::keyClicks(editor, "New name");
    Send(inserted);
    EXPECT_EQ(editor->text(), "New name") << "a notice takes nothing from whoever types";
    QTest::keyClick(editor, Qt::Key_Return);
    Settle();
    ASSERT_EQ(desk.server.posted.size(), 1u);
    ExpectIs(desk.server.posted[0], "KTjs"_code, {{"job_id", 1}});
    const BMessage data = desk.server.posted[0].Get("job_data", BMessage());
    ExpectHas(data, {{"title", "New name"}, {"job_type", 1}});

    desk.server.answers["KTjg"_code] = BMessage(core::code::kNone);
    List().RenameColumnData(List().RowOfJob(1), KTJobListView::kTitle, "Other");
    Settle();
    EXPECT_EQ(desk.server.posted.size(), 1u) << "a job that is gone is not written";
}

TEST_F(JobList, WidthsAreKept) {
    List().ColumnWidthChanged(KTJobListView::kTitle, 123);
    List().ColumnWidthChanged(KTJobListView::kIcon, 50);
    EXPECT_EQ(desk.preferences.GetFloat("JQTITLECOLWIDTH", 0), 123);
    list.reset();
    EXPECT_EQ(List().ColumnAt(KTJobListView::kTitle).width, 123);
}

}  // namespace

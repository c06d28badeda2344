// The settings of the report tool, and printing.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPrinter>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

#include "client/report/KTLogSettingWindow.h"
#include "client/report/KTReportPrinter.h"
#include "client/report/KTReportTextView.h"
#include "client/report/KTReportView.h"
#include "tests/client/ReportTesting.h"

using namespace report_testing;

namespace {

BMessage Deletion(int32_t mode, int32_t days, int32_t count, int32_t overwrite) {
    BMessage deletion = Made(
        "rpDS"_code, {{"mode", mode}, {"days", days}, {"count", count}, {"overwrite", overwrite}});
    return deletion;
}

class ReportSettings : public WidgetTest {
protected:
    ReportSettings() {
        desk.server.answers["rpGL"_code] = BMessage("NONE"_code);
        desk.server.answers["rpDG"_code] = Deletion(1, 30, 50, 1);
        tool.SetPref(Made({{"logtextsize", 11}, {"logfilter", 0}, {"savepath", "/somewhere"}}));
        tool.show();
        tool.MessageReceived(*std::make_unique<BMessage>(OneOfEach(3)));
        Settle();
    }
    void Open() {
        Click(&tool, "btn_settings");
        ASSERT_TRUE(Window());
    }
    KTLogSettingWindow* Window() { return tool.window()->findChild<KTLogSettingWindow*>(); }
    QWidget* Subject() override { return Window(); }
    void Type(const char* name, const char* text) {
        auto* field = Find<QLineEdit>(name);
        field->selectAll();
        field->insert(text);
        emit field->editingFinished();
        Settle();
    }
    QString Text() { return tool.findChild<KTReportTextView*>("txt_report")->WholeText(); }
    int Size() { return tool.findChild<KTReportTextView*>("txt_report")->font().pointSize(); }
    KTReportView tool{desk.Context()};
};

TEST_F(ReportSettings, ChoicesShowAtOnceAndAreTakenBack) {
    const QString size = QStringLiteral(u"Gr\u00f6\u00dfe");
    Open();
    EXPECT_EQ(Find<QComboBox>(size)->currentText(), "11");
    EXPECT_EQ(Text(), "4\n3\n2\n1");
    Choose("mnu_filter", 2);
    Choose(size, Find<QComboBox>(size)->findText("20"));
    EXPECT_EQ(Text(), "7\n6\n5\n4\n3\n2\n1");
    EXPECT_EQ(Size(), 20);
    Press("btn_cancel");
    EXPECT_EQ(Text(), "4\n3\n2\n1");
    EXPECT_EQ(Size(), 11);
    EXPECT_EQ(SettingsOf(tool).Find<int32_t>("logfilter"), 0);
    EXPECT_TRUE(desk.server.posted.empty()) << "a cancelled dialog changes nothing at the server";
}

TEST_F(ReportSettings, ConfirmedOnesAreKept) {
    Open();
    Choose("mnu_filter", 1);
    Press("btn_ok");
    EXPECT_EQ(Text(), "5\n4\n3\n2\n1");
    const BMessage kept = desk.preferences.GetMessageData("report");
    ExpectHas(kept, {{"logfilter", 1}, {"logtextsize", 11}});
    EXPECT_FALSE(kept.Get("logtextfamily", std::string()).empty());
    EXPECT_EQ(kept.FindString("savepath"), "/somewhere");
    ASSERT_EQ(desk.server.posted.size(), 1u);
    ExpectIs(desk.server.posted[0], "rpDS"_code,
             {{"mode", 1}, {"days", 30}, {"count", 50}, {"overwrite", 1}});
}

TEST_F(ReportSettings, EachModeHasItsField) {
    Open();
    const auto enabled = [&] {
        return std::pair(Field("txt_deleteolder")->isEnabled(),
                         Field("txt_deletecount")->isEnabled());
    };
    EXPECT_TRUE(Find<QRadioButton>("rbtn_delete_1")->isChecked());
    EXPECT_EQ(enabled(), std::pair(true, false));
    Press("rbtn_delete_2");
    EXPECT_EQ(enabled(), std::pair(false, true));
    Type("txt_deletecount", "7x");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Report Count: Only numbers for report count allowed! Please correct!"});
    Press("btn_ok");
    ASSERT_TRUE(Window()) << "reports are not deleted by half a number";
    EXPECT_TRUE(desk.server.posted.empty());
    Press("rbtn_delete_1");
    Type("txt_deleteolder", "7x");
    EXPECT_EQ(desk.dialogs.Alerts().back().title, "Day Count");
    Press("rbtn_delete_0");
    EXPECT_EQ(enabled(), std::pair(false, false));
    Press("chk_deloverwrite");
    Press("btn_ok");
    ASSERT_EQ(desk.server.posted.size(), 1u);
    ExpectHas(desk.server.posted[0], {{"mode", 0}, {"overwrite", 0}});
}

TEST_F(ReportSettings, WithoutTheServersWordNothingIsSent) {
    desk.server.answers.erase("rpDG"_code);
    Open();
    EXPECT_FALSE(Find<QRadioButton>("rbtn_delete_0")->isEnabled());
    Press("btn_ok");
    EXPECT_FALSE(Window());
    EXPECT_TRUE(desk.server.posted.empty());
}

TEST(KTPageSetup, SurvivesAndNonsenseIsLeft) {
    QPrinter first;
    first.setPageSize(QPageSize(QPageSize::A5));
    first.setPageOrientation(QPageLayout::Landscape);
    first.setPageMargins({20, 21, 22, 23}, QPageLayout::Millimeter);
    const BMessage setup = KTPageSetup::ToMessage(first.pageLayout());
    QPrinter second;
    KTPageSetup::Apply(setup, &second);
    EXPECT_EQ(second.pageLayout().pageSize().id(), QPageSize::A5);
    EXPECT_EQ(second.pageLayout().orientation(), QPageLayout::Landscape);
    EXPECT_NEAR(second.pageLayout().margins(QPageLayout::Millimeter).bottom(), 23, 0.5);

    BMessage nonsense =
        Made({{"width", -1e30F}, {"height", std::numeric_limits<float>::quiet_NaN()}});
    for (const char* side : {"left", "top", "right", "bottom"})
        nonsense.Add(side, std::numeric_limits<float>::infinity());
    KTPageSetup::Apply(nonsense, &second);
    EXPECT_EQ(second.pageLayout().pageSize().id(), QPageSize::A5);
}

class ReportPrinting : public ::testing::Test {
protected:
    // The pages that were begun, and the file.
    int Print(const char* name, int lines, int from = 0, int to = 0) {
        BMessage text("rpRP"_code);
        for (int i = 0; i < lines; ++i)
            core::AddReportWords(text, core::LineType(i % 10 == 3 ? 3 : 1),
                                 "line " + std::to_string(i));
        auto printer = std::make_unique<QPrinter>();
        printer->setOutputFormat(QPrinter::PdfFormat);
        file = folder / name;
        printer->setOutputFileName(QString::fromStdString(file));
        if (from > 0) {
            printer->setPrintRange(QPrinter::PageRange);
            printer->setFromTo(from, to);
        }
        int pages = 0;
        std::optional<bool> good;
        new KTReportPrinter(
            std::move(printer), {KTReportText(std::move(text), 0), QFont(), "A report"},
            [&](int page) { pages = page; }, [&](bool done) { good = done; }, &parent);
        EXPECT_TRUE(WaitFor([&] { return good.has_value(); }));
        wasGood = good.value_or(false);
        return pages;
    }
    qsizetype PagesIn() {
        QFile pdf(QString::fromStdString(file));
        if (!pdf.open(QIODevice::ReadOnly)) return -1;
        return pdf.readAll().count("/Type /Page\n");
    }
    TemporaryFolder folder;
    QObject parent;
    std::string file;
    bool wasGood = false;
};

TEST_F(ReportPrinting, WholeReportGoesOnAsManyPagesAsItNeeds) {
    EXPECT_EQ(Print("short.pdf", 3), 1);
    EXPECT_TRUE(wasGood);
    EXPECT_EQ(PagesIn(), 1);
    const int pages = Print("long.pdf", 500);
    EXPECT_GT(pages, 5);
    EXPECT_EQ(PagesIn(), pages);
    Print("part.pdf", 500, 2, 4);
    EXPECT_TRUE(wasGood);
    EXPECT_EQ(PagesIn(), 3);
    Print("no such folder/x.pdf", 3);
    EXPECT_FALSE(wasGood);
}

}  // namespace

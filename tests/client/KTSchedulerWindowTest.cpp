// The scheduler dialog with its real widgets, by a clock and in a time zone of the test: European
// summer time, whatever this machine has.
#include "client/job/KTSchedulerWindow.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

// Of 2026: local time is one hour ahead, two from 29 March to 25 October, both 01:00 of Greenwich.
constexpr int64_t kSummerBegins = 1'774'746'000, kSummerEnds = 1'792'890'000;
const core::Zone kZone([](int64_t instant) {
    return int64_t{instant >= kSummerBegins && instant < kSummerEnds ? 7200 : 3600};
});
constexpr int64_t kNow = 1'795'363'530;  // Sunday, 2026-11-22 17:05:30 here

BMessage At(int64_t seconds) {
    return Made({{"TIME", BTime::FromSeconds(seconds)}});
}

class Scheduler : public DialogTest<KTSchedulerWindow> {
protected:
    void Open(const BMessage& record) {
        Show(new KTSchedulerWindow("Scheduler", &parent, record, "swqt"_code, BMessenger(&tool),
                                   {kZone, [this] { return now; }}));
    }
    void Type(const char* name, const char* text) {
        Field(name)->setFocus();
        Field(name)->selectAll();
        QTest::keyClicks(Field(name), text);
        if (!*text) QTest::keyClick(Field(name), Qt::Key_Delete);
        QTest::keyClick(Field(name), Qt::Key_Tab);
        Settle();
    }
    std::string NextRun() { return Words("str_nextrun").toStdString(); }
    // What it hands back.
    BMessage Close(const char* button = "btn_ok") {
        tool.heard.clear();
        Press(button);
        EXPECT_EQ(tool.heard.size(), 1U);
        EXPECT_EQ(tool.heard[0].what, "swqt"_code);
        EXPECT_EQ(tool.heard[0].Get("result", false), std::string_view(button) == "btn_ok");
        return tool.heard[0].Get("settings", BMessage());
    }
    // TIME of what is typed into an empty record.
    int64_t Typed(const char* date, const char* time) {
        Open(BMessage());
        Type("DATE", date);
        Type("TIME", time);
        const BMessage record = Close();
        EXPECT_EQ(record.Count("TIME", B_TIME_TYPE), 1);
        return record.Get("TIME", BTime()).seconds;
    }
    int64_t now = kNow;
};

TEST_F(Scheduler, ARecordComesBackAsItWas) {
    BMessage record = At(kNow + 1000);
    record.Add("Months", int32_t{1});
    record.Add("Days", int32_t{2});
    record.Add("Hours", int32_t{300});
    record.Add("Minutes", int32_t{-4});
    record.Add("Saturday", true);
    Open(record);
    EXPECT_EQ(Field("TIME")->text(), "17:22");
    EXPECT_EQ(Field("DATE")->text(), "22.11.2026");
    EXPECT_EQ(Field("Hours")->text(), "300");
    EXPECT_TRUE(IsChecked("Saturday"));
    EXPECT_FALSE(IsChecked("Sunday"));
    const BMessage back = Close();
    EXPECT_EQ(back.Get("TIME", BTime()).seconds, (kNow + 1000) / 60 * 60);
    ExpectHas(back, {{"Months", 1}, {"Days", 2}, {"Hours", 300}, {"Minutes", -4}});
    for (const char* day :
         {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"})
        EXPECT_EQ(back.Find<bool>(day), std::string_view(day) == "Saturday") << day;
    EXPECT_TRUE(back.Has("winpos"));

    Open(BMessage());
    EXPECT_EQ(Field("TIME")->text(), "17:05");
    EXPECT_EQ(Field("DATE")->text(), "22.11.2026");
    EXPECT_EQ(Close("btn_cancel").Get("TIME", BTime()).seconds, kNow / 60 * 60);
    Open(At(0));
    EXPECT_EQ(Field("TIME")->text(), "01:00");
    EXPECT_EQ(Field("DATE")->text(), "01.01.1970");
    EXPECT_EQ(Close().Find<BTime>("TIME"), BTime{0});
}

TEST_F(Scheduler, WarnsOfWhatCannotBeRightAndKeepsIt) {
    const Texts number = {"Repeat: Wrong number format (##)! Please correct!"};
    const Texts date = {"Time: Wrong format for date (DD:MM:YYYY)! Please correct!"};
    const Texts time = {"Time: Wrong format for time (HH:MM)! Please correct!"};
    Open(At(kNow));
    struct {
        const char *field, *text;
        Texts told;
    } const cases[] = {
        {"DATE", "1.2.2001", date},    {"DATE", "01.02.2001", {}}, {"DATE", "01:02:2001", date},
        {"DATE", "01.02.20011", date}, {"DATE", "", date},         {"TIME", "7:30", time},
        {"TIME", "07:30", {}},         {"TIME", "07.30", time},    {"TIME", "ab:cd", time},
        {"Months", "12a", number},     {"Days", "", {}},           {"Hours", "-1", number},
        {"Minutes", "0099", {}},       {"Minutes", " 1", number},
    };
    for (const auto& one : cases) {
        Type(one.field, one.text);
        EXPECT_EQ(desk.dialogs.Told(), one.told) << one.field << " " << one.text;
        EXPECT_EQ(Field(one.field)->text(), one.text);
    }
    // A message that names no field of the dialog is nothing to look at.
    QLineEdit other("wrong");
    for (void* source : {static_cast<void*>(nullptr), static_cast<void*>(&other)}) {
        BMessage message("DATE"_code);
        if (source) message.Add("source", source);
        BMessenger(dialog.data()).SendMessage(std::move(message));
    }
    Settle();
    EXPECT_EQ(desk.dialogs.Told(), Texts{});
    const BMessage back = Close();
    ExpectHas(back, {{"Months", 12}, {"Days", 0}, {"Minutes", 1}});
    EXPECT_EQ(back.Get("TIME", BTime()).seconds, kNow / 60 * 60) << "neither can be read";
}

TEST_F(Scheduler, ReturnInAFieldChecksItAndClosesNothing) {
    Open(At(kNow));
    Field("DATE")->setFocus();
    Field("DATE")->selectAll();
    QTest::keyClicks(Field("DATE"), "tomorrow");
    QTest::keyClick(Field("DATE"), Qt::Key_Return);
    Settle();
    EXPECT_EQ(desk.dialogs.Told().size(), 1U);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(tool.heard.empty());
}

TEST_F(Scheduler, ReadsDatesByTheClockOnTheWall) {
    EXPECT_EQ(Typed("22.11.2026", "18:00"), 1'795'366'800);
    EXPECT_EQ(Typed("01.07.2026", "12:00"), 1'782'900'000) << "summer time";
    EXPECT_EQ(Typed("29.03.2026", "02:30"), 1'774'747'800) << "no clock shows it: as much later";
    EXPECT_EQ(Typed("25.10.2026", "02:30"), 1'792'888'200) << "the first of two";
    EXPECT_EQ(Typed("19.01.2038", "04:14"), 2'147'483'640);
    EXPECT_EQ(Typed("19.01.2038", "04:15"), 2'147'483'700) << "what 31 bits cannot say";
    EXPECT_EQ(Typed("07.02.2106", "07:28"), 4'294'967'280) << "the last minute that TIME can say";
    for (const char* never : {"31.02.2027", "00.01.2027", "1.2"})
        EXPECT_EQ(Typed(never, "12:00"), kNow / 60 * 60 - 5 * 3600 - 5 * 60) << never;
    for (const char* beyond : {"08.02.2106", "31.12.1969"})
        EXPECT_EQ(Typed(beyond, "12:00"), kNow / 60 * 60) << beyond;
    EXPECT_EQ(Typed("23.11.2026", "24:00"), kNow / 60 * 60 + 86'400) << "the time stays";
}

TEST_F(Scheduler, TheSecondOfTwoEqualHoursIsKeptWhileNothingIsTyped) {
    for (const int64_t instant : {kSummerEnds - 1800, kSummerEnds + 1800}) {
        Open(At(instant));
        EXPECT_EQ(Field("TIME")->text(), "02:30");
        Type("Days", "1");
        EXPECT_EQ(Close().Get("TIME", BTime()).seconds, instant);
    }
}

TEST_F(Scheduler, SaysInWordsWhatComesOfItWhileOneTypes) {
    Open(At(kNow + 3 * 3600));
    EXPECT_EQ(NextRun(), "Next run: in 3 hours (today, 20:05), once");
    Field("Days")->setText("7");
    EXPECT_EQ(NextRun(), "Next run: in 3 hours (today, 20:05), every week");
    Find<QCheckBox>("Sunday")->click();
    EXPECT_EQ(NextRun(), "Next run: in 27 hours (tomorrow, 20:05), every week, not on Sunday");
    for (const char* day : {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"})
        Find<QCheckBox>(day)->click();
    EXPECT_EQ(NextRun(), "This job never runs: all seven days of the week are excluded.");
    Field("DATE")->setText("32.11.2026");
    EXPECT_TRUE(NextRun().starts_with("Type the time as HH:MM")) << NextRun();
    Open(BMessage());
    EXPECT_EQ(NextRun(), "Next run: as soon as there is room, once");
}

}  // namespace

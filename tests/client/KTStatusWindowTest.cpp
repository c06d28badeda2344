// The status window with real panels.
#include "client/status/KTStatusWindow.h"

#include <gtest/gtest.h>

#include <QProgressBar>
#include <QToolButton>

#include "client/app/ClientCodes.h"
#include "client/status/KTSpecialListView.h"
#include "client/status/KTStatusSettingWindow.h"
#include "client/status/KTStatusView.h"
#include "core/protocol/Codes.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

BMessage Start(int32_t id, int32_t type = 1) {
    BMessage start =
        Made(core::code::kJobStarted, {{"job_id", id}, {"job_type", type}, {"title", "Home"}});
    return start;
}

BMessage End(int32_t status) {
    return Made(core::code::kJobFinished, {{"status", status}});
}

class StatusWindow : public WidgetTest {
protected:
    StatusWindow() { main.setGeometry(300, 200, 400, 300); }
    QWidget* Subject() override { return &Window(); }

    KTStatusWindow& Window() {
        if (!window)
            window = std::make_unique<KTStatusWindow>(&desk.server, &desk.preferences, &main);
        return *window;
    }
    void Use(const char* key, int32_t value) {
        BMessage settings = desk.preferences.GetMessageData("status");
        settings.Set(key, value);
        desk.preferences.Set("status", settings);
    }
    KTStatusView* Panel(int32_t id) {
        return Window().findChild<KTStatusView*>(QString::number(id));
    }
    using WidgetTest::Send;
    static void Send(KTStatusView* panel, BMessage message) { panel->MessageReceived(message); }

    QWidget main;
    std::unique_ptr<KTStatusWindow> window;
};

TEST_F(StatusWindow, JobStartIsAnsweredWithThePanel) {
    auto answer = std::make_shared<BMessage>();
    BMessage start = Start(255);
    start.SetDelivery(std::make_unique<Foreign>(answer, 42));
    Send(std::move(start));
    KTStatusView* panel = Panel(255);
    ASSERT_TRUE(panel);
    EXPECT_EQ(answer->what, "KTAB"_code);
    EXPECT_EQ(answer->Find<int32_t>("job_id"), 255);
    EXPECT_EQ(answer->Find<BMessenger>("user"), BMessenger(panel));
    EXPECT_TRUE(desk.server.posted.empty());
    EXPECT_EQ(Child<QLabel>(panel, "str_title")->text(), "Home");

    // Told again, by a notice that nobody waits for: the same panel, accepted by a message.
    Send(Start(255));
    EXPECT_EQ(Window().List()->CountViews(), 1);
    ASSERT_EQ(desk.server.posted.size(), 1u);
    EXPECT_EQ(desk.server.posted[0].what, "KTAB"_code);

    BMessage nameless(core::code::kJobStarted);
    Send(nameless);
    EXPECT_EQ(desk.server.posted.size(), 1u) << "a start without an id is not accepted";
}

TEST_F(StatusWindow, PanelShowsProgressAndEnd) {
    Send(Start(1));
    KTStatusView* panel = Panel(1);
    Send(panel, Made(core::code::kJobProgress, {{"linetype", 100},
                                                {"report", "/System/a<b>&\xFF"},
                                                {"size", int64_t{512}},
                                                {"maxsize", int64_t{1024}},
                                                {"maxcount", 9}}));
    EXPECT_EQ(Child<QLabel>(panel, "str_file")->text(), " a<b>&\\xFF");
    EXPECT_EQ(Child<QLabel>(panel, "str_bytes")->text(), "512 Bytes");
    EXPECT_EQ(Child<QLabel>(panel, "str_maxfiles")->text(), "9");
    auto* bar = Child<QProgressBar>(panel, "bar_progress");
    EXPECT_EQ(bar->value(), bar->maximum() / 2);
    EXPECT_TRUE(Child<QToolButton>(panel, "btn_close")->isHidden());

    const QColor colors[] = {QColor(0, 167, 0), QColor(255, 0, 0), QColor(255, 0, 0),
                             QColor(255, 163, 0)};
    for (int32_t status = 0; status < 4; ++status) {
        Send(Start(10 + status));
        KTStatusView* ended = Panel(10 + status);
        Send(ended, End(status));
        EXPECT_EQ(Child<QProgressBar>(ended, "bar_progress")->palette().color(QPalette::Highlight),
                  colors[status])
            << status;
        EXPECT_TRUE(ended->IsFinished());
        EXPECT_FALSE(Child<QToolButton>(ended, "btn_close")->isHidden());
    }
    EXPECT_EQ(Child<QLabel>(Panel(12), "str_status")->text(),
              "Job ended with errors! Please check Report.");
}

TEST_F(StatusWindow, ServerThatDiesEndsRunningJobsOnly) {
    Send(Start(1));
    Send(Start(2));
    Send(Panel(1), End(0));
    Send(BMessage(client::code::kServerGone));
    EXPECT_EQ(Child<QLabel>(Panel(1), "str_status")->text(), "Job successful");
    EXPECT_EQ(Child<QLabel>(Panel(2), "str_status")->text(), "abnormal job end");
}

TEST_F(StatusWindow, FinishedPanelsGoAfterTheirTimeAndTheWindowWithTheLast) {
    Use("removeitems", 1);
    Use("removedelay", 0);  // counts as one second
    Use("autoclose", 1);
    Window().show();
    Send(Start(1));
    Send(Start(2));
    Send(Panel(1), End(0));
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(WaitFor([&] { return Panel(1) == nullptr; }));
    EXPECT_GE(timer.elapsed(), 900);
    EXPECT_TRUE(Panel(2)) << "a running job stays";
    EXPECT_TRUE(Window().isVisible());
    Send(Panel(2), End(1));
    ASSERT_TRUE(WaitFor([&] { return !Window().isVisible(); }));
    EXPECT_EQ(Window().List()->CountViews(), 0);
    // It is only hidden: the next job finds it again.
    Send(Start(3));
    EXPECT_TRUE(Panel(3));
}

TEST_F(StatusWindow, PanelIsClosedByItsButtonAndByNoStranger) {
    Window().show();
    Send(Start(1));
    Send(Panel(1), End(3));
    BMessage strange("svrm"_code);
    strange.SetDelivery(std::make_unique<Foreign>(std::make_shared<BMessage>(), 42));
    Panel(1)->MessageReceived(strange);
    Settle();
    ASSERT_TRUE(Panel(1));
    Click(Panel(1), "btn_close");
    EXPECT_FALSE(Panel(1));
    EXPECT_TRUE(Window().isVisible()) << "without autoclose it stays";
    BMessage unknown = Made("svrm"_code, {{"name", "99"}});
    Send(unknown);
}

TEST_F(StatusWindow, SwitchingAutoRemoveOnLaterReachesFinishedPanels) {
    Send(Start(1));
    Send(Panel(1), End(0));
    BMessage settings = Made({{"removeitems", 1}, {"removedelay", 0}});
    Send(Answer("stsq"_code, true, settings));
    EXPECT_EQ(desk.preferences.GetMessageData("status").Find<int32_t>("removeitems"), 1);
    EXPECT_TRUE(WaitFor([&] { return Panel(1) == nullptr; }));

    Send(Start(2));
    Send(Panel(2), End(0));
    settings.Set("removeitems", int32_t{0});
    Send(Answer("stsq"_code, true, settings));
    settings.Set("removeitems", int32_t{1});
    Send(Answer("stsq"_code, false, settings));
    EXPECT_EQ(desk.preferences.GetMessageData("status").Find<int32_t>("removeitems"), 0)
        << "what a cancelled dialog holds is not taken";
}

TEST_F(StatusWindow, PlaceIsKeptRelativeToTheMainWindow) {
    main.move(300, 200);
    desk.preferences.Set("status", Made({{"statuswinpos", BRect{40, 60, 40 + 459, 60 + 219}}}));
    Window().show();
    EXPECT_EQ(Window().pos(), main.pos() + QPoint(40, 60));
    EXPECT_EQ(Window().size(), QSize(460, 220));
    Window().move(main.pos() + QPoint(-30, 10));
    BMessage stored;
    Window().GetPref(&stored);
    EXPECT_EQ(stored.Find<BRect>("statuswinpos"), (BRect{-30, 10, -30 + 459, 10 + 219}));
}

TEST_F(StatusWindow, FollowsTheMainWindowWhenTold) {
    main.show();
    Window().show();
    const QPoint before = Window().pos();
    main.move(main.pos() + QPoint(25, 15));
    Settle();
    EXPECT_EQ(Window().pos(), before);
    Window().SetPref(Made({{"followmain", 1}}));
    main.move(main.pos() + QPoint(25, 15));
    Settle();
    EXPECT_EQ(Window().pos(), before + QPoint(25, 15));
}

TEST_F(StatusWindow, ListKeepsOrderAndScrolls) {
    Window().resize(460, 200);
    Window().show();
    for (int32_t id = 1; id <= 4; ++id)
        Send(Start(id));
    KTSpecialListView* list = Window().List();
    EXPECT_EQ(list->objectName(), "status_listview");
    EXPECT_EQ(list->IndexOfView(Panel(3)), 2);
    EXPECT_EQ(list->ViewAt(9), nullptr);
    EXPECT_EQ(list->IndexOfView(&main), -1);
    Settle();
    const int four = list->widget()->sizeHint().height();
    EXPECT_GT(four, 200);
    list->RemoveViews(1, 2);
    EXPECT_EQ(list->CountViews(), 2);
    EXPECT_EQ(list->ViewAt(1), Panel(4));
    QWidget* kept = Panel(1);
    EXPECT_TRUE(list->RemoveView(kept));
    EXPECT_FALSE(list->RemoveView(kept));
    delete kept;
    list->RemoveViews(0, 50);
    EXPECT_EQ(list->CountViews(), 0);
}

class StatusSettings : public DialogTest<KTStatusSettingWindow> {
protected:
    void Open(const BMessage& settings) {
        Show(new KTStatusSettingWindow(&parent, settings, "stsq"_code, BMessenger(&tool)));
    }
    BMessage Close() {
        Press("btn_ok");
        return tool.heard.back().Get("settings", BMessage());
    }
};

TEST_F(StatusSettings, DelayFollowsItsBoxAndIsSavedAllTheSame) {
    Open(BMessage());
    auto* delay = Find<QLineEdit>("txt_removedelay");
    EXPECT_EQ(delay->text(), "10");
    EXPECT_FALSE(delay->isEnabled());
    Press("chk_removeitems");
    EXPECT_TRUE(delay->isEnabled());
    Press("chk_removeitems");
    Press("chk_followmain");
    EXPECT_FALSE(delay->isEnabled());
    const BMessage settings = Close();
    ExpectHas(settings,
              {{"removedelay", 10}, {"removeitems", 0}, {"followmain", 1}, {"autoopen", 0}});
    EXPECT_EQ(desk.dialogs.Told(), Texts{});
}

TEST_F(StatusSettings, WrongDelayIsSaidOnceAndReadUpToTheFirstOther) {
    Open(Made({{"removeitems", 1}, {"removedelay", 30}}));
    auto* delay = Find<QLineEdit>("txt_removedelay");
    delay->setText("5s");
    emit delay->editingFinished();
    Settle();
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Remove Delay: Wrong format for delay (only numeric)! Please correct!"});
    EXPECT_EQ(delay->text(), "5s") << "the field keeps the text";
    EXPECT_EQ(Close().Find<int32_t>("removedelay"), 5);
}

TEST(KTStatusSettingWindow, ReadsDelays) {
    EXPECT_EQ(KTStatusSettingWindow::Delay("12"), 12);
    EXPECT_EQ(KTStatusSettingWindow::Delay("0"), 0);
    EXPECT_EQ(KTStatusSettingWindow::Delay(""), std::nullopt);
    EXPECT_EQ(KTStatusSettingWindow::Delay("-3"), std::nullopt);
    EXPECT_EQ(KTStatusSettingWindow::Delay("99999999999999999999"), 86400);
}

}  // namespace

// The status window with real panels.
#include "client/status/KTStatusWindow.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>

#include "client/app/ClientCodes.h"
#include "client/status/KTSpecialListView.h"
#include "client/status/KTStatusSettingWindow.h"
#include "client/status/KTStatusView.h"
#include "core/protocol/Codes.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

// A request as the transport delivers it; remembers its answer.
class Delivery : public BDelivery {
public:
    explicit Delivery(std::shared_ptr<BMessage> answer) : fAnswer(std::move(answer)) {
        waiting = true;
        remote = true;
        senderTeam = 42;
    }
    void Answer(BMessage&& answer) override { *fAnswer = std::move(answer); }

private:
    std::shared_ptr<BMessage> fAnswer;
};

BMessage Start(int32_t id, int32_t type = 1) {
    BMessage start(core::code::kJobStarted);
    start.Add("job_id", id);
    start.Add("job_type", type);
    start.Add("title", "Home");
    return start;
}

BMessage End(int32_t status) {
    BMessage end(core::code::kJobFinished);
    end.Add("status", status);
    return end;
}

class StatusWindow : public ::testing::Test {
protected:
    StatusWindow() { main.setGeometry(300, 200, 400, 300); }

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
    template <class T>
    T* In(QWidget* panel, const char* name) {
        return panel->findChild<T*>(name);
    }
    void Send(BMessage message) { Window().MessageReceived(message); }
    void Send(KTStatusView* panel, BMessage message) { panel->MessageReceived(message); }

    Desk desk;
    QWidget main;
    std::unique_ptr<KTStatusWindow> window;
};

TEST_F(StatusWindow, JobStartIsAnsweredWithThePanel) {
    auto answer = std::make_shared<BMessage>();
    BMessage start = Start(255);
    start.SetDelivery(std::make_unique<Delivery>(answer));
    Window().MessageReceived(start);
    KTStatusView* panel = Panel(255);
    ASSERT_TRUE(panel);
    EXPECT_EQ(answer->what, "KTAB"_code);
    EXPECT_EQ(answer->Find<int32_t>("job_id"), 255);
    EXPECT_EQ(answer->Find<BMessenger>("user"), BMessenger(panel));
    EXPECT_TRUE(desk.server.posted.empty());
    EXPECT_EQ(In<QLabel>(panel, "str_title")->text(), "Home");

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
    BMessage progress(core::code::kJobProgress);
    progress.Add("linetype", int32_t{100});
    progress.Add("report", "/System/a<b>&\xFF");
    progress.Add("size", int64_t{512});
    progress.Add("maxsize", int64_t{1024});
    progress.Add("maxcount", int32_t{9});
    Send(panel, progress);
    EXPECT_EQ(In<QLabel>(panel, "str_file")->text(), " a<b>&\\xFF");
    EXPECT_EQ(In<QLabel>(panel, "str_bytes")->text(), "512 Bytes");
    EXPECT_EQ(In<QLabel>(panel, "str_maxfiles")->text(), "9");
    auto* bar = In<QProgressBar>(panel, "bar_progress");
    EXPECT_EQ(bar->value(), bar->maximum() / 2);
    EXPECT_TRUE(In<QToolButton>(panel, "btn_close")->isHidden());

    const QColor colors[] = {QColor(0, 167, 0), QColor(255, 0, 0), QColor(255, 0, 0),
                             QColor(255, 163, 0)};
    for (int32_t status = 0; status < 4; ++status) {
        Send(Start(10 + status));
        KTStatusView* ended = Panel(10 + status);
        Send(ended, End(status));
        EXPECT_EQ(In<QProgressBar>(ended, "bar_progress")->palette().color(QPalette::Highlight),
                  colors[status])
            << status;
        EXPECT_TRUE(ended->IsFinished());
        EXPECT_FALSE(In<QToolButton>(ended, "btn_close")->isHidden());
    }
    EXPECT_EQ(In<QLabel>(Panel(12), "str_status")->text(),
              "Job ended with errors! Please check Report.");
}

TEST_F(StatusWindow, ServerThatDiesEndsRunningJobsOnly) {
    Send(Start(1));
    Send(Start(2));
    Send(Panel(1), End(0));
    Send(BMessage(client::code::kServerGone));
    EXPECT_EQ(In<QLabel>(Panel(1), "str_status")->text(), "Job successful");
    EXPECT_EQ(In<QLabel>(Panel(2), "str_status")->text(), "abnormal job end");
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
    strange.SetDelivery(std::make_unique<Delivery>(std::make_shared<BMessage>()));
    Panel(1)->MessageReceived(strange);
    Settle();
    ASSERT_TRUE(Panel(1));
    In<QToolButton>(Panel(1), "btn_close")->click();
    Settle();
    EXPECT_FALSE(Panel(1));
    EXPECT_TRUE(Window().isVisible()) << "without autoclose it stays";
    BMessage unknown("svrm"_code);
    unknown.Add("name", "99");
    Send(unknown);
}

TEST_F(StatusWindow, SwitchingAutoRemoveOnLaterReachesFinishedPanels) {
    Send(Start(1));
    Send(Panel(1), End(0));
    BMessage settings;
    settings.Add("removeitems", int32_t{1});
    settings.Add("removedelay", int32_t{0});
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
    BMessage settings;
    settings.Add("statuswinpos", BRect{40, 60, 40 + 459, 60 + 219});
    desk.preferences.Set("status", settings);
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
    BMessage settings;
    settings.Add("followmain", int32_t{1});
    Window().SetPref(settings);
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

class StatusSettings : public ::testing::Test {
protected:
    void Open(const BMessage& settings) {
        window = new KTStatusSettingWindow(&parent, settings, "stsq"_code, BMessenger(&target));
        window->show();
    }
    template <class T>
    T* Find(const char* name) {
        return window->findChild<T*>(name);
    }
    BMessage Close() {
        Find<QPushButton>("btn_ok")->click();
        WaitFor([&] { return !target.heard.empty(); });
        return target.heard.back().Get("settings", BMessage());
    }
    ScriptedDialogs dialogs;
    QWidget parent;
    Listener target;
    QPointer<KTStatusSettingWindow> window;
};

TEST_F(StatusSettings, DelayFollowsItsBoxAndIsSavedAllTheSame) {
    Open(BMessage());
    auto* delay = Find<QLineEdit>("txt_removedelay");
    EXPECT_EQ(delay->text(), "10");
    EXPECT_FALSE(delay->isEnabled());
    Find<QCheckBox>("chk_removeitems")->click();
    Settle();
    EXPECT_TRUE(delay->isEnabled());
    Find<QCheckBox>("chk_removeitems")->click();
    Find<QCheckBox>("chk_followmain")->click();
    Settle();
    EXPECT_FALSE(delay->isEnabled());
    const BMessage settings = Close();
    EXPECT_EQ(settings.Find<int32_t>("removedelay"), 10);
    EXPECT_EQ(settings.Find<int32_t>("removeitems"), 0);
    EXPECT_EQ(settings.Find<int32_t>("followmain"), 1);
    EXPECT_EQ(settings.Find<int32_t>("autoopen"), 0);
    EXPECT_TRUE(dialogs.Alerts().empty());
}

TEST_F(StatusSettings, WrongDelayIsSaidOnceAndReadUpToTheFirstOther) {
    BMessage settings;
    settings.Add("removeitems", int32_t{1});
    settings.Add("removedelay", int32_t{30});
    Open(settings);
    auto* delay = Find<QLineEdit>("txt_removedelay");
    delay->setText("5s");
    emit delay->editingFinished();
    Settle();
    ASSERT_EQ(dialogs.Alerts().size(), 1u);
    EXPECT_EQ(dialogs.Alerts()[0].title, "Remove Delay");
    EXPECT_EQ(dialogs.Alerts()[0].text, "Wrong format for delay (only numeric)! Please correct!");
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

#include <gtest/gtest.h>

#include <QBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <cmath>

#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTGeometry.h"
#include "client/uikit/KTMultiRequest.h"
#include "client/uikit/KTRequestWindow.h"
#include "client/uikit/KTSetWindow.h"
#include "client/uikit/KTToolView.h"
#include "tests/client/ClientTesting.h"

namespace {

using namespace client_testing;

constexpr uint32_t kReply = "swqt"_code;

void Press(QWidget* widget, int key) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &press);
}

// A dialog with one field, as the tools have them.
class FieldWindow : public KTSetWindow {
public:
    FieldWindow(QWidget* parent, const BMessage& settings, const BHandler& target)
        : KTSetWindow("Field", parent, settings, kReply, BMessenger(&target)) {
        auto* layout = new QVBoxLayout(BkgView());
        field = new QLineEdit(BkgView());
        layout->addWidget(field);
        field->setText(QString::fromStdString(settings.Get("text", std::string())));
        KeepReturn(field);
    }
    QLineEdit* field;

protected:
    void Save(BMessage& settings) override {
        settings.Set("text", KTControl::ToBytes(field->text()));
    }
};

struct Desk {
    Desk() {
        parent.setGeometry(200, 100, 400, 300);
        parent.show();
    }
    QWidget parent;
    Listener tool;

    const BMessage& Answer() {
        EXPECT_TRUE(WaitFor([&] { return !tool.heard.empty(); }));
        Settle();
        EXPECT_EQ(tool.heard.size(), 1u) << "answered once";
        return tool.heard.front();
    }
};

TEST(KTSetWindow, OkHandsBackTheEditedCopyWithItsPlace) {
    Desk desk;
    auto* window =
        new FieldWindow(&desk.parent, Made({{"text", "before"}, {"other", 7}}), desk.tool);
    window->show();
    window->move(desk.parent.pos() + QPoint(30, 40));
    window->field->setText("after");
    Child<QPushButton>(window, "btn_ok")->click();
    const BMessage answer = desk.Answer();
    EXPECT_EQ(answer.what, kReply);
    EXPECT_TRUE(answer.Get("result", false));
    const BMessage edited = answer.Get("settings", BMessage());
    ExpectHas(edited, {{"text", "after"}, {"other", 7}});
    const BRect place = edited.Get("winpos", BRect());
    EXPECT_EQ(place.left, 30);
    EXPECT_EQ(place.top, 40);

    // It opens there again, wherever the parent is by then.
    desk.parent.move(50, 60);
    FieldWindow again(&desk.parent, edited, desk.tool);
    again.show();
    EXPECT_EQ(again.pos(), desk.parent.pos() + QPoint(30, 40));
}

TEST(KTSetWindow, EveryOtherWayOfClosingAnswersThatItWasNotConfirmed) {
    const std::function<void(FieldWindow*)> ways[] = {
        [](FieldWindow* window) { Child<QPushButton>(window, "btn_cancel")->click(); },
        [](FieldWindow* window) { Press(window, Qt::Key_Escape); },
        [](FieldWindow* window) { window->close(); },
        [](FieldWindow* window) { BMessenger(window).SendMessage("_QRQ"_code); },
    };
    for (const auto& close : ways) {
        Desk desk;
        const QPointer<FieldWindow> window = new FieldWindow(&desk.parent, BMessage(), desk.tool);
        window->show();
        window->field->setText("edited");
        close(window);
        const BMessage answer = desk.Answer();
        EXPECT_TRUE(answer.Find<bool>("result"));
        EXPECT_FALSE(answer.Get("result", true));
        const BMessage settings = answer.Get("settings", BMessage());
        EXPECT_EQ(settings.Get("text", std::string()), "edited");
        EXPECT_FALSE(settings.Has("winpos"));
        EXPECT_TRUE(WaitFor([&] { return window.isNull(); })) << "a closed dialog is gone";
    }
}

TEST(KTSetWindow, FocusGoesThroughTheControlsToTheButtons) {
    Desk desk;
    auto* window = new FieldWindow(&desk.parent, {}, desk.tool);
    window->show();
    EXPECT_EQ(window->focusWidget(), window->field) << "wherever the desktop puts the buttons";
    for (const char* next : {"btn_ok", "btn_cancel"}) {
        Press(window->focusWidget(), Qt::Key_Tab);
        EXPECT_EQ(window->focusWidget(), Child<QWidget>(window, next));
    }
    window->close();
}

TEST(KTSetWindow, WithoutItsParentThereIsNoAnswer) {
    Listener tool;
    auto parent = std::make_unique<QWidget>();
    const QPointer<FieldWindow> window = new FieldWindow(parent.get(), BMessage(), tool);
    window->show();
    parent.reset();
    EXPECT_TRUE(window.isNull());
    Settle();
    EXPECT_TRUE(tool.heard.empty());
}

TEST(KTSetWindow, ReturnInAKeptFieldFinishesTheEditOnly) {
    Desk desk;
    auto* window = new FieldWindow(&desk.parent, BMessage(), desk.tool);
    Listener control;
    KTControl::Bind(window->field, BMessage("strd"_code), &control);
    window->show();
    window->field->setText("12");
    Press(window->field, Qt::Key_Return);
    ASSERT_TRUE(WaitFor([&] { return control.heard.size() == 1; }));
    EXPECT_EQ(control.heard[0].Get("text", std::string()), "12");
    Settle();
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(desk.tool.heard.empty());
    window->close();
}

TEST(KTMultiRequest, IsNotConfirmedByReturn) {
    Desk desk;
    auto* window =
        new KTMultiRequest("Delete", &desk.parent, BMessage(), kReply, BMessenger(&desk.tool));
    window->SetQuestion("Really?");
    window->SetText("one\ntwo");
    window->show();
    EXPECT_EQ(Child<QLabel>(window, "str_question")->text(), "Really?");
    EXPECT_EQ(Child<QPlainTextEdit>(window, "tctrl_delete")->toPlainText(), "one\ntwo");
    EXPECT_FALSE(Child<QPushButton>(window, "btn_ok")->isDefault());
    Press(window, Qt::Key_Return);
    EXPECT_FALSE(desk.Answer().Get("result", true));
}

TEST(KTRequestWindow, ReportsThePressedButton) {
    for (int32_t pressed = 0; pressed < 3; ++pressed) {
        Desk desk;
        auto* window = new KTRequestWindow("Ask", "Really?", &desk.parent, BMessenger(&desk.tool),
                                           Made(kReply, {{"mine", 9}}), {"Yes", "No", "Cancel"});
        window->show();
        EXPECT_TRUE(Child<QPushButton>(window, "btn2")->isDefault());
        Child<QPushButton>(window, qPrintable(QString("btn%1").arg(pressed)))->click();
        const BMessage answer = desk.Answer();
        EXPECT_EQ(answer.what, kReply);
        EXPECT_EQ(answer.Get<int32_t>("which", -9), pressed);
        EXPECT_EQ(answer.Get<int32_t>("mine", 0), 9);
    }
}

TEST(KTRequestWindow, ClosedWithoutAButtonReportsMinusOne) {
    for (const bool escape : {true, false}) {
        Desk desk;
        auto* window = new KTRequestWindow("Ask", "Really?", &desk.parent, BMessenger(&desk.tool),
                                           BMessage(kReply), {"Yes", "", ""});
        window->show();
        EXPECT_EQ(window->findChild<QPushButton*>("btn1"), nullptr);
        if (escape)
            Press(window, Qt::Key_Escape);
        else
            window->close();
        EXPECT_EQ(desk.Answer().Get<int32_t>("which", -9), -1);
    }
    // A target that is gone gets nothing, and nobody minds.
    Desk desk;
    auto tool = std::make_unique<Listener>();
    auto* window = new KTRequestWindow("Ask", "?", &desk.parent, BMessenger(tool.get()),
                                       BMessage(kReply), {"Yes"});
    window->show();
    tool.reset();
    window->close();
    Settle();
}

// --- alerts -------------------------------------------------------------------------------------

// Runs an alert of the real kind and does something to its box.
int RunAlert(const KTAlertRequest& request, const std::function<void(QWidget*)>& act) {
    QTimer::singleShot(0, [&] {
        QWidget* box = nullptr;
        ASSERT_TRUE(WaitFor([&] { return (box = QApplication::activeModalWidget()) != nullptr; }));
        act(box);
    });
    return KTDialogs::Get()->RunAlert(request);
}

KTAlertRequest Question() {
    KTAlertRequest request;
    request.title = "Backup";
    request.text = "<b>not bold</b> & so on";
    request.buttons = {"Yes", "No & never", "Cancel"};
    request.defaultButton = -1;
    return request;
}

TEST(KTAlert, GivesThePressedButton) {
    for (int pressed = 0; pressed < 3; ++pressed) {
        const QString name = QString("btn%1").arg(pressed);
        EXPECT_EQ(RunAlert(Question(),
                           [&](QWidget* box) {
                               auto* button = box->findChild<QPushButton*>(name);
                               ASSERT_TRUE(button);
                               EXPECT_FALSE(button->isDefault());
                               button->click();
                           }),
                  pressed);
    }
}

TEST(KTAlert, ShowsPlainTextAndIsLeftAsItWasTold) {
    KTAlertRequest request = Question();
    EXPECT_EQ(RunAlert(request,
                       [](QWidget* box) {
                           const auto labels = box->findChildren<QLabel*>();
                           EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
                               return label->text() == "<b>not bold</b> & so on" &&
                                      label->textFormat() == Qt::PlainText;
                           }));
                           EXPECT_EQ(box->findChild<QPushButton*>("btn1")->text(), "No && never");
                           Press(box, Qt::Key_Return);  // no default: nothing happens
                           Press(box, Qt::Key_Escape);
                       }),
              -1);
    request.escapeButton = 2;
    EXPECT_EQ(RunAlert(request, [](QWidget* box) { box->close(); }), 2);
    request.defaultButton = 1;
    EXPECT_EQ(RunAlert(request, [](QWidget* box) { Press(box, Qt::Key_Return); }), 1);
}

TEST(KTAlert, GoesWithItsWindow) {
    auto* window = new QWidget;
    KTAlertRequest request = Question();
    request.parent = window;
    EXPECT_EQ(RunAlert(request, [&](QWidget*) { delete window; }), -1);
}

TEST(KTAlert, MessagesGoOnWhileItIsOpen) {
    Listener listener;
    RunAlert(Question(), [&](QWidget* box) {
        WindowLooper()->PostMessage("told"_code, &listener);
        EXPECT_TRUE(WaitFor([&] { return listener.heard.size() == 1; }));
        box->close();
    });
}

TEST(KTPanel, IsCancelledOnceAndSilentWhenDeleted) {
    int called = 0;
    const auto done = [&](std::optional<std::string> path) {
        EXPECT_FALSE(path);
        ++called;
    };
    QWidget parent;
    QPointer<QWidget> panel =
        KTDialogs::Get()->OpenPanel({&parent, KTPanelRequest::Kind::Save, "/tmp", "name"}, done);
    panel->close();
    EXPECT_TRUE(WaitFor([&] { return panel.isNull(); }));
    EXPECT_EQ(called, 1);
    panel = KTDialogs::Get()->OpenPanel({&parent, KTPanelRequest::Kind::Open, "/tmp", ""}, done);
    delete panel;
    Settle();
    EXPECT_EQ(called, 1);
}

// --- controls, looper, registry -----------------------------------------------------------------

TEST(KTControl, ShowsBytesSoThatTheyCannotDeceive) {
    EXPECT_EQ(KTControl::Shown("plain (1).txt"), "plain (1).txt");
    EXPECT_EQ(KTControl::Shown("gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80"), QString::fromUtf8("grüß 😀"));
    EXPECT_EQ(KTControl::Shown("a\xFF\xC3"), "a\\xFF\\xC3");
    EXPECT_EQ(KTControl::Shown("a\nb\tc\x7F"), "a\\x0Ab\\x09c\\x7F");
    EXPECT_EQ(KTControl::Shown("fdp.\xE2\x80\xAE"), "fdp.\\xE2\\x80\\xAE");
    EXPECT_EQ(KTControl::Shown("\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80"),
              "\\xC0\\xAF\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80")
        << "overlong, surrogate and too large are no text";
    EXPECT_EQ(KTControl::Shown(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(KTControl, AFinishedEditIsPostedOnce) {
    Listener tool;
    QLineEdit field("start");
    KTControl::Bind(&field, BMessage("edit"_code), &tool);
    const auto type = [&](const QString& text) {
        field.clear();
        for (const QChar c : text) {
            QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
            QCoreApplication::sendEvent(&field, &press);
        }
    };
    const auto finish = [&] { emit field.editingFinished(); };
    const auto posted = [&] {
        Settle();
        return tool.heard.size();
    };
    finish();
    EXPECT_EQ(posted(), 0u) << "nothing was edited";
    type("abc");
    finish();
    finish();
    EXPECT_EQ(posted(), 1u);
    EXPECT_EQ(tool.heard.back().Get("text", std::string()), "abc");
    // What the program puts there in between does not hide that the same is typed again.
    field.setText("other");
    type("abc");
    finish();
    EXPECT_EQ(posted(), 2u);
}

TEST(KTWindowLooper, AFloodOfMessagesLetsEventsThrough) {
    class Flood : public Listener {
    public:
        void MessageReceived(BMessage& message) override {
            ++count;
            if (!stop) WindowLooper()->PostMessage(BMessage(message), this);
        }
        int count = 0;
        bool stop = false;
    } flood;
    for (int i = 0; i < 100; ++i)
        WindowLooper()->PostMessage("floo"_code, &flood);
    QTimer::singleShot(20, [&] { flood.stop = true; });
    EXPECT_TRUE(WaitFor([&] { return flood.stop; })) << "a timer gets its turn";
    EXPECT_GT(flood.count, 100);
}

TEST(KTWindowLooper, HeldMessagesComeAfterwardsInOrder) {
    Listener listener;
    WindowLooper()->Hold();
    WindowLooper()->Hold();
    for (uint32_t i = 0; i < 40; ++i)
        WindowLooper()->PostMessage(i, &listener);
    bool waited = false;
    QTimer::singleShot(20, [&] { waited = true; });
    EXPECT_TRUE(WaitFor([&] { return waited; }));
    WindowLooper()->Release();
    QCoreApplication::processEvents();
    EXPECT_TRUE(listener.heard.empty());
    WindowLooper()->Release();
    ASSERT_TRUE(WaitFor([&] { return listener.heard.size() == 40; }));
    for (uint32_t i = 0; i < 40; ++i)
        EXPECT_EQ(listener.heard[i].what, i);
}

class PlainTool : public KTToolView {
public:
    PlainTool() : KTToolView("tool", {}, nullptr) {}
    void GetPref(BMessage*) override {}
    void SetPref(const BMessage&) override {}
    using KTToolView::OpenWindow;
    using KTToolView::RaiseIfOpen;
    using KTToolView::Remember;
};

TEST(KTToolView, KeepsOneWindowForAKeyAndTakesItsWindowsWithIt) {
    Desk desk;
    auto tool = std::make_unique<PlainTool>();
    EXPECT_FALSE(tool->RaiseIfOpen("win_start"));
    auto* closed = new FieldWindow(&desk.parent, BMessage(), desk.tool);
    tool->Remember("win_start", closed);
    EXPECT_EQ(tool->OpenWindow("win_start"), closed);
    closed->show();
    EXPECT_TRUE(tool->RaiseIfOpen("win_start"));
    closed->close();
    EXPECT_EQ(tool->OpenWindow("win_start"), nullptr);
    EXPECT_FALSE(tool->RaiseIfOpen("win_start"));
    desk.Answer();

    const QPointer<FieldWindow> open = new FieldWindow(&desk.parent, BMessage(), desk.tool);
    tool->Remember("win_start", open);
    open->show();
    tool.reset();
    EXPECT_TRUE(open.isNull());
    Settle();
    EXPECT_EQ(desk.tool.heard.size(), 1u) << "there is nobody left to answer to";
}

TEST(KTGeometry, WindowsComeWhereTheyCanBeReached) {
    QWidget window;
    window.resize(200, 100);
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    for (const QPoint wanted : {QPoint(99999, 99999), QPoint(-99999, -99999)}) {
        const QRect placed(KTGeometry::Reachable(&window, wanted), window.size());
        EXPECT_TRUE(screen.intersects(placed));
        EXPECT_GE(placed.top(), screen.top());
    }
    const BRect broken{std::nanf(""), INFINITY, -INFINITY, 1e30f};
    EXPECT_TRUE(KTGeometry::FromRect(broken).left() == 0);
    EXPECT_EQ(KTGeometry::FromRect(KTGeometry::ToRect(QRect(5, 6, 70, 80))), QRect(5, 6, 70, 80));
}

}  // namespace

// What the tests of the client share: waiting for a condition, finding and pressing what is in
// windows, alerts and panels and a server that answer by script, and a program folder with a
// scripted server in it.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "client/app/BackupApplication.h"
#include "client/app/ServerLink.h"
#include "client/mainwindow/BackupWindow.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Codes.h"
#include "tests/TemporaryFolder.h"
#include "tests/support/MadeMessage.h"

namespace client_testing {

using Texts = std::vector<std::string>;

// Lets messages and events through until the condition holds; false after 20 s.
inline bool WaitFor(const std::function<bool()>& condition) {
    QTimer tick;  // so that what comes without an event is seen, too
    tick.start(2);
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > 20'000) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

// A handler of the window looper that notes what it gets.
class Listener : public BHandler {
public:
    Listener() { WindowLooper()->AddHandler(this); }
    void MessageReceived(BMessage& message) override { heard.push_back(BMessage(message)); }
    std::vector<BMessage> heard;
};

// Lets through everything that was posted to windows before, and what that has posted.
inline void Settle() {
    for (size_t round = 0; round < 3; ++round) {
        Listener mark;
        WindowLooper()->PostMessage("mark"_code, &mark);
        EXPECT_TRUE(WaitFor([&] { return !mark.heard.empty(); }));
    }
}

// Closing the main window ends Qt's event loops for good, until the application loop has run once
// more.
inline void ForgetQuit() {
    QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(); });
    QCoreApplication::exec();
}

// The child of this name; without one the test fails.
template <class T = QWidget>
T* Child(const QObject* of, const QString& name) {
    T* child = of->findChild<T*>(name);
    if (!child) ADD_FAILURE() << "no " << name.toStdString();
    return child;
}

// Presses a button and lets that take effect.
inline void Click(const QObject* of, const QString& name) {
    if (auto* button = Child<QAbstractButton>(of, name)) button->click();
    Settle();
}

// Chooses from a menu, as the user does.
inline void Choose(QComboBox* menu, int index) {
    menu->setCurrentIndex(index);
    emit menu->activated(index);
    Settle();
}

// The window of this kind that is on screen; null when there is none.
template <class T>
T* ShownWindow() {
    for (QWidget* top : QApplication::topLevelWidgets())
        if (T* window = qobject_cast<T*>(top); window && window->isVisible()) return window;
    return nullptr;
}

// The widget of this name in a window that is on screen; null when there is none.
template <class T = QWidget>
T* FindWindow(const char* child) {
    for (QWidget* top : QApplication::topLevelWidgets())
        if (top->isVisible() && top->isWindow())
            if (T* found = top->findChild<T*>(child); found && found->isVisible()) return found;
    return nullptr;
}

// Presses a button beside this widget.
inline void ClickBeside(const char* widget, const char* button) {
    auto* found = FindWindow(widget);
    ASSERT_TRUE(found) << widget;
    Click(found->window(), button);
}

// A message of another process; what is answered is kept.
class Foreign : public BDelivery {
public:
    explicit Foreign(std::shared_ptr<BMessage> answer, int32_t team = ::getpid())
        : fAnswer(std::move(answer)) {
        remote = waiting = true;
        senderTeam = team;
    }
    void Answer(BMessage&& answer) override { *fAnswer = std::move(answer); }

private:
    std::shared_ptr<BMessage> fAnswer;
};

// Alerts and panels by script, in place of the real ones as long as this lives; held by shared
// state, as the seam owns its object.
class ScriptedDialogs {
public:
    struct Panel {
        KTPanelRequest request;
        QPointer<QWidget> widget;
        std::function<void(std::optional<std::string>)> done;
    };
    struct State {
        std::vector<KTAlertRequest> alerts;
        std::deque<int> answers;
        std::vector<Panel> panels;
    };
    ScriptedDialogs() : fState(std::make_shared<State>()) {
        fFormer = KTDialogs::Replace(std::make_unique<Seam>(fState));
    }
    ~ScriptedDialogs() { KTDialogs::Replace(std::move(fFormer)); }

    void Answer(int button) { fState->answers.push_back(button); }
    const std::vector<KTAlertRequest>& Alerts() const { return fState->alerts; }
    // The alerts since the last time, as "title: text".
    Texts Told() {
        Texts told;
        for (; fTold < fState->alerts.size(); ++fTold) {
            const KTAlertRequest& alert = fState->alerts[fTold];
            told.push_back((alert.title + ": " + alert.text).toStdString());
        }
        return told;
    }
    std::vector<Panel>& Panels() { return fState->panels; }
    // The user closes the last panel with this path, or without one.
    void Close(std::optional<std::string> path) {
        Panel panel = fState->panels.back();
        panel.done(std::move(path));
        delete panel.widget;
        Settle();
    }

private:
    class Seam : public KTDialogs {
    public:
        explicit Seam(std::shared_ptr<State> state) : fState(std::move(state)) {}
        int RunAlert(const KTAlertRequest& request) override {
            fState->alerts.push_back(request);
            if (fState->answers.empty()) return request.buttons.size() == 1 ? 0 : -1;
            const int answer = fState->answers.front();
            fState->answers.pop_front();
            return answer;
        }
        QWidget* OpenPanel(const KTPanelRequest& request,
                           std::function<void(std::optional<std::string>)> done) override {
            auto* widget = new QWidget(request.parent, Qt::Dialog);
            widget->show();
            fState->panels.push_back({request, widget, std::move(done)});
            return widget;
        }
        std::shared_ptr<State> fState;
    };
    std::shared_ptr<State> fState;
    std::unique_ptr<KTDialogs> fFormer;
    size_t fTold = 0;
};

class ScriptedServer : public ServerLink {
public:
    bool PostServer(BMessage message) override {
        posted.push_back(std::move(message));
        return true;
    }
    std::optional<BMessage> AskServer(const BMessage& message) override {
        asked.push_back(message);
        const auto answer = answers.find(message.what);
        if (answer == answers.end()) return std::nullopt;
        return answer->second;
    }
    void AskServerLater(BMessage message, BMessenger::AnswerFunction done) override {
        asked.push_back(message);
        if (keepsWaiting)
            waiting.push_back(std::move(done));
        else
            AnswerTo(message, done);
    }
    void PostApplication(BMessage message) override { application.push_back(std::move(message)); }

    std::vector<BMessage> posted, asked, application;
    std::map<uint32_t, BMessage> answers;
    // Asked when `answers` has none; a code of 0 is no answer.
    std::function<BMessage(const BMessage&)> answer;
    bool keepsWaiting = false;  // what is asked later goes to `waiting`
    std::vector<BMessenger::AnswerFunction> waiting;

private:
    void AnswerTo(const BMessage& message, const BMessenger::AnswerFunction& done) {
        const auto known = answers.find(message.what);
        const BMessage reply = known != answers.end() ? known->second
                               : answer               ? answer(message)
                                                      : BMessage();
        done(reply.what ? BSendResult::Ok : BSendResult::NoReply, reply);
    }
};

// A program folder whose server is the scripted one, and the application object in it.
class ClientHouse {
public:
    explicit ClientHouse(bool withServer = true) {
        std::filesystem::create_directories(ServerFolder());
        if (withServer)
            std::filesystem::create_symlink(SCRIPTED_SERVER, ServerFolder() + "/BackupServer");
        ::mkdir((folder / "run").c_str(), 0700);
        ::setenv("XDG_RUNTIME_DIR", (folder / "run").c_str(), 1);
        setup.application.runDirectory = kit::RunDirectory::Default();
        setup.programFolder = setup.userFolder = folder / "program";
        setup.serverPatience.settle = std::chrono::milliseconds(0);
    }
    ~ClientHouse() {
        application.reset();
        for (const int32_t team : fServers)
            ::kill(team, SIGKILL);
        ForgetQuit();
    }
    std::string ServerFolder() const { return folder / "program/Backup_Server"; }

    void Start() {
        application = std::make_unique<BackupApplication>(setup);
        ASSERT_EQ(application->InitCheck(), BApplication::Start::Ready) << application->Problem();
        application->Run();
        ServerTeam();
    }
    BackupWindow* Window() const { return application->Window(); }

    // 0 when none runs.
    int32_t ServerTeam() {
        const int32_t team =
            BRoster(setup.application.runDirectory).TeamFor(core::kServerSignature).value_or(0);
        if (team > 0) fServers.insert(team);
        return team;
    }
    BMessenger Server() { return {ServerTeam(), BMessenger::kApplication}; }
    // An order to the scripted server with its answer.
    BMessage Order(uint32_t code, const BMessage& about = BMessage()) {
        BMessage order(code), answer;
        order.Add("message", about);
        EXPECT_EQ(Server().SendMessage(order, &answer, std::chrono::seconds(20)), BSendResult::Ok);
        return answer;
    }
    // What the application object answers to a question from the server's process.
    BMessage AskFromOutside(const BMessage& question) {
        return Order("tASK"_code, question).Get("answer", BMessage());
    }
    // Everything that another process has sent before has been routed.
    void PassBarrier() {
        AskFromOutside(BMessage(B_GET_PROPERTY));
        Settle();
    }
    std::vector<BMessage> Seen(uint32_t code) {
        const BMessage seen = Order("tSEE"_code);
        std::vector<BMessage> found;
        for (int32_t i = 0; i < seen.Count("message"); ++i) {
            BMessage one = seen.Get("message", BMessage(), i);
            if (one.what == code) found.push_back(std::move(one));
        }
        return found;
    }
    void EndServer() {
        const int32_t team = ServerTeam();
        Server().SendMessage("tDIE"_code);
        EXPECT_TRUE(WaitFor([&] { return ServerTeam() == 0; })) << team;
    }

    TemporaryFolder folder;
    ScriptedDialogs dialogs;
    BackupApplication::Setup setup;
    std::unique_ptr<BackupApplication> application;

private:
    std::set<int32_t> fServers;
};

// One in which the client runs.
struct RunningHouse : ClientHouse {
    RunningHouse() { Start(); }
};

}  // namespace client_testing

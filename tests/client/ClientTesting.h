// What the tests of the application object, the main window and the dialog frames share: alerts
// that answer by script, a program folder with a scripted server in it, and waiting for a
// condition.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>

#include "client/app/BackupApplication.h"
#include "client/mainwindow/BackupWindow.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Codes.h"
#include "tests/TemporaryFolder.h"

namespace client_testing {

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

// The seam of alerts and panels, answered by the test as long as this lives.
class ScriptedDialogs {
public:
    ScriptedDialogs() : fAlerts(std::make_shared<std::vector<KTAlertRequest>>()) {
        fFormer = KTDialogs::Replace(std::make_unique<Seam>(fAlerts));
    }
    ~ScriptedDialogs() { KTDialogs::Replace(std::move(fFormer)); }
    const std::vector<KTAlertRequest>& Alerts() const { return *fAlerts; }

private:
    class Seam : public KTDialogs {
    public:
        explicit Seam(std::shared_ptr<std::vector<KTAlertRequest>> alerts)
            : fAlerts(std::move(alerts)) {}
        int RunAlert(const KTAlertRequest& request) override {
            fAlerts->push_back(request);
            return 0;
        }
        QWidget* OpenPanel(const KTPanelRequest&,
                           std::function<void(std::optional<std::string>)>) override {
            return nullptr;
        }

    private:
        std::shared_ptr<std::vector<KTAlertRequest>> fAlerts;
    };
    std::shared_ptr<std::vector<KTAlertRequest>> fAlerts;
    std::unique_ptr<KTDialogs> fFormer;
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

}  // namespace client_testing

#include "client/app/BackupApplication.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QLabel>
#include <future>

#include "client/app/Inquiry.h"
#include "client/app/Product.h"
#include "core/files/HeaderFile.h"
#include "tests/client/ClientTesting.h"

namespace {

using namespace client_testing;
using namespace std::chrono_literals;

BMessage Property(const char* name) {
    return Made("PGET"_code, {{"specifiers", Made("SDIR"_code, {{"property", name}})}});
}

// --- start --------------------------------------------------------------------------------------

TEST(BackupApplicationStart, MakesFoldersLaunchesTheServerRegistersAndShowsTheWindow) {
    RunningHouse house;
    EXPECT_TRUE(std::filesystem::is_directory(house.folder / "program/jobsettings"));
    EXPECT_TRUE(std::filesystem::is_directory(house.folder / "program/locale"));
    const auto registered = house.Seen("KTAD"_code);
    ASSERT_EQ(registered.size(), 1u);
    EXPECT_EQ(registered[0].Get<int32_t>("client_id", 0), house.application->Team());
    EXPECT_TRUE(house.Window()->isVisible());
    EXPECT_EQ(house.Window()->geometry(), QRect(QPoint(50, 80), QPoint(600, 435)));
    EXPECT_EQ(Pref->GetRect("KT_MAINWINPOS"), (BRect{50, 80, 600, 435}));
    EXPECT_TRUE(house.dialogs.Alerts().empty());
}

TEST(BackupApplicationStart, AFrameWithoutWidthIsReplacedAndAnyOtherIsUsedAsItIs) {
    ClientHouse house;
    {
        Preferences stored((house.folder / "program/Backup.prefs").c_str(), "KTBACKUP");
        stored.Set("KT_MAINWINPOS", BRect{-400, -300, 299, 199});
        ASSERT_EQ(stored.Save(), 0);
    }
    house.Start();
    EXPECT_EQ(house.Window()->geometry(), QRect(-400, -300, 700, 500));
}

TEST(BackupApplicationStart, AnUnfitDeviceIsSaidAndTheProgramEndsAfterwards) {
    ClientHouse house;
    house.setup.isReadOnly = [](const std::string&) { return true; };
    house.setup.supportsAttributes = [](const std::string&) { return false; };
    house.Start();
    EXPECT_EQ(house.dialogs.Told(),
              (Texts{"Backup: ERROR: Velmora Backup can't be started from a read only device!",
                     "Backup: ERROR: Velmora Backup can't be started from a device that doesn't "
                     "support file attributes!"}));
    EXPECT_EQ(house.dialogs.Alerts()[0].buttons, QStringList("Stop"));
    EXPECT_EQ(house.dialogs.Alerts()[0].kind, KTAlertRequest::Kind::Stop);
    EXPECT_TRUE(WaitFor([&] { return !house.Window()->isVisible(); }));
}

TEST(BackupApplicationStart, WithoutAServerItSaysSoAndEnds) {
    ClientHouse house(false);
    house.Start();
    EXPECT_EQ(house.dialogs.Told(),
              Texts{"Backup: ERROR: Can't start Backup Server! Failed to find program "
                    "'BackupServer'."});
    EXPECT_EQ(house.dialogs.Alerts()[0].buttons, QStringList("Stop"));
    EXPECT_FALSE(house.application->PostServer(BMessage("KTJP"_code)));
    EXPECT_FALSE(house.application->AskServer(BMessage("KTJL"_code)));
    EXPECT_TRUE(WaitFor([&] { return !house.Window()->isVisible(); }));
}

// --- routing ------------------------------------------------------------------------------------

TEST(BackupApplicationRouting, ARelayedQuestionHoldsUpNobodyElse) {
    RunningHouse house;
    house.Order("tSEE"_code);
    house.Server().SendMessage("tHLD"_code);
    BMessage answer;
    std::atomic<bool> answered = false;
    const BMessenger application(house.application.get());
    application.Ask(BMessage("KTLR"_code), [&](BSendResult, BMessage given) {
        answer = std::move(given);
        answered = true;
    });
    ASSERT_TRUE(WaitFor([&] { return house.Seen("KTLR"_code).size() == 1; }));
    EXPECT_EQ(house.AskFromOutside(Property("DefaultLanguage")).what, "RPLY"_code);
    EXPECT_FALSE(answered);
    house.Server().SendMessage("tFRE"_code);
    ASSERT_TRUE(WaitFor([&] { return answered.load(); }));
    EXPECT_EQ(answer.what, "KTLi"_code) << "whatever code the server answered with";
    EXPECT_EQ(answer.Get("to", std::string()), "KTLR");
}

TEST(BackupApplicationRouting, ARelayedQuestionEndsEmptyWithTheServer) {
    RunningHouse house;
    house.Server().SendMessage("tHLD"_code);
    BMessage answer("none"_code);
    std::atomic<int> answered = 0;
    const BMessenger application(house.application.get());
    const auto ask = [&] {
        application.Ask(BMessage("ktpc"_code), [&](BSendResult, BMessage given) {
            answer = std::move(given);
            ++answered;
        });
    };
    ask();
    ASSERT_TRUE(WaitFor([&] { return house.Seen("ktpc"_code).size() == 1; }));
    house.EndServer();
    ASSERT_TRUE(WaitFor([&] { return answered == 1; }));
    EXPECT_EQ(answer, BMessage("ktpr"_code));
    ask();
    ASSERT_TRUE(WaitFor([&] { return answered == 2; }));
    EXPECT_EQ(answer, BMessage("ktpr"_code));
}

TEST(BackupApplicationRouting, ScriptingLooksAtTheLastSpecifierAndNeedsOne) {
    RunningHouse house;
    BMessage last = Property("DefaultText");
    last.Add("specifiers", Property("TextAppID").Get("specifiers", BMessage()));
    EXPECT_EQ(Strings(house.AskFromOutside(last), "result"), Texts{"velmora backup locale"});
    EXPECT_EQ(house.AskFromOutside(BMessage("PGET"_code)).what, "MNOT"_code);
}

TEST(BackupApplicationRouting, CommandsOfWindowsAreNotTakenFromOutside) {
    RunningHouse house;
    house.Order("tSEE"_code);
    for (const uint32_t code : {"bavw"_code, "tbno"_code, "_ABR"_code, "svno"_code}) {
        house.Server().SendMessage(Made("tSAY"_code, {{"message", BMessage(code)}}));
    }
    house.PassBarrier();
    EXPECT_EQ(house.Window()->View("backup"), nullptr);
    EXPECT_TRUE(house.Window()->findChild<QWidget*>("toolbar")->isVisible());
    EXPECT_TRUE(house.dialogs.Alerts().empty());
}

TEST(BackupApplicationRouting, FilesOpenInTheirToolAndForeignOnesNowhere) {
    RunningHouse house;
    const auto open = [&](const std::string& path) {
        BMessage refs("REFS"_code);
        refs.Add("refs", entry_ref{path});
        house.Order("tSEE"_code);
        house.Server().SendMessage(Made("tSAY"_code, {{"message", refs}}));
        house.PassBarrier();
    };
    open(house.folder.Write("note", "a text"));
    open(house.folder / "missing");
    EXPECT_EQ(Pref->GetInt8("lastview", 0), 0);
    ASSERT_EQ(core::SaveHeaderFile(house.folder / "job", core::kCompareJobMagic, BMessage()),
              core::HeaderSave::Good);
    open(house.folder / "job");
    EXPECT_TRUE(WaitFor([&] { return house.Window()->View("compare") != nullptr; }));
    EXPECT_EQ(Pref->GetInt8("lastview", 0), 5);
}

// --- the server goes ----------------------------------------------------------------------------

TEST(BackupApplicationServer, IsLaunchedAgainForAJob) {
    RunningHouse house;
    house.EndServer();
    house.application->PostApplication(BMessage("KTJA"_code));
    ASSERT_TRUE(WaitFor([&] { return house.ServerTeam() != 0; }));
    ASSERT_TRUE(WaitFor([&] { return house.Seen("KTJA"_code).size() == 1; }));
    EXPECT_EQ(house.Seen("KTAD"_code).size(), 1u) << "registered again";
    EXPECT_TRUE(house.dialogs.Alerts().empty());
}

TEST(BackupApplicationServer, ThatCannotBeLaunchedAgainIsSaidAndTheWindowStays) {
    RunningHouse house;
    std::filesystem::remove(house.ServerFolder() + "/BackupServer");
    house.EndServer();
    house.application->PostApplication(BMessage("KTJP"_code));  // nothing is started by that
    house.application->PostApplication(BMessage("KTbg"_code));
    ASSERT_TRUE(WaitFor([&] { return !house.dialogs.Alerts().empty(); }));
    EXPECT_EQ(house.dialogs.Alerts()[0].text, client::kNoServerText);
    Settle();
    EXPECT_EQ(house.dialogs.Alerts().size(), 1u);
    EXPECT_TRUE(house.Window()->isVisible());
}

TEST(BackupApplicationServer, ThatDiesEndsItsJobsAbnormally) {
    RunningHouse house;
    BMessage start = Made("KTJS"_code, {{"job_id", 7}});
    // The panel answers on this thread, which must go on meanwhile.
    auto asked = std::async(std::launch::async, [&] { return house.AskFromOutside(start); });
    ASSERT_TRUE(WaitFor([&] { return asked.wait_for(0ms) == std::future_status::ready; }));
    const BMessage accepted = asked.get();
    EXPECT_EQ(accepted.what, "KTAB"_code);
    EXPECT_EQ(accepted.Get("user", BMessenger()).Team(), house.application->Team());
    house.EndServer();
    EXPECT_TRUE(WaitFor([] {
        for (QWidget* top : QApplication::topLevelWidgets())
            for (const QLabel* label : top->findChildren<QLabel*>())
                if (label->text() == "abnormal job end") return true;
        return false;
    }));
}

// --- questions from a window --------------------------------------------------------------------

TEST(AskServer, GivesUpInTimeAndDropsALateAnswer) {
    ClientHouse house;
    house.setup.answerPatience = 400ms;
    house.Start();
    house.Server().SendMessage("tHLD"_code);
    Listener listener;
    bool painted = false, waitCursor = false;
    QTimer::singleShot(50, [&] {
        painted = true;
        WindowLooper()->PostMessage("told"_code, &listener);
    });
    QTimer::singleShot(350, [&] {
        waitCursor = QGuiApplication::overrideCursor() &&
                     QGuiApplication::overrideCursor()->shape() == Qt::WaitCursor;
        EXPECT_TRUE(listener.heard.empty()) << "messages stay queued while a question is open";
    });
    EXPECT_FALSE(house.application->AskServer(BMessage("KTJL"_code)));
    EXPECT_TRUE(painted);
    EXPECT_TRUE(waitCursor);
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
    EXPECT_TRUE(WaitFor([&] { return listener.heard.size() == 1; }));

    // The held answer comes now; it must not be taken for that of the next question.
    house.Server().SendMessage("tFRE"_code);
    const auto next = house.application->AskServer(BMessage("rpGL"_code));
    ASSERT_TRUE(next);
    EXPECT_EQ(next->Get("to", std::string()), "rpGL");
}

TEST(AskServer, EndsWithTheServer) {
    ClientHouse house;
    house.setup.answerPatience = 60s;
    house.Start();
    house.Server().SendMessage("tHLD"_code);
    QTimer::singleShot(50, [&] { house.Server().SendMessage("tDIE"_code); });
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(house.application->AskServer(BMessage("KTJL"_code)));
    EXPECT_LT(timer.elapsed(), 20'000);
}

TEST(AskServer, WorksFromWithinAMessageWithOthersBehindIt) {
    ClientHouse house;
    house.setup.answerPatience = 200ms;
    house.Start();
    house.Server().SendMessage("tHLD"_code);
    class View : public Listener {
    public:
        explicit View(BackupApplication* application) : fApplication(application) {}
        void MessageReceived(BMessage& message) override {
            if (message.what == "fill"_code) {
                EXPECT_FALSE(fApplication->AskServer(BMessage("KTJL"_code)));
                EXPECT_TRUE(heard.empty());
            }
            Listener::MessageReceived(message);
        }
        BackupApplication* fApplication;
    } view(house.application.get());
    WindowLooper()->PostMessage("fill"_code, &view);
    for (int i = 0; i < 100; ++i)
        WindowLooper()->PostMessage("told"_code, &view);
    ASSERT_TRUE(WaitFor([&] { return view.heard.size() == 101; }));
    EXPECT_EQ(view.heard[0].what, "fill"_code);
}

TEST(Inquiry, HoldsNothingUpAndEndsWithTheServerOrThePatience) {
    RunningHouse house;
    client::Inquiry inquiry(house.application.get());
    std::vector<std::string> heard;
    const auto note = [&](const std::optional<BMessage>& answer) {
        heard.push_back(answer ? answer->Get("to", std::string()) : "nothing");
    };
    inquiry.Ask(BMessage("ktpc"_code), note);
    EXPECT_TRUE(heard.empty());
    ASSERT_TRUE(WaitFor([&] { return heard.size() == 1; }));
    EXPECT_EQ(heard[0], "ktpc");

    house.Server().SendMessage("tHLD"_code);
    inquiry.Ask(BMessage("ktpc"_code), note);
    Settle();  // messages go on
    inquiry.SetPatience(1ms);
    inquiry.Ask(BMessage("rpGL"_code), note);
    ASSERT_TRUE(WaitFor([&] { return heard.size() == 2; }));
    EXPECT_EQ(heard[1], "nothing");
    EXPECT_FALSE(inquiry.IsOpen());

    inquiry.SetPatience(60s);
    inquiry.Ask(BMessage("KTJL"_code), note);
    house.Server().SendMessage("tFRE"_code);  // the answers to all three
    ASSERT_TRUE(WaitFor([&] { return heard.size() == 3; }));
    EXPECT_EQ(heard[2], "KTJL") << "those of the former two are not heard";

    house.Server().SendMessage("tHLD"_code);
    inquiry.Ask(BMessage("KTJL"_code), note);
    house.Server().SendMessage("tDIE"_code);
    ASSERT_TRUE(WaitFor([&] { return heard.size() == 4; }));
    EXPECT_EQ(heard[3], "nothing");
    inquiry.Ask(BMessage("KTJL"_code), note);
    ASSERT_TRUE(WaitFor([&] { return heard.size() == 5; }));
    EXPECT_EQ(heard[4], "nothing") << "there is no server at all";
}

}  // namespace

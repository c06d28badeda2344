// Notices of the desktop on a bus of the test's own, with a desktop that answers by script.
#include "client/notices/KTNotices.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QProcess>
#include <QStandardPaths>

#include "client/app/ClientCodes.h"
#include "core/protocol/Codes.h"
#include "tests/client/ClientTesting.h"

using namespace client_testing;

namespace {

const QString kService = "org.freedesktop.Notifications";
const QString kPath = "/org/freedesktop/Notifications";

// Shows what it is told to show: nothing, but it remembers.
class Desktop : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown {
        QString summary, body;
        QStringList actions;
        int urgency, timeout;
    };
    std::vector<Shown> shown;

public slots:
    Q_SCRIPTABLE uint Notify(const QString&, uint, const QString&, const QString& summary,
                             const QString& body, const QStringList& actions,
                             const QVariantMap& hints, int timeout) {
        shown.push_back({summary, body, actions, hints["urgency"].toInt(), timeout});
        return static_cast<uint>(shown.size());
    }
};

class Notices : public ::testing::Test {
protected:
    void SetUp() override {
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty())
            GTEST_SKIP() << "needs dbus-daemon";
        daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        ASSERT_TRUE(daemon.waitForReadyRead());
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        desktopBus = QDBusConnection::connectToBus(address, "desktop");
        clientBus = QDBusConnection::connectToBus(address, "client");
        ASSERT_TRUE(desktopBus.registerObject(kPath, &desktop, QDBusConnection::ExportAllSlots));
        notices =
            std::make_unique<KTNotices>([this] { return watched; }, BMessenger(&window), clientBus);
    }
    void TearDown() override {
        notices.reset();
        for (const char* name : {"desktop", "client"})
            QDBusConnection::disconnectFromBus(name);
        daemon.kill();
        daemon.waitForFinished();
    }
    void ShowNotices() { ASSERT_TRUE(desktopBus.registerService(kService)); }
    static BMessage Report(int32_t id, const char* title, core::JobEnd end) {
        return Made("rpIN"_code, {{"report_id", id},
                                  {"title", title},
                                  {"job_type", 1},
                                  {"status", static_cast<int32_t>(end)}});
    }
    bool SeesShown(size_t count) {
        return WaitFor([&] { return desktop.shown.size() == count; });
    }
    void Press(uint id) {
        auto signal = QDBusMessage::createSignal(kPath, kService, "ActionInvoked");
        signal << id << QString("show");
        desktopBus.send(signal);
    }

    QProcess daemon;
    QDBusConnection desktopBus{QString()}, clientBus{QString()};
    Desktop desktop;
    Listener window;
    bool watched = false;
    std::unique_ptr<KTNotices> notices;
};

TEST_F(Notices, TellHowAJobEndedAndOpenItsReport) {
    ShowNotices();
    notices->ReportInserted(Report(7, "Home <b>& all", core::JobEnd::Errors));
    notices->ReportInserted(Report(8, "Mail", core::JobEnd::Good));
    ASSERT_TRUE(SeesShown(2));
    EXPECT_EQ(desktop.shown[0].summary, "Home <b>& all");
    EXPECT_EQ(desktop.shown[0].body,
              "Full Backup: it ended with errors. What is wrong stands in the report.");
    EXPECT_EQ(desktop.shown[0].urgency, 2);
    EXPECT_EQ(desktop.shown[0].timeout, 0) << "stays";
    EXPECT_TRUE(desktop.shown[0].actions.contains("Show Report"));
    EXPECT_EQ(desktop.shown[1].urgency, 0);
    EXPECT_EQ(desktop.shown[1].timeout, -1);
    Press(99);  // another program's
    Press(1);
    ASSERT_TRUE(WaitFor([&] { return !window.heard.empty(); }));
    EXPECT_EQ(window.heard[0].what, client::code::kShowReport);
    EXPECT_EQ(window.heard[0].Get<int32_t>("report_id", 0), 7);
}

TEST_F(Notices, AreNotForWhatTheUserSeesOrDid) {
    ShowNotices();
    watched = true;
    notices->ReportInserted(Report(1, "Seen", core::JobEnd::Errors));
    BMessage overdue = Report(2, "Weekly", core::JobEnd::Good);
    overdue.Remove("status");
    overdue.Add("overdue", true);
    notices->ReportInserted(overdue);
    watched = false;
    notices->ReportInserted(Report(3, "Stopped by hand", core::JobEnd::Aborted));
    BMessage refused = Report(4, "No run", core::JobEnd::Good);
    refused.Remove("status");
    notices->ReportInserted(refused);
    notices->ServerGone(0);
    notices->ServerGone(2);
    ASSERT_TRUE(SeesShown(2));
    EXPECT_EQ(desktop.shown[0].summary, "Weekly");
    EXPECT_EQ(desktop.shown[0].urgency, 2);
    EXPECT_TRUE(desktop.shown[1].actions.isEmpty());
}

TEST_F(Notices, WithNobodyToShowThemNothingBreaks) {
    notices->ReportInserted(Report(1, "Nobody listens", core::JobEnd::Errors));
    KTNotices without([] { return false; }, BMessenger(&window), QDBusConnection(QString()));
    without.ReportInserted(Report(2, "No bus", core::JobEnd::Errors));
    Settle();
    ShowNotices();
    notices->ReportInserted(Report(3, "Somebody", core::JobEnd::Errors));
    EXPECT_TRUE(SeesShown(1));
    EXPECT_EQ(desktop.shown[0].summary, "Somebody");
}

}  // namespace

#include "KTNoticesTest.moc"

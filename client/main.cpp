#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QApplication>
#include <QPalette>
#include <QSocketNotifier>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "client/app/BackupApplication.h"
#include "client/app/Product.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "client/uikit/KTIndicatorStyle.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Codes.h"
#include "kit/support/UniqueFd.h"

namespace {

// Started with the session: it tells what happens to jobs, and shows no window until it is asked
// to.
constexpr QLatin1String kBackground("--background");
constexpr auto kHandOver = std::chrono::seconds(10);

[[noreturn]] void NoDisplay() {
    std::fputs("VelmoraBackup: no display can be opened (DISPLAY, WAYLAND_DISPLAY).\n", stderr);
    std::_Exit(EXIT_FAILURE);
}

// Qt aborts when it finds no display; a clear word and an exit code are better than a core dump.
void WhileStarting(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (type != QtFatalMsg) return;
    std::fprintf(stderr, "%s\n", qPrintable(text));
    NoDisplay();
}

// Said in both places: whoever started it from a desktop sees no terminal.
int CannotStart(const std::string& problem) {
    std::fprintf(stderr, "VelmoraBackup: %s\n", problem.c_str());
    KTAlert(nullptr, "Backup", KTControl::Shown(problem), {"Stop"}, KTAlertRequest::Kind::Stop);
    return EXIT_FAILURE;
}

// The end of the session or a Ctrl+C closes the window as its user would: settings are written.
// Handlers, and not blocked signals, because programs that are started from here (a browser for the
// guide) would inherit the block.
int gEndPipe = -1;

kit::UniqueFd TakeOverEndSignals() {
    std::array<int, 2> ends;
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return {};
    gEndPipe = ends[1];
    struct sigaction action {};
    action.sa_handler = [](int) {
        const int saved = errno;
        [[maybe_unused]] const ssize_t ignored = ::write(gEndPipe, "e", 1);
        errno = saved;
    };
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(number, &action, nullptr);
    return kit::UniqueFd(ends[0]);
}

// Some desktops' dark themes leave the colour of hints to a default that is made for light ones.
void KeepHintsReadable() {
    QPalette palette = QApplication::palette();
    QColor hint = palette.color(QPalette::Text);
    hint.setAlphaF(0.6F);
    palette.setColor(QPalette::PlaceholderText, hint);
    QApplication::setPalette(palette);
}

// The user's copy that runs already comes to the front instead of a second one.
int HandOver(const BackupApplication& application) {
    BMessage answer;
    BMessenger(application.OtherTeam(), BMessenger::kApplication)
        .SendMessage(BMessage(B_REFS_RECEIVED), &answer, kHandOver);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        NoDisplay();
    const kit::UniqueFd endSignals = TakeOverEndSignals();
    qInstallMessageHandler(WhileStarting);
    QApplication qt(argc, argv);
    qInstallMessageHandler(nullptr);

    QApplication::setOrganizationName("Velmora");
    QApplication::setApplicationName(QString::fromLatin1(client::kDesktopFile));
    QApplication::setDesktopFileName(QString::fromLatin1(client::kDesktopFile));
    QApplication::setWindowIcon(KTIcons::Get("velmora-backup"));
    QApplication::setQuitOnLastWindowClosed(false);
    KTIndicatorStyle::Install();
    KeepHintsReadable();

    KTWindowLooper looper;
    BackupApplication::Setup setup;
    setup.background = QApplication::arguments().contains(kBackground);
    const bool background = setup.background;
    BackupApplication application(std::move(setup));
    switch (application.InitCheck()) {
        case BApplication::Start::AlreadyRunning:
            return background ? EXIT_SUCCESS : HandOver(application);
        case BApplication::Start::Failed:
            return CannotStart(application.Problem());
        case BApplication::Start::Ready:
            break;
    }
    QSocketNotifier ended(endSignals.Get(), QSocketNotifier::Read);
    QObject::connect(&ended, &QSocketNotifier::activated, &ended, [&] {
        ended.setEnabled(false);
        application.PostMessage(B_QUIT_REQUESTED);
    });
    application.Run();
    return QApplication::exec();
}

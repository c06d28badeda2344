#include "client/jobqueue/KTJQWindow.h"

#include <QBoxLayout>
#include <QMenuBar>
#include <QPointer>

#include "client/app/ClientCodes.h"
#include "client/job/KTJobTool.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"
#include "kit/app/BLooper.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr QSize kUsualSize(760, 560);

}  // namespace

KTJQWindow::KTJQWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                       uint32_t replyCode, BMessenger target)
    : KTSetWindow(title, parentWindow, settings, replyCode, target),
      fJobId(settings.Get<int32_t>("job_id", 0)) {
    setWindowFlag(Qt::WindowMaximizeButtonHint);
    KeepSize(kUsualSize);
    MakeMenus();
}

void KTJQWindow::MakeMenus() {
    using namespace core;
    auto* bar = new QMenuBar(this);
    const auto menu = [&](int32_t text, const char* name) {
        QMenu* made = bar->addMenu(KTControl::LabelText(text));
        made->setObjectName(QString::fromLatin1(name));
        return made;
    };
    const auto add = [this](QMenu* to, const QString& label, uint32_t code) {
        QAction* action = KTControl::MakeAction(this, label, BMessage(code), this);
        action->setMenuRole(QAction::NoRole);
        to->addAction(action);
        return action;
    };
    const QString dots = QStringLiteral("...");
    QMenu* file = menu(text::kFile, "mnu_file");
    add(file, KTControl::LabelText(text::kLoad) + dots, client::code::kLoadJob)
        ->setShortcut(QKeySequence::Open);
    add(file, KTControl::LabelText(text::kSave) + dots, client::code::kSaveJob)
        ->setShortcut(QKeySequence::Save);
    file->addSeparator();
    add(file, KTControl::LabelText(text::kQuit), B_QUIT_REQUESTED)
        ->setShortcut(QKeySequence::Close);
    QMenu* selection = menu(text::kSelection, "mnu_selection");
    add(selection, KTControl::LabelText(text::kAll), client::code::kSelectAll);
    add(selection, KTControl::LabelText(text::kClear), client::code::kSelectNone);
    layout()->setMenuBar(bar);
}

void KTJQWindow::Embed(KTJobTool* view, const BMessage& job) {
    fView = view;
    auto* room = new QVBoxLayout(BkgView());
    room->setContentsMargins(0, 0, 0, 0);
    room->addWidget(view);
    view->HideStart();
    view->SetPref(job);
}

void KTJQWindow::MessageReceived(BMessage& message) {
    switch (message.what) {
        case client::code::kSelectAll:
        case client::code::kSelectNone:
        case client::code::kLoadJob:
        case client::code::kSaveJob:
            if (fView) fView->MessageReceived(message);
            break;
        case kConfirm: {
            // The tool may have a question; the window may be gone when it is answered.
            QPointer<KTJQWindow> alive(this);
            if (fView && (!fView->ConfirmEdit() || !alive)) return;
            KTSetWindow::MessageReceived(message);
            break;
        }
        default:
            KTSetWindow::MessageReceived(message);
    }
}

void KTJQWindow::Relay(const BMessage& notice) {
    BMessage copy(notice);
    if (fView) fView->MessageReceived(copy);
}

void KTJQWindow::Save(BMessage& settings) {
    if (!fView) return;
    const auto place = settings.Find<BRect>("winpos");
    settings = Result() ? fView->FinishedJob() : fView->Job();
    // A job file that was loaded meanwhile knows nothing of either.
    settings.Set("job_id", fJobId);
    settings.Remove("winpos");
    if (place) settings.Add("winpos", *place);
}

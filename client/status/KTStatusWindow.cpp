#include "client/status/KTStatusWindow.h"

#include <QBoxLayout>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMoveEvent>
#include <array>

#include "client/app/ClientCodes.h"
#include "client/settings/Preferences.h"
#include "client/status/KTSpecialListView.h"
#include "client/status/KTStatusSettingWindow.h"
#include "client/status/KTStatusView.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTGeometry.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kGroup[] = "status";
constexpr char kPosition[] = "statuswinpos";
constexpr uint32_t kRemove = "svrm"_code;
constexpr uint32_t kOpenSettings = "stst"_code;
constexpr uint32_t kSettingsAnswer = "stsq"_code;
constexpr int32_t kUsualDelay = 10;  // seconds
constexpr QSize kUsualSize(460, 300);

}  // namespace

KTStatusWindow::KTStatusWindow(ServerLink* server, Preferences* preferences, QWidget* mainWindow)
    : QWidget(nullptr, Qt::Window),
      fServer(server),
      fPreferences(preferences),
      fMainWindow(mainWindow),
      fSettings(preferences->GetMessageData(kGroup)) {
    WindowLooper()->AddHandler(this);
    setObjectName("win_status");
    setWindowTitle(KTControl::Text(core::text::kRunningJobs));
    resize(kUsualSize);
    fList = new KTSpecialListView("status_listview", this);
    fEmpty = new QLabel(KTControl::Text(core::kMoreNoJobRuns));
    KTControl::Name(fEmpty, "str_nojobs");
    fEmpty->setAlignment(Qt::AlignCenter);
    fEmpty->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(fEmpty);
    layout->addWidget(fList);
    fPopUp = new QMenu(this);
    fPopUp->setObjectName("statuspopup");
    fPopUp->addAction(KTControl::MakeAction(fPopUp,
                                            KTControl::LabelText(core::text::kSettings) + "...",
                                            BMessage(kOpenSettings), this));
    if (fMainWindow) {
        fMainPosition = fMainWindow->pos();
        fMainWindow->installEventFilter(this);
    }
    ShowEmpty();
}

KTStatusWindow::~KTStatusWindow() {
    delete fSettingsWindow;
}

void KTStatusWindow::GetPref(BMessage* settings) const {
    *settings = fSettings;
    if (isVisible()) {
        settings->Set(kPosition, KTGeometry::RelativeTo(this, fMainWindow));
    } else if (!settings->Has(kPosition)) {  // never shown yet: where it would come
        QRect place(QPoint(), size());
        if (fMainWindow) {
            const QRect frame = fMainWindow->frameGeometry();
            place.moveCenter(frame.center() - frame.topLeft());
        }
        settings->Set(kPosition, KTGeometry::ToRect(place));
    }
}

void KTStatusWindow::SetPref(const BMessage& settings) {
    fSettings = settings;
    for (int i = 0; i < fList->CountViews(); ++i)
        ApplyTo(PanelAt(i));
}

void KTStatusWindow::MessageReceived(BMessage& message) {
    static constexpr std::array<KTDispatchEntry<KTStatusWindow>, 5> kTable = {
        {{core::code::kJobStarted, &KTStatusWindow::JobStarted},
         {kRemove, &KTStatusWindow::RemovePanel},
         {client::code::kServerGone, &KTStatusWindow::ServerGone},
         {kOpenSettings, &KTStatusWindow::OpenSettings},
         {kSettingsAnswer, &KTStatusWindow::SettingsAnswered}}};
    if (!KTDispatch<KTStatusWindow>(this, kTable, message)) BHandler::MessageReceived(message);
}

void KTStatusWindow::JobStarted(BMessage& message) {
    const auto id = message.Find<int32_t>("job_id");
    // The same job may be told of twice: when it starts, and when the client has registered.
    KTStatusView* panel = id ? PanelNamed(KTStatusView::NameFor(*id)) : nullptr;
    if (panel && panel->IsFinished()) {
        fList->RemoveViews(fList->IndexOfView(panel), 1);
        panel = nullptr;
    }
    if (!panel) {
        panel = new KTStatusView(message, this, fServer);
        ApplyTo(panel);
        fList->AddView(panel);
        ShowEmpty();
    }
    panel->MessageReceived(message);
}

void KTStatusWindow::RemovePanel(BMessage& message) {
    if (message.IsSourceRemote()) return;
    KTStatusView* panel = PanelNamed(message.Get("name", std::string()));
    if (!panel) return;
    fList->RemoveViews(fList->IndexOfView(panel), 1);
    ShowEmpty();
    if (fList->CountViews() == 0 && fSettings.Get<int32_t>("autoclose", 0) != 0) close();
}

int KTStatusWindow::CountRunning() const {
    int running = 0;
    for (int i = 0; i < fList->CountViews(); ++i)
        running += PanelAt(i)->IsFinished() ? 0 : 1;
    return running;
}

void KTStatusWindow::ServerGone(BMessage&) {
    for (int i = 0; i < fList->CountViews(); ++i)
        PanelAt(i)->ServerGone();
}

void KTStatusWindow::OpenSettings(BMessage&) {
    if (!fSettingsWindow || fSettingsWindow->isHidden()) {
        // The dialog's place is its own; the window's is not its affair.
        fSettingsWindow =
            new KTStatusSettingWindow(this, fSettings, kSettingsAnswer, BMessenger(this));
    }
    fSettingsWindow->show();
    fSettingsWindow->raise();
    fSettingsWindow->activateWindow();
}

void KTStatusWindow::SettingsAnswered(BMessage& message) {
    fSettingsWindow = nullptr;
    if (!message.Get("result", false)) return;
    SetPref(message.Get("settings", BMessage()));
    Store();
}

void KTStatusWindow::Store() {
    BMessage settings;
    GetPref(&settings);
    fPreferences->Set(kGroup, settings);
}

void KTStatusWindow::ApplyTo(KTStatusView* panel) const {
    panel->SetTimeout(fSettings.Get<int32_t>("removedelay", kUsualDelay));
    panel->EnableTimeout(fSettings.Get<int32_t>("removeitems", 0) != 0);
}

KTStatusView* KTStatusWindow::PanelAt(int index) const {
    return static_cast<KTStatusView*>(fList->ViewAt(index));
}

KTStatusView* KTStatusWindow::PanelNamed(const std::string& name) const {
    for (int i = 0; i < fList->CountViews(); ++i)
        if (PanelAt(i)->objectName().toStdString() == name) return PanelAt(i);
    return nullptr;
}

void KTStatusWindow::ShowEmpty() {
    const bool empty = fList->CountViews() == 0;
    fEmpty->setVisible(empty);
    fList->setVisible(!empty);
}

void KTStatusWindow::showEvent(QShowEvent* event) {
    if (!std::exchange(fPlaced, true)) {
        if (const auto place = fSettings.Find<BRect>(kPosition)) {
            const QSize size = KTGeometry::FromRect(*place).size();
            if (size.width() > 1 && size.height() > 1) resize(size);
            KTGeometry::PlaceRelativeTo(this, fMainWindow, *place);
        } else if (fMainWindow)
            KTGeometry::PlaceOver(this, fMainWindow);
    }
    QWidget::showEvent(event);
}

void KTStatusWindow::hideEvent(QHideEvent* event) {
    fSettings.Set(kPosition, KTGeometry::RelativeTo(this, fMainWindow));
    QWidget::hideEvent(event);
}

void KTStatusWindow::contextMenuEvent(QContextMenuEvent* event) {
    fPopUp->popup(event->globalPos());
    event->accept();
}

void KTStatusWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        close();
    else
        QWidget::keyPressEvent(event);
}

bool KTStatusWindow::eventFilter(QObject* object, QEvent* event) {
    if (object == fMainWindow && event->type() == QEvent::Move) {
        const QPoint now = fMainWindow->pos();
        const QPoint moved = now - std::exchange(fMainPosition, now);
        if (fPlaced && isVisible() && fSettings.Get<int32_t>("followmain", 0) != 0)
            move(pos() + moved);
    }
    return QWidget::eventFilter(object, event);
}

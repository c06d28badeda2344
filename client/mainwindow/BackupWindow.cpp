#include "client/mainwindow/BackupWindow.h"

#include <QActionGroup>
#include <QBoxLayout>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDragEnterEvent>
#include <QFile>
#include <QMenuBar>
#include <QMimeData>
#include <QShortcut>
#include <QStackedWidget>
#include <QUrl>
#include <algorithm>

#include "client/app/About.h"
#include "client/app/ClientCodes.h"
#include "client/app/Languages.h"
#include "client/app/Product.h"
#include "client/app/ServerLink.h"
#include "client/mainwindow/KTLanguageMenu.h"
#include "client/mainwindow/KTStartView.h"
#include "client/mainwindow/KTToolBar.h"
#include "client/notices/KTNotices.h"
#include "client/settings/Preferences.h"
#include "client/status/KTStatusWindow.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTGeometry.h"
#include "client/uikit/KTIcons.h"
#include "client/uikit/KTRequestWindow.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/locale/KTLocale.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

using namespace client::code;
namespace text = core::text;

constexpr char kLanguageKey[] = "KT_LANGUAGE";
constexpr char kAutoprefsKey[] = "KT_AUTOPREFS";
constexpr char kFrameKey[] = "KT_MAINWINPOS";
constexpr char kLastToolKey[] = "lasttool";
constexpr char kLastViewKey[] = "lastview";
constexpr char kToolBarKey[] = "toolbar";
constexpr int8_t kLastIndex = 6;

constexpr const char* kJobLists[] = {"jobqueue", "backup"};
constexpr const char* kCatalogues[] = {"restore", "compare", "backup", "jobqueue"};
constexpr const char* kScans[] = {"restore", "jobqueue"};
constexpr const char* kReports[] = {"report"};

}  // namespace

BackupWindow::BackupWindow(KTToolContext context, const BRect& frame)
    : fContext(std::move(context)) {
    WindowLooper()->AddHandler(this);
    setObjectName("BackupWindow");
    setWindowTitle(QString::fromLatin1(client::kProductName));
    setContextMenuPolicy(Qt::PreventContextMenu);
    setAcceptDrops(true);

    auto* central = new QWidget(this);
    fToolBar = new KTToolBar(central);
    fWorkArea = new QStackedWidget(central);
    fWorkArea->setObjectName("workarea");
    fWorkArea->addWidget(new QWidget(fWorkArea));  // empty until a view is chosen
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(fToolBar);
    layout->addWidget(fWorkArea, 1);
    setCentralWidget(central);

    fToolMarks = new QActionGroup(this);
    BuildFileMenu();
    BuildToolsMenu();
    BuildPreferencesMenu();
    BuildToolBar();
    // Alt and F10 both reach the menus; Qt knows only the first.
    auto* reach = new QShortcut(QKeySequence(Qt::Key_F10), this);
    connect(reach, &QShortcut::activated, this,
            [this] { menuBar()->setActiveAction(menuBar()->actions().constFirst()); });
    setGeometry(KTGeometry::FromRect(frame));
    fStatus = std::make_unique<KTStatusWindow>(fContext.server, fContext.preferences, this);
    fNotices = std::make_unique<KTNotices>([this] { return fStatus->isActiveWindow(); },
                                           BMessenger(static_cast<BHandler*>(this)));
    OpenView();
}

BackupWindow::~BackupWindow() = default;

// --- building -----------------------------------------------------------------------------------

QMenu* BackupWindow::AddMenu(QWidget* parent, int32_t textId, const char* name) {
    auto* menu = new QMenu(KTControl::LabelText(textId), parent);
    menu->setObjectName(QString::fromLatin1(name));
    if (auto* bar = qobject_cast<QMenuBar*>(parent))
        bar->addMenu(menu);
    else
        qobject_cast<QMenu*>(parent)->addMenu(menu);
    return menu;
}

QAction* BackupWindow::AddAction(QMenu* menu, int32_t textId, uint32_t code) {
    QAction* action =
        KTControl::MakeAction(this, KTControl::LabelText(textId), BMessage(code), this);
    menu->addAction(action);
    return action;
}

QAction* BackupWindow::ActionOf(uint32_t code) const {
    return findChild<QAction*>(QString::fromStdString(CodeText(code)));
}

void BackupWindow::SetMenuFlag(uint32_t code, bool set) {
    QAction* action = ActionOf(code);
    action->setCheckable(true);
    action->setChecked(set);
}

void BackupWindow::BuildFileMenu() {
    QMenu* file = AddMenu(menuBar(), text::kFile, "mnu_file");
    AddAction(file, text::kAbout, B_ABOUT_REQUESTED)->setMenuRole(QAction::NoRole);
    AddAction(file, text::kHelp, kHelp)->setShortcut(QKeySequence::HelpContents);
    file->addSeparator();
    fJobMenu = AddMenu(file, text::kJobSettings, "mnu_jobsettings");
    AddAction(fJobMenu, text::kLoad, kLoadJob)->setShortcut(QKeySequence::Open);
    AddAction(fJobMenu, text::kSave, kSaveJob)->setShortcut(QKeySequence::Save);
    fSelectionMenu = AddMenu(file, text::kSelection, "mnu_selection");
    AddAction(fSelectionMenu, text::kAll, kSelectAll);
    AddAction(fSelectionMenu, text::kClear, kSelectNone);
    file->addSeparator();
    QAction* quit = AddAction(file, text::kQuit, B_QUIT_REQUESTED);
    quit->setMenuRole(QAction::NoRole);
    quit->setShortcut(QKeySequence::Quit);
}

void BackupWindow::BuildToolsMenu() {
    QMenu* tools = AddMenu(menuBar(), text::kTools, "mnu_tools");
    int number = 0;
    for (const client::Tool& tool : client::Tools()) {
        QAction* action = AddAction(tools, tool.textId, tool.code);
        action->setCheckable(true);
        action->setIcon(KTIcons::Get(tool.icon));
        action->setIconVisibleInMenu(false);  // the mark stands there
        action->setShortcut(QKeySequence(Qt::CTRL | static_cast<Qt::Key>(Qt::Key_1 + number++)));
        fToolMarks->addAction(action);
    }
}

void BackupWindow::BuildPreferencesMenu() {
    Preferences* store = fContext.preferences;
    QMenu* preferences = AddMenu(menuBar(), text::kPreferences, "mnu_preferences");
    QAction* status = AddAction(preferences, text::kRunningJobsWindow, kShowStatus);
    status->setIcon(KTIcons::Get("status"));
    status->setIconVisibleInMenu(false);
    status->setIconText(KTControl::LabelText(text::kRunningJobs));
    AddAction(preferences, text::kRestartWithLastTool, kRestartWithLastTool);
    SetMenuFlag(kRestartWithLastTool, store->GetInt8(kLastToolKey, 0) != 0);

    fLanguageMenu = new KTLanguageMenu(KTControl::LabelText(text::kLanguage), this, preferences);
    fLanguageMenu->setObjectName("mnu_language");
    fLanguageMenu->BuildLanguageMenu(LanguageFolders(),
                                     store->GetString(kLanguageKey, client::kDefaultLanguage));
    preferences->addMenu(fLanguageMenu);

    QMenu* modes = AddMenu(preferences, text::kToolbar, "mnu_toolbar");
    auto* marks = new QActionGroup(this);
    constexpr std::pair<int32_t, uint32_t> kModes[] = {{text::kNone, kToolBarNone},
                                                       {text::kIconOnly, kToolBarIcons},
                                                       {text::kTextOnly, kToolBarTexts},
                                                       {text::kIconAndText, kToolBarBeside},
                                                       {text::kIconOverText, kToolBarAbove}};
    for (const auto& [textId, code] : kModes) {
        QAction* mode = AddAction(modes, textId, code);
        mode->setCheckable(true);
        marks->addAction(mode);
    }

    preferences->addSeparator();
    AddAction(preferences, text::kAutoprefs, kAutoprefs);
    SetMenuFlag(kAutoprefs, store->GetInt8(kAutoprefsKey, 0) != 0);
    AddAction(preferences, text::kSave, kSavePrefs);
}

void BackupWindow::BuildToolBar() {
    for (const client::Tool& tool : client::Tools()) {
        if (tool.code == kJobQueueTool) fToolBar->BeginGroup();
        fToolBar->AddButton(ActionOf(tool.code));
    }
    fToolBar->AddButton(ActionOf(kShowStatus));
    const auto stored = static_cast<uint32_t>(
        fContext.preferences->GetInt32(kToolBarKey, static_cast<int32_t>(kToolBarBeside)));
    SetToolBar(KTToolBar::IsMode(stored) ? stored : kToolBarBeside);
}

std::vector<std::string> BackupWindow::LanguageFolders() const {
    return client::LanguageFolders(fContext.programFolder, fContext.userFolder);
}

// --- messages -----------------------------------------------------------------------------------

std::span<const BackupWindow::Command> BackupWindow::Commands() {
    using namespace core::code;
    using W = BackupWindow;
    static constexpr Command kCommands[] = {
        {B_ABOUT_REQUESTED, &W::ShowAbout},
        {kHelp, &W::ShowHelp},
        {B_QUIT_REQUESTED, &W::Close},
        {kSelectAll, &W::ToCurrentTool},
        {kSelectNone, &W::ToCurrentTool},
        {kLoadJob, &W::ToCurrentTool},
        {kSaveJob, &W::ToCurrentTool},
        {kShowStatus, &W::ShowStatus},
        {kRestartWithLastTool, &W::ToggleLastTool},
        {kAutoprefs, &W::ToggleAutoprefs},
        {kSavePrefs, &W::SavePrefs},
        {kLanguage, &W::ChooseLanguage},
        {kToolBarNone, &W::DoToolBar},
        {kToolBarIcons, &W::DoToolBar},
        {kToolBarTexts, &W::DoToolBar},
        {kToolBarBeside, &W::DoToolBar},
        {kToolBarAbove, &W::DoToolBar},
        {kJobInserted, &W::JobNotice},
        {kJobRemoved, &W::JobNotice},
        {kJobChanged, &W::JobNotice},
        {kJobStarted, &W::JobStarted},
        {kCatalogue, &W::CatalogueNotice},
        {kBackupRemoved, &W::CatalogueNotice},
        {kScanResult, &W::ScanResult},
        {kPasswordResult, &W::CatalogueNotice},
        {kReportInserted, &W::ReportNotice},
        {kReportRemoved, &W::ReportNotice},
        {kShowReport, &W::ShowReport},
        {kServerGone, &W::ServerNotice},
        {kServerBack, &W::ServerNotice},
        {kServerMissing, &W::ServerMissing},
        {kRaise, &W::Raise},
    };
    return kCommands;
}

void BackupWindow::MessageReceived(BMessage& message) {
    if (client::ToolOfCode(message.what)) return SwitchTool(message);
    const auto found = std::ranges::find(Commands(), message.what, &Command::code);
    if (found != Commands().end())
        (this->*found->run)(message);
    else
        BHandler::MessageReceived(message);
}

void BackupWindow::ToCurrentTool(BMessage& message) {
    if (fCurrent && fCurrent->HasJob()) fCurrent->MessageReceived(message);
}

void BackupWindow::ToViews(BMessage& message, std::span<const char* const> groups) {
    for (const char* group : groups) {
        if (KTToolView* view = View(group)) {
            BMessage copy(message);
            view->MessageReceived(copy);
        }
    }
}

void BackupWindow::JobNotice(BMessage& message) {
    ToViews(message, kJobLists);
}

void BackupWindow::CatalogueNotice(BMessage& message) {
    ToViews(message, kCatalogues);
}

void BackupWindow::ScanResult(BMessage& message) {
    ToViews(message, kScans);
}

void BackupWindow::ReportNotice(BMessage& message) {
    ToViews(message, kReports);
    if (message.what == core::code::kReportInserted) fNotices->ReportInserted(message);
}

void BackupWindow::ShowReport(BMessage& message) {
    ShowTool(*client::ToolOfCode(kReportTool), nullptr);
    fContext.preferences->Set(kLastViewKey, client::ToolOfCode(kReportTool)->index);
    ReportNotice(message);
}

void BackupWindow::ServerNotice(BMessage& message) {
    for (const client::Tool& tool : client::Tools())
        ToViews(message, {&tool.group, 1});
    if (message.what == kServerGone) fNotices->ServerGone(fStatus->CountRunning());
    BMessage copy(message);
    fStatus->MessageReceived(copy);
}

void BackupWindow::JobStarted(BMessage& message) {
    if (fStatus->OpensByItself() && !fStatus->isVisible() && isVisible()) {
        // Whoever is typing goes on typing.
        fStatus->setAttribute(Qt::WA_ShowWithoutActivating);
        fStatus->show();
        fStatus->setAttribute(Qt::WA_ShowWithoutActivating, false);
    }
    fStatus->MessageReceived(message);
}

// --- tools --------------------------------------------------------------------------------------

KTToolView* BackupWindow::View(const char* group) const {
    for (const auto& [index, view] : fViews) {
        if (view->objectName() == QLatin1String(group)) return view;
    }
    return nullptr;
}

void BackupWindow::OpenView() {
    fJobMenu->setEnabled(false);
    fSelectionMenu->setEnabled(false);
    const int8_t last = fContext.preferences->GetInt8(kLastViewKey, 0);
    const bool restart = fContext.preferences->GetInt8(kLastToolKey, 0) != 0;
    if (!restart || last <= 0)
        ShowStartView();
    else if (last <= kLastIndex)
        WindowLooper()->PostMessage(client::ToolOfIndex(last)->code, this);
}

void BackupWindow::ShowStartView() {
    auto* start = new KTStartView(this, fWorkArea);
    fWorkArea->addWidget(start);
    fWorkArea->setCurrentWidget(start);
}

void BackupWindow::SwitchTool(BMessage& message) {
    const client::Tool& tool = *client::ToolOfCode(message.what);
    const auto file = message.Find<entry_ref>("ref");
    ShowTool(tool, file ? &*file : nullptr);
    fContext.preferences->Set(kLastViewKey, tool.index);
}

void BackupWindow::ShowTool(const client::Tool& tool, const entry_ref* file) {
    KTToolView*& view = fViews[tool.index];
    if (!view) {
        view = tool.make(tool, fContext, fWorkArea);
        fWorkArea->addWidget(view);
        if (!file) view->SetPref(fContext.preferences->GetMessageData(tool.group));
    }
    fWorkArea->setCurrentWidget(view);
    fCurrent = view;
    fJobMenu->setEnabled(view->HasJob());
    fSelectionMenu->setEnabled(view->HasJob());
    SetMenuFlag(tool.code, true);
    if (file) view->SetPref(*file);
}

KTRequestWindow* BackupWindow::CreateRequest(const QString& title, const QString& text,
                                             const QStringList& buttons, const BMessage& reply,
                                             BMessenger target) {
    auto* request = new KTRequestWindow(title, text, this, target, reply, buttons);
    request->show();
    return request;
}

// --- commands -----------------------------------------------------------------------------------

void BackupWindow::ShowAbout(BMessage&) {
    client::ShowAbout(this);
}

void BackupWindow::ShowHelp(BMessage&) {
    const bool german = std::string_view(KTLocale::GetInstance()->Language()) == "Deutsch";
    const std::string path = fContext.programFolder + "/Documentation/Backup-Guide-" +
                             (german ? "Deutsch" : "English") + ".html";
    const QString file = QFile::decodeName(path.c_str());
    if (QFile::exists(file) && QDesktopServices::openUrl(QUrl::fromLocalFile(file))) return;
    KTAlert(this, "Backup",
            KTControl::Text(text::kHelpNotLoaded).replace("%s", KTControl::Shown(path)),
            {KTControl::Text(text::kOk)}, KTAlertRequest::Kind::Warning);
}

void BackupWindow::ShowStatus(BMessage&) {
    fStatus->setWindowState(fStatus->windowState() & ~Qt::WindowMinimized);
    fStatus->show();
    fStatus->raise();
    fStatus->activateWindow();
}

void BackupWindow::ToggleLastTool(BMessage&) {
    const bool set = fContext.preferences->GetInt8(kLastToolKey, 0) == 0;
    fContext.preferences->Set(kLastToolKey, static_cast<int8_t>(set));
    SetMenuFlag(kRestartWithLastTool, set);
}

void BackupWindow::ToggleAutoprefs(BMessage&) {
    const bool set = fContext.preferences->GetInt8(kAutoprefsKey, 0) == 0;
    fContext.preferences->Set(kAutoprefsKey, static_cast<int8_t>(set));
    SetMenuFlag(kAutoprefs, set);
}

void BackupWindow::ChooseLanguage(BMessage& message) {
    const auto language = message.Find<std::string>("language");
    if (!language) return;
    client::UseLanguage(LanguageFolders(), *language);
    fContext.preferences->Set(kLanguageKey, language->c_str());
    fLanguageMenu->UpdateLocaleMenu(*language);
    KTAlert(this, "Locale", KTControl::Text(text::kLanguageChangeNote),
            {KTControl::Text(text::kContinue)});
}

void BackupWindow::DoToolBar(BMessage& message) {
    fContext.preferences->Set(kToolBarKey, static_cast<int32_t>(message.what));
    SetToolBar(message.what);
}

void BackupWindow::SetToolBar(uint32_t mode) {
    fToolBar->SetMode(mode);
    SetMenuFlag(mode, true);
}

void BackupWindow::ServerMissing(BMessage&) {
    KTAlert(this, "Backup", client::kNoServerText, {"Stop"}, KTAlertRequest::Kind::Stop);
}

void BackupWindow::Raise(BMessage&) {
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void BackupWindow::Close(BMessage&) {
    close();
}

// --- settings and the end -----------------------------------------------------------------------

void BackupWindow::StoreToolSettings() {
    for (const client::Tool& tool : client::Tools()) {
        const auto found = fViews.find(tool.index);
        if (found == fViews.end()) continue;
        BMessage settings;
        found->second->GetPref(&settings);
        fContext.preferences->Set(tool.group, settings);
    }
}

void BackupWindow::StoreWindowPlaces() {
    const QRect frame = isMaximized() || isFullScreen() ? normalGeometry() : geometry();
    fContext.preferences->Set(kFrameKey, KTGeometry::ToRect(frame));
    BMessage status;
    fStatus->GetPref(&status);
    fContext.preferences->Set("status", status);
}

void BackupWindow::SavePrefs(BMessage&) {
    StoreToolSettings();
    fContext.preferences->Save();
}

void BackupWindow::StoreAll() {
    StoreWindowPlaces();
    if (fContext.preferences->GetInt8(kAutoprefsKey, 0) != 0) StoreToolSettings();
    fContext.preferences->Save();
}

void BackupWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    if (fBackground && event->spontaneous()) {
        StoreAll();
        fStatus->hide();
        return;
    }
    if (!std::exchange(fEnded, true)) StoreAll();
    fStatus->hide();
    // Said again when asked again: before the event loop runs, Qt forgets it.
    QCoreApplication::exit(0);
}

// Files dropped on the window open as if they were handed to the program.
void BackupWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void BackupWindow::dropEvent(QDropEvent* event) {
    BMessage refs(B_REFS_RECEIVED);
    for (const QUrl& url : event->mimeData()->urls()) {
        if (url.isLocalFile())
            refs.Add("refs", entry_ref{QFile::encodeName(url.toLocalFile()).toStdString()});
    }
    if (!refs.IsEmpty()) fContext.server->PostApplication(std::move(refs));
}

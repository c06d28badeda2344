#include "client/backup/KTBackupView.h"

#include <QComboBox>
#include <QContextMenuEvent>
#include <QGridLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/jobqueue/KTJobListView.h"
#include "client/selection/KTSourceSelectionView.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTRequestWindow.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"

namespace {

constexpr char kSchedulerKey[] = "win_scheduler";
constexpr uint32_t kSchedulerMenu = "bsch"_code;
constexpr uint32_t kSelectionChanged = "bjch"_code;
enum SchedulerItem { kAtOnce, kScheduled };

}  // namespace

KTBackupView::KTBackupView(KTToolContext context, QWidget* parent, const char* name,
                           std::shared_ptr<kit::MountSource> mounts)
    : KTBackupTool(name, std::move(context), parent, mounts) {
    fPopUp = MakePopUpMenu();
    MakeControls(std::move(mounts));
    InitControls();
}

KTBackupView::~KTBackupView() = default;

void KTBackupView::MakeControls(std::shared_ptr<kit::MountSource> mounts) {
    using namespace core;
    const QString settings = KTControl::LabelText(text::kSettings) + "...";
    auto* grid = new QGridLayout;

    auto* modeLabel = new QLabel(KTControl::LabelText(kMoreBackupMode));
    fMode = new QComboBox;
    KTControl::Name(fMode, "mnu_backupmode", KTControl::Text(kMoreBackupMode));
    for (const int32_t mode : {text::kFull, text::kIncremental, text::kDifferential})
        fMode->addItem(KTControl::Text(mode));
    KTControl::Bind(fMode, "mode"_code, this);
    modeLabel->setBuddy(fMode);

    fSources = new KTSourceSelectionView(Context().preferences, this, std::move(mounts));
    fSources->SetPopUpMenu(fPopUp);
    fBaseJobs = new KTJobListView(KTJobListView::Show::Bases, KTColumnListView::ListType::Single,
                                  Context().server, Context().preferences, this);
    fBaseJobs->SetPopUpMenu(fPopUp);
    connect(fBaseJobs, &KTJobListView::Fetched, this, [this] {
        if (fBaseJobs->CurrentSelection() == kNoRow) InitJobListSelection();
    });
    fWhat = new QStackedWidget;
    fWhat->addWidget(fSources);
    fWhat->addWidget(fBaseJobs);

    MakeTargets(grid, 0);
    auto* schedulerLabel = new QLabel(KTControl::LabelText(text::kScheduler));
    fScheduler = new QComboBox;
    KTControl::Name(fScheduler, "mnu_bakscheduler", KTControl::Text(text::kScheduler));
    fScheduler->addItem(KTControl::Text(text::kNone));
    fScheduler->addItem(KTControl::Text(text::kScheduler));
    KTControl::Bind(fScheduler, kSchedulerMenu, this);
    schedulerLabel->setBuddy(fScheduler);
    auto* schedulerButton = new QPushButton(settings);
    KTControl::Name(schedulerButton, "btn_bakscheduler",
                    KTControl::Text(text::kScheduler) + ": " + KTControl::Text(text::kSettings));
    KTControl::Bind(schedulerButton, BMessage("sset"_code), this);
    fSchedulerText = new KTElidedLabel;
    KTControl::Name(fSchedulerText, "str_bakscheduler");
    constexpr int kRow = KTBackupTargets::kRows;
    grid->addWidget(schedulerLabel, kRow, KTBackupTargets::kLabel);
    grid->addWidget(fScheduler, kRow, KTBackupTargets::kMenu);
    grid->addWidget(schedulerButton, kRow, KTBackupTargets::kButton);
    grid->addWidget(fSchedulerText, kRow, KTBackupTargets::kWords);

    fHint = new QLabel;
    KTControl::Name(fHint, "str_hint");
    fHint->setTextFormat(Qt::PlainText);
    fHint->setWordWrap(true);
    fStart = new QPushButton(KTControl::LabelText(text::kStartBackup) + "...");
    KTControl::Name(fStart, "btn_start");
    KTControl::Bind(fStart, BMessage("sbak"_code), this);

    auto* top = new QHBoxLayout;
    top->addWidget(modeLabel);
    top->addWidget(fMode);
    top->addWidget(fHint, 1);
    auto* bottom = new QHBoxLayout;
    bottom->addStretch(1);
    bottom->addWidget(fStart);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(fWhat, 1);
    layout->addLayout(grid);
    layout->addLayout(bottom);
    QWidget* before = fMode;
    for (QWidget* next : std::initializer_list<QWidget*>{
             fSources, fBaseJobs, Targets().DestinationMenu(), Targets().DestinationButton(),
             Targets().PackerMenu(), Targets().PackerButton(), fScheduler, schedulerButton, fStart})
        setTabOrder(std::exchange(before, next), next);
}

QMenu* KTBackupView::MakePopUpMenu() {
    auto* menu = new QMenu(this);
    menu->setObjectName("backuppopup");
    const auto add = [this, menu](const QString& text, uint32_t code) {
        menu->addAction(KTControl::MakeAction(menu, text, BMessage(code), this));
    };
    add(KTControl::LabelText(core::text::kSelectAll), "sall"_code);
    add(KTControl::LabelText(core::text::kClearAll), "sclr"_code);
    add(KTControl::LabelText(core::text::kStartBackup) + "...", "sbak"_code);
    return menu;
}

void KTBackupView::HideStart() {
    fStart->hide();
    if (auto* start = fPopUp->findChild<QAction*>("sbak")) start->setVisible(false);
}

void KTBackupView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTBackupView>;
    static constexpr Entry kTable[] = {
        {"mode"_code, &KTBackupView::ModeChosen},
        {"sall"_code, &KTBackupView::SelectAll},
        {"sclr"_code, &KTBackupView::ClearAll},
        {kSchedulerMenu, &KTBackupView::SchedulerChosen},
        {"sset"_code, &KTBackupView::OpenScheduler},
        {"swqt"_code, &KTBackupView::SchedulerAnswered},
        {core::code::kJobInserted, &KTBackupView::JobsChanged},
        {core::code::kJobRemoved, &KTBackupView::JobsChanged},
        {core::code::kJobChanged, &KTBackupView::JobsChanged},
        {core::code::kCatalogue, &KTBackupView::JobsChanged},
        {core::code::kBackupRemoved, &KTBackupView::JobsChanged},
        {client::code::kServerBack, &KTBackupView::JobsChanged},
    };
    if (!KTDispatch<KTBackupView>(this, kTable, message)) KTBackupTool::MessageReceived(message);
}

QString KTBackupView::AlertTitle() const {
    return KTControl::Text(core::text::kBackup);
}

void KTBackupView::InitControls() {
    InitBackupMode();
    SetBackupModeView();
    InitSelection();
    InitJobListSelection();
    Targets().InitDestination();
    Targets().InitPacker();
    InitScheduler();
}

// --- mode ----------------------------------------------------------------------------------------

void KTBackupView::InitBackupMode() {
    fMode->setCurrentIndex(KTBackupJob::MenuIndexOf(fJob.Type()));
}

void KTBackupView::SaveBackupMode() {
    fJob.SetType(KTBackupJob::TypeOfMenuIndex(fMode->currentIndex()));
}

void KTBackupView::SetBackupModeView() {
    fWhat->setCurrentWidget(fJob.IsFull() ? static_cast<QWidget*>(fSources) : fBaseJobs);
    if (!fJob.IsFull() && !fBaseJobs->IsFetched()) fBaseJobs->GetJobListFromServer();
    ShowHint();
}

void KTBackupView::ModeChosen(BMessage&) {
    SaveBackupMode();
    SetBackupModeView();
}

void KTBackupView::ShowHint() {
    QString hint;
    if (!fJob.IsFull())
        hint = KTControl::Text(core::kMoreChooseBase);
    else if (!fBootName.empty())
        hint = KTControl::Text(core::kMoreVarLeftOut).replace("%s", KTControl::Shown(fBootName));
    fHint->setText(hint);
}

void KTBackupView::BootVolumeKnown(const std::string& name) {
    fBootName = name;
    ShowHint();
}

// --- what is backed up ---------------------------------------------------------------------------

void KTBackupView::InitSelection() {
    fSources->MultiSelectAll(false);
    fSources->SetSelection(fJob.Selection(), true);
}

void KTBackupView::SaveSelection() {
    BMessage selection;
    fSources->GetSelection(&selection);
    fJob.SetSelection(selection);
}

void KTBackupView::ShowSelection(const BMessage&) {
    InitSelection();
}

void KTBackupView::SaveSources() {
    SaveSelection();
    SaveJobListSelection();
}

void KTBackupView::SelectAll(BMessage&) {
    if (!fJob.IsFull()) return;
    fSources->MultiSelectAll(true);
    BMessage selection;
    fSources->GetSelection(&selection);
    fSources->SetSelection(selection, false);
    SaveSelection();
}

void KTBackupView::ClearAll(BMessage&) {
    if (fJob.IsFull()) {
        fSources->MultiSelectAll(false);
        SaveSelection();
    } else {
        fBaseJobs->Select(kNoRow);
        SaveJobListSelection();
    }
}

// --- the base ------------------------------------------------------------------------------------

void KTBackupView::InitJobListSelection() {
    const int32_t base = fJob.BaseId();
    fBaseJobs->Select(base == 0 ? kNoRow : fBaseJobs->RowOfJob(base));
}

void KTBackupView::SaveJobListSelection() {
    // A list that was never filled says nothing about the base that the job has.
    if (!fBaseJobs->IsFetched()) return;
    const KTRow row = fBaseJobs->CurrentSelection();
    fJob.SetBase(row == kNoRow ? 0 : fBaseJobs->JobId(row));
}

std::string KTBackupView::BaseTitle() const {
    const KTRow row = fBaseJobs->CurrentSelection();
    return row == kNoRow ? std::string() : fBaseJobs->JobTitle(row);
}

void KTBackupView::JobsChanged(BMessage& message) {
    fBaseJobs->MessageReceived(message);
}

void KTBackupView::showEvent(QShowEvent* event) {
    KTBackupTool::showEvent(event);
    if (!fJob.IsFull() && !fBaseJobs->IsFetched()) fBaseJobs->GetJobListFromServer();
}

// --- schedule ------------------------------------------------------------------------------------

void KTBackupView::InitScheduler() {
    const uint32_t time = fJob.StartTime();
    fScheduler->setCurrentIndex(time != 0 ? kScheduled : kAtOnce);
    fSchedulerText->setText(time == 0 ? QString()
                                      : KTControl::Text(core::text::kStartJobAt) +
                                            QString::fromStdString(core::DateText(time)));
}

void KTBackupView::SaveScheduler() {
    if (fScheduler->currentIndex() == kAtOnce) fJob.ClearSchedule();
}

void KTBackupView::SchedulerChosen(BMessage& message) {
    SaveScheduler();
    InitScheduler();
    if (message.Get<int32_t>("index", kAtOnce) == kScheduled) OpenScheduler(message);
}

void KTBackupView::OpenScheduler(BMessage&) {
    if (RaiseIfOpen(kSchedulerKey)) return;
    auto* notice = new KTRequestWindow(
        KTControl::Text(core::text::kScheduler), KTControl::Text(core::kMoreSchedulerLater),
        window(), BMessenger(), BMessage(), {KTControl::Text(core::text::kOk)});
    Remember(kSchedulerKey, notice);
    notice->show();
    notice->raise();
    notice->activateWindow();
}

void KTBackupView::SchedulerAnswered(BMessage& message) {
    Forget(kSchedulerKey);
    if (!message.Get("result", false)) return;
    fJob.SetSchedule(message.Get("settings", BMessage()));
    InitScheduler();
}

// --- starting ------------------------------------------------------------------------------------

bool KTBackupView::CheckStart() {
    const bool chosen =
        fJob.IsFull() ? fSources->HasSelection() : fBaseJobs->CurrentSelection() != kNoRow;
    if (!chosen) {
        Alert(fJob.IsFull() ? core::text::kNothingSelectedToBackUp
                            : core::text::kNoBaseJobSelected);
        return false;
    }
    fJob.IsFull() ? SaveSelection() : SaveJobListSelection();
    fJob.KeepWhatTheTypeUses();
    if (!fJob.IsFull() && Targets().IsOverwrite()) Targets().SaveDestination();
    if (!Targets().HasMedium()) {
        Alert(core::text::kNoDestination);
        return false;
    }
    return true;
}

void KTBackupView::BeforeSending() {
    fJob.IsFull() ? SaveSelection() : SaveJobListSelection();
    SaveScheduler();
    InitScheduler();
}

void KTBackupView::contextMenuEvent(QContextMenuEvent* event) {
    fPopUp->popup(event->globalPos());
    event->accept();
}

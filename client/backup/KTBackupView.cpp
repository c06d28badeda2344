#include "client/backup/KTBackupView.h"

#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/jobqueue/KTJobListView.h"
#include "client/selection/KTSourceSelectionView.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kSelectionChanged = "bjch"_code;

}  // namespace

KTBackupView::KTBackupView(KTToolContext context, QWidget* parent, const char* name,
                           std::shared_ptr<kit::MountSource> mounts)
    : KTBackupTool(name, std::move(context), parent, mounts) {
    MakeControls(std::move(mounts));
    InitControls();
}

KTBackupView::~KTBackupView() = default;

void KTBackupView::MakeControls(std::shared_ptr<kit::MountSource> mounts) {
    using namespace core;
    auto* grid = new QGridLayout;
    QMenu* popUp = MakePopUpMenu(KTControl::LabelText(text::kStartBackup) + "...");

    auto* modeLabel = new QLabel(KTControl::LabelText(kMoreBackupMode));
    fMode = new QComboBox;
    KTControl::Name(fMode, "mnu_backupmode", KTControl::Text(kMoreBackupMode));
    for (const int32_t mode : {text::kFull, text::kIncremental, text::kDifferential})
        fMode->addItem(KTControl::Text(mode));
    KTControl::Bind(fMode, "mode"_code, this);
    modeLabel->setBuddy(fMode);

    fSources = new KTSourceSelectionView(Context().preferences, this, std::move(mounts));
    fSources->SetPopUpMenu(popUp);
    fBaseJobs = new KTJobListView(KTJobListView::Show::Bases, KTColumnListView::ListType::Single,
                                  Context().server, Context().preferences, this);
    fBaseJobs->SetPopUpMenu(popUp);
    connect(fBaseJobs, &KTJobListView::Fetched, this, [this] {
        if (fBaseJobs->CurrentSelection() == kNoRow) InitJobListSelection();
    });
    fWhat = new QStackedWidget;
    fWhat->addWidget(fSources);
    fWhat->addWidget(fBaseJobs);

    MakeTargets(grid, 0);
    auto* schedulerLabel = new QLabel(KTControl::LabelText(text::kScheduler));
    const ScheduleControls schedule =
        MakeSchedule({"mnu_bakscheduler", "btn_bakscheduler", "str_bakscheduler", "sset"_code, {}});
    schedulerLabel->setBuddy(schedule.menu);
    constexpr int kRow = KTBackupTargets::kRows;
    grid->addWidget(schedulerLabel, kRow, KTBackupTargets::kLabel);
    grid->addWidget(schedule.menu, kRow, KTBackupTargets::kMenu);
    grid->addWidget(schedule.button, kRow, KTBackupTargets::kButton);
    grid->addWidget(schedule.words, kRow, KTBackupTargets::kWords);

    QPushButton* start = MakeStartButton();
    auto* top = new QHBoxLayout;
    top->addWidget(modeLabel);
    top->addWidget(fMode);
    top->addWidget(MakeHint(), 1);
    auto* bottom = new QHBoxLayout;
    bottom->addStretch(1);
    bottom->addWidget(start);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(fWhat, 1);
    layout->addLayout(grid);
    layout->addLayout(bottom);
    QWidget* before = fMode;
    for (QWidget* next : std::initializer_list<QWidget*>{
             fSources, fBaseJobs, Targets().DestinationMenu(), Targets().DestinationButton(),
             Targets().PackerMenu(), Targets().PackerButton(), schedule.menu, schedule.button,
             start})
        setTabOrder(std::exchange(before, next), next);
}

void KTBackupView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTBackupView>;
    static constexpr Entry kTable[] = {
        {"mode"_code, &KTBackupView::ModeChosen},
        {"sall"_code, &KTBackupView::SelectAll},
        {"sclr"_code, &KTBackupView::ClearAll},
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

QString KTBackupView::Hint() const {
    return fJob.IsFull() ? KTBackupTool::Hint() : KTControl::Text(core::kMoreChooseBase);
}

// --- what is backed up ---------------------------------------------------------------------------

void KTBackupView::InitSelection() {
    fSources->MultiSelectAll(false);
    fSources->SetSelection(fJob.Selection(), true);
}

void KTBackupView::SaveMarks() {
    BMessage selection;
    fSources->GetSelection(&selection);
    fJob.SetSelection(selection);
}

void KTBackupView::SaveSelection() {
    SaveMarks();
    SaveJobListSelection();
}

void KTBackupView::SelectAll(BMessage&) {
    if (!fJob.IsFull()) return;
    fSources->MultiSelectAll(true);
    BMessage selection;
    fSources->GetSelection(&selection);
    fSources->SetSelection(selection, false);
    SaveMarks();
}

void KTBackupView::ClearAll(BMessage&) {
    if (fJob.IsFull()) {
        fSources->MultiSelectAll(false);
        SaveMarks();
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

// --- starting ------------------------------------------------------------------------------------

void KTBackupView::HideStart() {
    KTBackupTool::HideStart();
    fSources->KeepMissing();
}

bool KTBackupView::CheckStart(bool quiet) {
    const bool chosen =
        fJob.IsFull() ? fSources->HasSelection() : fBaseJobs->CurrentSelection() != kNoRow;
    if (!chosen) {
        if (!quiet)
            Alert(fJob.IsFull() ? core::text::kNothingSelectedToBackUp
                                : core::text::kNoBaseJobSelected);
        return false;
    }
    fJob.IsFull() ? SaveMarks() : SaveJobListSelection();
    fJob.KeepWhatTheTypeUses();
    if (!fJob.IsFull() && Targets().IsOverwrite()) Targets().SaveDestination();
    const bool medium = Targets().HasMedium();
    if (!medium && !quiet) Alert(core::text::kNoDestination);
    return medium;
}

void KTBackupView::BeforeSending() {
    fJob.IsFull() ? SaveMarks() : SaveJobListSelection();
    SaveScheduler();
    InitScheduler();
}

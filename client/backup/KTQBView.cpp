#include "client/backup/KTQBView.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

#include "client/selection/KTVolumeSelectionView.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

KTQBView::KTQBView(KTToolContext context, QWidget* parent, const char* name,
                   std::shared_ptr<kit::MountSource> mounts)
    : KTBackupTool(name, std::move(context), parent, mounts) {
    fVolumes = new KTVolumeSelectionView(Context().preferences, this, std::move(mounts));
    fVolumes->SetPopUpMenu(MakePopUpMenu(KTControl::LabelText(core::text::kStartBackup)));
    auto* grid = new QGridLayout;
    MakeTargets(grid, 0);
    QPushButton* start = MakeStartButton();

    auto* bottom = new QHBoxLayout;
    bottom->addWidget(MakeHint(), 1);
    bottom->addWidget(start);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(fVolumes, 1);
    layout->addLayout(grid);
    layout->addLayout(bottom);
    QWidget* before = fVolumes;
    for (QWidget* next :
         std::initializer_list<QWidget*>{Targets().DestinationMenu(), Targets().DestinationButton(),
                                         Targets().PackerMenu(), Targets().PackerButton(), start})
        setTabOrder(std::exchange(before, next), next);
    InitControls();
}

void KTQBView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTQBView>;
    static constexpr Entry kTable[] = {
        {"sall"_code, &KTQBView::SelectAll},
        {"sclr"_code, &KTQBView::ClearAll},
    };
    if (!KTDispatch<KTQBView>(this, kTable, message)) KTBackupTool::MessageReceived(message);
}

QString KTQBView::AlertTitle() const {
    return KTControl::Text(core::kMoreQuickBackup);
}

void KTQBView::InitControls() {
    // A loaded job may be one of the backup tool: of a kind, and for a time, that nobody sees here.
    fJob.SetType(core::JobType::Full);
    fJob.KeepWhatTheTypeUses();
    fJob.ClearSchedule();
    InitSelection();
    Targets().InitDestination();
    Targets().InitPacker();
}

// --- what is backed up ---------------------------------------------------------------------------

void KTQBView::InitSelection() {
    fVolumes->MultiSelectAll(false);
    fVolumes->SetSelection(fJob.Selection());
}

void KTQBView::SaveSelection() {
    BMessage selection = fJob.Selection();
    fVolumes->GetSelection(&selection);
    fJob.SetSelection(selection);
}

void KTQBView::SelectAll(BMessage&) {
    fVolumes->MultiSelectAll(true);
    SaveSelection();
}

void KTQBView::ClearAll(BMessage&) {
    fVolumes->MultiSelectAll(false);
    SaveSelection();
}

// --- starting ------------------------------------------------------------------------------------

bool KTQBView::CheckStart(bool quiet) {
    if (!fVolumes->HasSelection()) {
        if (!quiet) Alert(core::text::kNothingSelectedToBackUp);
        return false;
    }
    SaveSelection();
    return true;
}

void KTQBView::BeforeSending() {
    SaveSelection();
}

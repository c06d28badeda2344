#include "client/backup/KTBackupTool.h"

#include <QContextMenuEvent>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QPushButton>

#include "client/app/ServerLink.h"
#include "client/backup/KTBackupStartWin.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "kit/app/BLooper.h"

namespace {

constexpr char kStartKey[] = "win_start";
constexpr uint32_t kStartAnswer = "bsqt"_code;
constexpr uint32_t kBootVolume = "bvol"_code;

std::string NameOfBootVolume(const std::shared_ptr<kit::MountSource>& mounts) {
    for (const BVolume& volume : BVolumeRoster(mounts).Volumes())
        if (volume.isBoot) return volume.name;
    return "System";
}

}  // namespace

KTBackupTool::KTBackupTool(const char* name, KTToolContext context, QWidget* parent,
                           std::shared_ptr<kit::MountSource> mounts)
    : KTJobTool(name, std::move(context), parent) {
    fBootVolume =
        std::async(std::launch::async, [mounts = std::move(mounts), to = BMessenger(this)] {
            std::string name = NameOfBootVolume(mounts);
            BMessage known(kBootVolume);
            known.Add("name", name);
            to.SendMessage(std::move(known));
            return name;
        }).share();
}

KTBackupTool::~KTBackupTool() = default;

void KTBackupTool::MakeTargets(QGridLayout* grid, int firstRow) {
    fTargets = std::make_unique<KTBackupTargets>(&fJob, Context().programFolder, this, this, grid,
                                                 firstRow);
}

void KTBackupTool::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTBackupTool>;
    static constexpr Entry kTable[] = {
        {"news"_code, &KTBackupTool::DestinationChosen},
        {"crnw"_code, &KTBackupTool::PackerChosen},
        {"dset"_code, &KTBackupTool::DestinationSettings},
        {"pset"_code, &KTBackupTool::PackerSettings},
        {"sbak"_code, &KTBackupTool::BackupStart},
        {kStartAnswer, &KTBackupTool::StartAnswered},
        {kBootVolume, &KTBackupTool::BootVolume},
    };
    if (!KTDispatch<KTBackupTool>(this, kTable, message)) KTJobTool::MessageReceived(message);
}

// --- controls ------------------------------------------------------------------------------------

QPushButton* KTBackupTool::MakeStartButton() {
    fStart = new QPushButton(KTControl::LabelText(core::text::kStartBackup) + "...");
    KTControl::Name(fStart, "btn_start");
    KTControl::Bind(fStart, BMessage("sbak"_code), this);
    return fStart;
}

QMenu* KTBackupTool::MakePopUpMenu(const QString& start) {
    fPopUp = new QMenu(this);
    fPopUp->setObjectName("backuppopup");
    const auto add = [this](const QString& text, uint32_t code) {
        fPopUp->addAction(KTControl::MakeAction(fPopUp, text, BMessage(code), this));
    };
    add(KTControl::LabelText(core::text::kSelectAll), "sall"_code);
    add(KTControl::LabelText(core::text::kClearAll), "sclr"_code);
    add(start, "sbak"_code);
    return fPopUp;
}

void KTBackupTool::HideStart() {
    fStart->hide();
    if (auto* start = fPopUp->findChild<QAction*>("sbak")) start->setVisible(false);
}

void KTBackupTool::contextMenuEvent(QContextMenuEvent* event) {
    fPopUp->popup(event->globalPos());
    event->accept();
}

QLabel* KTBackupTool::MakeHint() {
    fHint = new QLabel;
    KTControl::Name(fHint, "str_hint");
    fHint->setTextFormat(Qt::PlainText);
    fHint->setWordWrap(true);
    return fHint;
}

void KTBackupTool::ShowHint() {
    fHint->setText(Hint());
}

QString KTBackupTool::Hint() const {
    if (fBootName.empty()) return {};
    return KTControl::Text(core::kMoreVarLeftOut).replace("%s", KTControl::Shown(fBootName));
}

// --- destination and compressor ------------------------------------------------------------------

void KTBackupTool::DestinationChosen(BMessage&) {
    fTargets->SaveDestination();
    fTargets->InitDestination();
}

void KTBackupTool::PackerChosen(BMessage&) {
    fTargets->SavePacker();
    fTargets->InitPacker();
}

void KTBackupTool::DestinationSettings(BMessage&) {
    fTargets->ShowDestinationSettings();
}

void KTBackupTool::PackerSettings(BMessage&) {
    fTargets->ShowPackerSettings();
}

void KTBackupTool::BootVolume(BMessage& message) {
    fBootName = message.Get("name", std::string());
    ShowHint();
}

// --- starting ------------------------------------------------------------------------------------

void KTBackupTool::BackupStart(BMessage&) {
    if (!CheckStart()) return;
    if (RaiseIfOpen(kStartKey)) return;
    auto* dialog =
        new KTBackupStartWin(KTControl::Text(core::text::kStartBackup), window(),
                             fJob.StartInfoFor(BaseTitle()), kStartAnswer, BMessenger(this));
    dialog->MakeTitleEditable(fJob.IsFull());
    dialog->MakePasswordEditable(fJob.IsFull());
    Present(kStartKey, dialog);
}

void KTBackupTool::StartAnswered(BMessage& message) {
    Forget(kStartKey);
    if (!message.Get("result", false)) return;
    // The dialog did not hold up the tool behind it: what was checked then may have changed.
    QPointer<KTBackupTool> alive(this);
    if (!CheckStart() || !alive) return;
    if (!fJob.IsFull()) fTargets->SwitchOverwriteOff();
    fJob.SetStartInfo(message.Get("settings", BMessage()));
    if (!fJob.IsFull()) fJob.SetTitle(BaseTitle());
    if (fTargets->IsOverwrite() && !AskOverwrite()) {
        if (alive) fJob.ForgetPassword();
        return;
    }
    Context().server->PostApplication(FinishedJob());
    fJob.ForgetPassword();
}

bool KTBackupTool::ConfirmEdit() {
    QPointer<KTBackupTool> alive(this);
    if (!CheckStart() || !alive) return false;
    return !fTargets->IsOverwrite() || (AskOverwrite() && alive);
}

bool KTBackupTool::AskOverwrite() {
    enum Button { kYes, kNo, kCancel };
    const char* medium = fTargets->Destination()->MediaName();
    KTAlertRequest request;
    request.parent = this;
    request.title = AlertTitle();
    request.buttons = {KTControl::Text(core::text::kYes), KTControl::Text(core::text::kNo),
                       KTControl::Text(core::text::kCancel)};
    request.kind = KTAlertRequest::Kind::Warning;
    request.defaultButton = kNo;
    request.escapeButton = kCancel;
    request.text = KTControl::Text(core::text::kOverwriteBackupsQuestion)
                       .replace("%s", KTControl::Shown(medium ? medium : ""));
    QPointer<KTBackupTool> alive(this);
    const int pressed = KTDialogs::Get()->RunAlert(request);
    if (!alive || pressed == kCancel) return false;
    if (pressed != kYes) fTargets->SwitchOverwriteOff();
    return true;
}

BMessage KTBackupTool::FinishedJob() {
    BeforeSending();
    fJob.KeepWhatTheTypeUses();
    return fJob.ForSending(fTargets->Destination(), fTargets->Packer(), fBootVolume.get());
}

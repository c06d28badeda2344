#include "client/backup/KTBackupTool.h"

#include <QDragEnterEvent>
#include <QFile>
#include <QMimeData>
#include <QPointer>
#include <QUrl>

#include "client/app/ServerLink.h"
#include "client/backup/KTBackupStartWin.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTFilePanels.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "kit/app/BLooper.h"

namespace {

constexpr char kStartKey[] = "win_start";
constexpr char kSaveKey[] = "win_saveselection";
constexpr char kLoadKey[] = "win_loadselection";
constexpr uint32_t kStartAnswer = "bsqt"_code;
constexpr uint32_t kSaveAnswer = "spcl"_code;
constexpr uint32_t kLoadAnswer = "lpcl"_code;
constexpr uint32_t kBootVolume = "bvol"_code;

std::string NameOfBootVolume(const std::shared_ptr<kit::MountSource>& mounts) {
    for (const BVolume& volume : BVolumeRoster(mounts).Volumes())
        if (volume.isBoot) return volume.name;
    return "System";
}

// The first file of a drop that the backup tools can open.
std::optional<std::string> DroppedFile(const QMimeData* data) {
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile()) continue;
        const std::string path = QFile::encodeName(url.toLocalFile()).toStdString();
        const std::string magic = core::MagicOf(path);
        if (magic == core::kBackupJobMagic || magic == core::kSelectionMagic) return path;
    }
    return std::nullopt;
}

KTFilePanels::Place PlaceOf(const std::string& path, const std::string& userFolder) {
    return {path, userFolder + "/jobsettings", KTBackupJob::kDefaultFileName};
}

}  // namespace

KTBackupTool::KTBackupTool(const char* name, KTToolContext context, QWidget* parent,
                           std::shared_ptr<kit::MountSource> mounts)
    : KTToolView(name, std::move(context), parent) {
    setAcceptDrops(true);
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

void KTBackupTool::GetPref(BMessage* settings) {
    SaveSources();
    *settings = fJob.Data();
}

void KTBackupTool::SetPref(const BMessage& settings) {
    fJob.Replace(settings);
    InitControls();
}

void KTBackupTool::SetPref(const entry_ref& file) {
    BMessage loaded;
    if (core::MagicOf(file.path) == core::kSelectionMagic) {
        if (core::LoadHeaderFile(file.path, core::kSelectionMagic, &loaded) !=
            core::HeaderLoad::Good) {
            FileProblem(core::kMoreJobNotLoaded, file.path);
            return;
        }
        fJob.SetSelection(loaded);
        ShowSelection(loaded);
        return;
    }
    if (LoadJobData(file, &loaded) != 0) {
        FileProblem(core::kMoreJobNotLoaded, file.path);
        return;
    }
    loaded.Set("selectionpath", file.path);
    SetPref(loaded);
}

int32_t KTBackupTool::SaveJobData(const BMessage& panelAnswer) {
    const auto path = KTFilePanels::SavePath(panelAnswer);
    if (!path) return static_cast<int32_t>(core::HeaderSave::CannotCreate);
    return static_cast<int32_t>(fJob.Save(*path));
}

int32_t KTBackupTool::LoadJobData(const entry_ref& file, BMessage* job) const {
    return static_cast<int32_t>(KTBackupJob::Load(file.path, job));
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
        {"ssel"_code, &KTBackupTool::OpenSavePanel},
        {"lsel"_code, &KTBackupTool::OpenLoadPanel},
        {kSaveAnswer, &KTBackupTool::SavePanelAnswered},
        {kLoadAnswer, &KTBackupTool::LoadPanelAnswered},
        {B_CANCEL, &KTBackupTool::PanelCancelled},
        {kBootVolume, &KTBackupTool::BootVolume},
    };
    if (!KTDispatch<KTBackupTool>(this, kTable, message)) KTToolView::MessageReceived(message);
}

void KTBackupTool::Alert(int32_t textId) {
    KTAlert(this, AlertTitle(), KTControl::Text(textId), {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

void KTBackupTool::FileProblem(int32_t textId, const std::string& path) {
    KTAlert(this, AlertTitle(), KTControl::Text(textId).replace("%s", KTControl::Shown(path)),
            {KTControl::Text(core::text::kOk)}, KTAlertRequest::Kind::Warning);
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
    BootVolumeKnown(message.Get("name", std::string()));
}

// --- job files -----------------------------------------------------------------------------------

void KTBackupTool::OpenSavePanel(BMessage&) {
    if (RaiseIfOpen(kSaveKey)) return;
    Remember(kSaveKey, KTFilePanels::OpenSave(this, PlaceOf(fJob.Path(), Context().userFolder),
                                              kSaveAnswer, this));
}

void KTBackupTool::OpenLoadPanel(BMessage&) {
    if (RaiseIfOpen(kLoadKey)) return;
    Remember(kLoadKey, KTFilePanels::OpenLoad(this, PlaceOf(fJob.Path(), Context().userFolder),
                                              kLoadAnswer, this));
}

void KTBackupTool::SavePanelAnswered(BMessage& message) {
    Forget(kSaveKey);
    const auto path = KTFilePanels::SavePath(message);
    if (!path) return;
    const std::string before = fJob.Path();
    fJob.SetPath(*path);
    SaveSources();
    if (SaveJobData(message) == 0) return;
    fJob.SetPath(before);
    FileProblem(core::kMoreJobNotSaved, *path);
}

void KTBackupTool::LoadPanelAnswered(BMessage& message) {
    Forget(kLoadKey);
    if (const auto path = KTFilePanels::LoadPath(message)) SetPref(entry_ref{*path});
}

void KTBackupTool::PanelCancelled(BMessage& message) {
    const auto what = static_cast<uint32_t>(message.Get<int32_t>("old_what", 0));
    if (what == kLoadAnswer) Forget(kLoadKey);
    if (what == kSaveAnswer) Forget(kSaveKey);
}

void KTBackupTool::dragEnterEvent(QDragEnterEvent* event) {
    if (DroppedFile(event->mimeData())) event->acceptProposedAction();
}

void KTBackupTool::dropEvent(QDropEvent* event) {
    const auto path = DroppedFile(event->mimeData());
    if (!path) return;
    event->acceptProposedAction();
    SetPref(entry_ref{*path});
}

// --- starting ------------------------------------------------------------------------------------

void KTBackupTool::BackupStart(BMessage&) {
    if (!CheckStart()) return;
    if (RaiseIfOpen(kStartKey)) return;
    auto* dialog =
        new KTBackupStartWin(KTControl::Text(core::text::kStartBackup), window(),
                             fJob.StartInfo(BaseTitle()), kStartAnswer, BMessenger(this));
    dialog->MakeTitleEditable(fJob.IsFull());
    Remember(kStartKey, dialog);
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
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
    Backup();
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

void KTBackupTool::Backup() {
    BeforeSending();
    fJob.KeepWhatTheTypeUses();
    Context().server->PostApplication(
        fJob.ForSending(fTargets->Destination(), fTargets->Packer(), fBootVolume.get()));
    fJob.ForgetPassword();
}

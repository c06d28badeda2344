#include "client/restore/KTRestoreView.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <ctime>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/catalogue/KTRestoreStartWin.h"
#include "client/restore/KTFolderView.h"
#include "client/restore/KTResDeleteWindow.h"
#include "client/restore/KTResInsertWindow.h"
#include "client/restore/KTResSettingWindow.h"
#include "client/restore/KTRestoreSelectionView.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTKeptPane.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/selection/RestorePlaces.h"
#include "kit/app/BLooper.h"

namespace {

constexpr char kSettingsKey[] = "win_ressettings";
constexpr char kDeleteKey[] = "win_delete";
constexpr char kInsertKey[] = "win_insert";
constexpr char kInsertStartKey[] = "win_resinsstart";
constexpr uint32_t kSettingsAnswer = "rssq"_code;
constexpr uint32_t kDeleteAnswer = "rdcl"_code;
constexpr uint32_t kInsertAnswer = "reiq"_code;
constexpr uint32_t kInsertStartAnswer = "ricl"_code;
constexpr uint32_t kVolumesKnown = "rsvl"_code;
constexpr char kFolderSizeKey[] = "RESFOLDERVIEWSIZE";
constexpr int kLeastTreeWidth = 200;

}  // namespace

KTRestoreView::KTRestoreView(KTToolContext context, QWidget* parent, const char* name,
                             std::shared_ptr<kit::MountSource> mounts)
    : KTCatalogueTool(name,
                      {"rsST"_code, "resq"_code, "win_resstart", core::text::kStartRestore,
                       core::text::kNothingSelectedToRestore},
                      std::move(context), parent) {
    fVolumes = std::async(std::launch::async, [mounts = std::move(mounts), to = BMessenger(this)] {
                   auto volumes = BVolumeRoster(mounts).Volumes();
                   to.SendMessage(BMessage(kVolumesKnown));
                   return volumes;
               }).share();
    MakeControls();
    InitControls();
}

KTRestoreView::~KTRestoreView() = default;

void KTRestoreView::MakeControls() {
    using namespace core;
    fCatalogue = new KTRestoreSelectionView(Context().server, Context().preferences, this, nullptr);
    fCatalogue->SetSelectionMessage(BMessage("slch"_code), this);
    fCatalogue->setMinimumWidth(kLeastTreeWidth);
    SetCatalogue(fCatalogue);
    connect(fCatalogue, &KTLogDataView::RedirectionsChanged, this, &KTRestoreView::TellLanding);

    fRedirect = new QScrollArea;
    KTControl::Name(fRedirect, "RestoreRedirectScrollView", KTControl::Text(kMoreFolders));
    fRedirect->setWidgetResizable(true);
    fRedirect->setFocusPolicy(Qt::NoFocus);
    fRedirect->setWidget(new KTFolderView(BMessenger(this), fRedirect));
    fRedirect->hide();
    auto* panes = new QSplitter;
    panes->setChildrenCollapsible(false);
    panes->addWidget(fCatalogue);
    panes->addWidget(fRedirect);
    panes->setStretchFactor(0, 3);
    panes->setStretchFactor(1, 1);
    Preferences* preferences = Context().preferences;
    new KTKeptPane(panes, 1, preferences->GetFloat(kFolderSizeKey, 0),
                   [preferences](float width) { preferences->Set(kFolderSizeKey, width); });

    const auto button = [this](const char* name, const QString& text, uint32_t code) {
        auto* made = new QPushButton(text);
        KTControl::Name(made, name);
        KTControl::Bind(made, BMessage(code), this);
        return made;
    };
    const QString dots = QStringLiteral("...");
    fInsert = button("btn_insert", KTControl::LabelText(text::kInsert) + dots, "rsIN"_code);
    fDelete = button("btn_delete", KTControl::LabelText(text::kDelete) + dots, "RSDE"_code);
    fSettings =
        button("btn_ressettings", KTControl::LabelText(text::kSettings) + dots, "rsSE"_code);
    fStart = button("btn_resstart", KTControl::LabelText(text::kStartRestore) + dots, "rsST"_code);
    const ScheduleControls schedule =
        MakeSchedule({"mnu_resscheduler", "btn_resscheduler", "str_resscheduler", "rssc"_code,
                      QStringLiteral("--")});
    auto* bottom = new QHBoxLayout;
    for (QPushButton* one : {fInsert, fDelete, fSettings})
        bottom->addWidget(one);
    bottom->addStretch(1);
    bottom->addWidget(fStart);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(panes, 1);
    layout->addLayout(RowOf(schedule));
    layout->addLayout(bottom);
    QWidget* before = fCatalogue;
    for (QWidget* next :
         std::initializer_list<QWidget*>{fRedirect->widget(), schedule.menu, schedule.button,
                                         fInsert, fDelete, fSettings, fStart})
        setTabOrder(std::exchange(before, next), next);
}

void KTRestoreView::HideStart() {
    for (QPushButton* button : {fStart, fDelete, fInsert})
        button->hide();
    fCatalogue->HideStart();
    fCatalogue->KeepMissing();
}

void KTRestoreView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTRestoreView>;
    static constexpr Entry kTable[] = {
        {"rsIN"_code, &KTRestoreView::OpenInsert},
        {"RSDE"_code, &KTRestoreView::DeleteRequest},
        {"rsSE"_code, &KTRestoreView::OpenSettings},
        {"rsDV"_code, &KTRestoreView::Divert},
        {kSettingsAnswer, &KTRestoreView::SettingsAnswered},
        {kDeleteAnswer, &KTRestoreView::DeleteAnswered},
        {kInsertAnswer, &KTRestoreView::InsertAnswered},
        {kInsertStartAnswer, &KTRestoreView::InsertStartAnswered},
        {core::code::kScanResult, &KTRestoreView::ToInsertWindow},
        {client::code::kServerGone, &KTRestoreView::ServerNotice},
        {client::code::kServerBack, &KTRestoreView::ServerNotice},
        {"slch"_code, &KTRestoreView::SelectionChanged},
        {kVolumesKnown, &KTRestoreView::SelectionChanged},
        {"RSRD"_code, &KTRestoreView::ToCatalogue},
    };
    if (!KTDispatch<KTRestoreView>(this, kTable, message))
        KTCatalogueTool::MessageReceived(message);
}

void KTRestoreView::ToCatalogue(BMessage& message) {
    fCatalogue->MessageReceived(message);
}

QString KTRestoreView::AlertTitle() const {
    return KTControl::Text(core::text::kRestore);
}

void KTRestoreView::InitControls() {
    InitSelection();
    InitDivert();
    InitScheduler();
}

// --- the selection ------------------------------------------------------------------------------

void KTRestoreView::SelectionChanged(BMessage& message) {
    if (OpenWindow(kDeleteKey)) DeleteRequest(message);
    // What is being typed goes on: the dialog is brought up to date, and not to the front.
    if (StartWindow()) StartShown();
}

// --- settings -----------------------------------------------------------------------------------

void KTRestoreView::OpenSettings(BMessage&) {
    if (RaiseIfOpen(kSettingsKey)) return;
    Present(kSettingsKey,
            new KTResSettingWindow(KTControl::Text(core::text::kRestoreSettings), window(),
                                   fJob.Settings(), kSettingsAnswer, BMessenger(this)));
}

void KTRestoreView::SettingsAnswered(BMessage& message) {
    Forget(kSettingsKey);
    if (!message.Get("result", false)) return;
    fJob.SetSettings(message.Get("settings", BMessage()));
    InitDivert();
    TellLanding();
}

void KTRestoreView::Divert(BMessage& message) {
    fJob.SetDivert(message.Get<int32_t>("divert", 0) != 0);
    InitDivert();
    TellLanding();
}

void KTRestoreView::InitDivert() {
    const bool divert = fJob.Divert();
    fRedirect->setVisible(divert);
    fCatalogue->ShowDiverted(divert);
}

// --- deleting -----------------------------------------------------------------------------------

void KTRestoreView::DeleteRequest(BMessage&) {
    QString lines;
    for (const KTRow backup : fCatalogue->WholeBackups()) {
        lines += fCatalogue->CellText(fCatalogue->Rows().Superitem(backup), KTLogDataView::kName) +
                 ", " + fCatalogue->DateOf(backup) + "\n";
    }
    auto* open = static_cast<KTResDeleteWindow*>(OpenWindow(kDeleteKey));
    if (lines.isEmpty()) {
        if (open) BMessenger(open).SendMessage(BMessage(B_QUIT_REQUESTED));
        return Alert(core::text::kNoBackupToDelete);
    }
    if (open) {
        open->SetText(lines);
        RaiseIfOpen(kDeleteKey);
        return;
    }
    auto* dialog = new KTResDeleteWindow(KTControl::Text(core::text::kDelete), window(),
                                         fJob.DeleteSettings(), kDeleteAnswer, BMessenger(this));
    dialog->SetText(lines);
    Present(kDeleteKey, dialog);
}

void KTRestoreView::DeleteAnswered(BMessage& message) {
    Forget(kDeleteKey);
    if (!message.Get("result", false)) return;
    fJob.SetDeleteSettings(message.Get("settings", BMessage()));
    Delete();
}

void KTRestoreView::Delete() {
    BMessage request(core::code::kDeleteBackups);
    for (const KTRow backup : fCatalogue->WholeBackups()) {
        request.Add("name", fCatalogue->NameOfBackup(backup));
        request.Add("full", static_cast<int32_t>(fJob.DeletesData()));
    }
    if (request.Has("name")) Context().server->PostServer(std::move(request));
}

// --- inserting ----------------------------------------------------------------------------------

void KTRestoreView::OpenInsert(BMessage&) {
    if (RaiseIfOpen(kInsertKey)) return;
    Present(kInsertKey,
            new KTResInsertWindow(Context(), KTControl::Text(core::text::kInsertBackup), window(),
                                  fJob.InsertSettings(), kInsertAnswer, BMessenger(this)));
}

void KTRestoreView::InsertAnswered(BMessage& message) {
    Forget(kInsertKey);
    if (!message.Get("result", false)) return;
    fJob.SetInsertSettings(message.Get("settings", BMessage()));
    InsertStart();
}

void KTRestoreView::InsertStart() {
    if (!fJob.InsertSettings().Has("ID")) {
        KTAlert(this, KTControl::Text(core::text::kInsert),
                KTControl::Text(core::text::kNothingSelectedToInsert),
                {KTControl::Text(core::text::kOk)}, KTAlertRequest::Kind::Warning);
        return;
    }
    if (RaiseIfOpen(kInsertStartKey)) return;
    Present(kInsertStartKey,
            new KTRestoreStartWin(Context(), KTControl::Text(core::text::kInsertStart), window(),
                                  fJob.InsertStartInfo(), kInsertStartAnswer, BMessenger(this)));
}

void KTRestoreView::InsertStartAnswered(BMessage& message) {
    Forget(kInsertStartKey);
    if (!message.Get("result", false)) return;
    fJob.SetInsertStartInfo(message.Get("settings", BMessage()));
    Insert();
}

void KTRestoreView::Insert() {
    Context().server->PostApplication(fJob.InsertJob(std::time(nullptr)));
}

void KTRestoreView::ToInsertWindow(BMessage& message) {
    if (auto* open = static_cast<KTResInsertWindow*>(OpenWindow(kInsertKey)))
        open->MessageReceived(message);
}

void KTRestoreView::ServerNotice(BMessage& message) {
    ToInsertWindow(message);
    KTCatalogueTool::MessageReceived(message);
}

// --- starting -----------------------------------------------------------------------------------

void KTRestoreView::StartShown() {
    SetPWList();
    TellLanding();
}

void KTRestoreView::SetPWList() {
    auto* dialog = StartWindow();
    if (!dialog) return;
    BMessage list("rssl"_code);
    for (const KTRow backup : fCatalogue->MarkedBackups()) {
        list.Add("title", KTControl::ToBytes(fCatalogue->CellText(
                              fCatalogue->Rows().Superitem(backup), KTLogDataView::kName)));
        list.Add("name", fCatalogue->NameOfBackup(backup));
        list.Add("date", KTControl::ToBytes(fCatalogue->DateOf(backup)));
    }
    BMessenger(dialog).SendMessage(std::move(list));
}

// Where the first marked item will be.
void KTRestoreView::TellLanding() {
    auto* dialog = StartWindow();
    if (!dialog || fVolumes.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return;
    BMessage selection;
    fCatalogue->GetSelectionList(&selection);
    const core::RestorePlaces places(selection, fJob.Divert(),
                                     fJob.Settings().Get<int32_t>("createroot", 0) != 0,
                                     fVolumes.get());
    const std::string source = fCatalogue->FirstMarked();
    const auto place = source.empty() ? std::nullopt : places.Of(source);
    BMessage landing(client::code::kRestoreLanding);
    landing.Add("source", source);
    if (place)
        landing.Add("target", place->Path());
    else if (source.rfind('/') == 0)  // a whole backup
        landing.Add("target", KTControl::ToBytes(KTControl::Text(core::kMoreOldPlace)));
    BMessenger(dialog).SendMessage(std::move(landing));
}
